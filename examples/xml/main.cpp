// The typical request of an Ostrel application, end to end: load an XML data file, find an
// element by a filtered path, take its attributes as a dump, fill a Russian template with
// them, round the amount and write it in words.
//
//   payments FILE [NUMBER...]
//
// prints every payment order of FILE (or those with the given numbers) as a sentence.
#include <ostrel/core/Dump.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/services/NumToText.h>
#include <ostrel/services/Params.h>
#include <ostrel/services/Rounding.h>
#include <ostrel/xml/Xdata.h>

#include <iostream>
#include <vector>

using namespace ostrel;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: payments FILE [NUMBER...]\n";
    return 2;
  }
  try {
    // The document owns the tree; LoadXData reads the file into its root.
    IPtr<IXDoc> doc(new TXDocIntf);
    LoadXData(static_cast<TXDocIntf*>(doc.Get())->Root(), Utf8ToAnsi(argv[1]), false);
    const IPtr<IXItem> root = doc->get_Root();

    std::vector<AnsiString> numbers;
    for (int i = 2; i < argc; ++i) numbers.push_back(Utf8ToAnsi(argv[i]));
    if (numbers.empty())
      for (Integer i = 0; i < root->get_Count(); ++i)
        numbers.push_back(VarToStr(XAttr(root->get_Items(i), "number", "")));

    static constexpr auto sentence = Cp1251(u8"%date  № %number  %payee: %amount (%words)");
    for (const AnsiString& number : numbers) {
      // A filtered path; a number that is not in the file raises with the path in the message.
      IPtr<IXItem> payment;
      FindXPath(root, "payment[@number=\"" + number + "\"]", true, payment);
      IPtr<IDump> fields;
      payment->GetAttrList(fields);
      const Extended amount = RoundExt(XML2FLOAT(fields->get_ByName("sum")), 2, drHalfUp);
      fields->set_ByName("amount", FToStr(amount, 2, 2, false));
      fields->set_ByName("words",
                         CrcToText("RU", VarToStr(fields->get_ByName("currency")), amount));
      fields->set_ByName("date", DateToStr(XML2DT(fields->get_ByName("date"))));
      std::cout << AnsiToUtf8(ParseParams(sentence, fields, '%', true)) << '\n';
    }
  } catch (const std::exception& e) {
    // what() is UTF-8; the library breaks lines with CR.
    std::string text = e.what();
    for (char& c : text)
      if (c == '\r') c = '\n';
    std::cerr << text << '\n';
    return 1;
  }
  return 0;
}
