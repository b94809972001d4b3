// The XML reader on any bytes, into a document (so that the wrappers' counting and freeing
// are exercised too). What was read is written; when the tree holds nothing that the
// dialect cannot write back as it was read (see Writable), that text must read back and
// write the same bytes again. Attribute access and the value conversions run on what was
// read.
//
// The same bytes are also read from a stream that gives random short reads and may raise at
// a random place (both drawn from the input's hash, so that every input has its own): the
// result must be the whole-buffer load's, error and partial tree included, unless the
// reader needed bytes past the failing place, when it must be the stream's error.
#include <FuzzUtil.h>

#include "../tests/xml/XmlUtil.h"

#include <ostrel/xml/Xmlutils.h>

#include <random>
#include <string>
#include <vector>

using namespace ostrel;

namespace {

std::string Write(const TXItem* item) {
  TMemoryStream out;
  SaveXData(item, true, out);
  return std::string(static_cast<const char*>(out.Memory()),
                     static_cast<std::size_t>(out.GetSize()));
}

bool Read(TXItem* item, std::string_view text) {
  return fuzz::Guarded([&] { xmltest::LoadText(item, text); });
}

// What a load from the stream gives: its error's message (none when it read) and the tree
// read up to it, as written text.
std::string LoadOutcome(TStream& stream) {
  TXItem root;
  std::string outcome = "ok";
  try {
    LoadXData(&root, stream);
  } catch (const Exception& e) {
    outcome = "!" + e.Message();
  }
  fuzz::Guarded([&] { outcome += "\n" + Write(&root); });
  return outcome;
}

void CompareChunkedLoad(std::string_view text) {
  std::uint64_t hash = 1469598103934665603ull;
  for (char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  std::mt19937_64 rng(hash);
  const Int64 raiseAt = rng() % 3 == 0 ? -1 : static_cast<Int64>(rng() % (text.size() + 1));
  const Integer fixed = static_cast<Integer>(rng() % 18);  // 0: a random size each read
  xmltest::ChunkedStream whole(text, [] { return Integer(1) << 30; });
  const std::string expected = LoadOutcome(whole);
  xmltest::ChunkedStream chunked(
      text, [&] { return fixed ? fixed : static_cast<Integer>(1 + rng() % 64); }, raiseAt);
  const std::string got = LoadOutcome(chunked);
  if (raiseAt >= 0 && raiseAt < whole.highWater) {
    fuzz::Require(got.rfind("!chunked read failed\n", 0) == 0,
                  "a stream's error is not the load's error", got);
  } else {
    fuzz::Require(got == expected, "short reads change what is read", got + "\n---\n" + expected);
  }
}

// Trees that the writer cannot give back as they were read, by the dialect's own rules:
// names with a double quote (it opens a quoted part in the end tag) or ending in "/" (cut
// off once more when read back), attribute text ending in "/" (read back as self-closing), CDATA
// holding "]]>", a lone text child or two adjacent ones (read back as the parent's value, or as one
// text), elements named "#text" that are not plain text (they are written as their text alone, or
// as "/>" without one), and inner elements whose name starts with "!" (an inner "<!" is neither
// comment nor CDATA; such an element is read only where a tag follows a skipped declaration).
bool Writable(const TXItem* root) {
  std::vector<const TXItem*> stack{root};
  while (!stack.empty()) {
    const TXItem* item = stack.back();
    stack.pop_back();
    const AnsiString& name = item->get_Name();
    if (name.empty() || name.find('"') != AnsiString::npos || name.back() == '/') return false;
    if (item != root && name[0] == '!') return false;
    const AnsiString attrs = Trim(item->get_AttrText());
    if (!attrs.empty() && attrs.back() == '/') return false;
    if (item->get_IsCDATA() && VarToStr(item->get_Value()).find("]]>") != AnsiString::npos)
      return false;
    if (item->get_IsText() &&
        (item == root || item->get_Count() > 0 || !item->get_AttrText().empty() ||
         Trim(VarToStr(item->get_Value())).empty()))
      return false;
    const Integer n = item->get_Count();
    if (n == 1 && item->get_Items(0)->get_IsText()) return false;
    for (Integer i = 0; i < n; ++i) {
      if (i > 0 && item->get_Items(i)->get_IsText() && item->get_Items(i - 1)->get_IsText())
        return false;
      stack.push_back(item->get_Items(i));
    }
  }
  return true;
}

// Every attribute of every item, through the tree's own accessors and the dump.
void TouchAttributes(TXItem* root) {
  std::vector<TXItem*> stack{root};
  while (!stack.empty()) {
    TXItem* item = stack.back();
    stack.pop_back();
    fuzz::Guarded([&] {
      IPtr<IDump> list;
      item->GetAttrList(list);
      for (Integer i = 0; i < list->get_Count(); ++i) {
        const Variant value = item->get_Attr(list->get_Name(i));
        fuzz::Guarded([&] { XML2FLOAT(value); });
        fuzz::Guarded([&] { XML2DT(value); });
        XML2BOOL(value);
      }
    });
    for (Integer i = 0; i < item->get_Count(); ++i) stack.push_back(item->get_Items(i));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CompareChunkedLoad(text);
  IPtr<IXItem> held;
  {
    IPtr<TXDocIntf> doc(new TXDocIntf);
    TXItem* root = doc->Root();
    const bool read = Read(root, text);
    // Keep an interface on some item past the document's own reference.
    TXItem* deepest = root;
    while (deepest->get_Count() > 0) deepest = deepest->get_Items(deepest->get_Count() - 1);
    held = deepest->get_Intf();
    TouchAttributes(root);
    std::string first;
    if (!fuzz::Guarded([&] { first = Write(root); })) return 0;
    if (!read || !Writable(root)) return 0;
    TXItem again;
    fuzz::Require(Read(&again, first), "written text does not read back", first);
    std::string second;
    fuzz::Require(fuzz::Guarded([&] { second = Write(&again); }), "re-read tree does not write");
    fuzz::Require(second == first, "written text changes on a second round", first);
  }
  fuzz::Guarded([&] { held->get_Doc()->get_Root()->Clear(); });
  fuzz::Guarded([&] { held->get_Name(); });
  return 0;
}
