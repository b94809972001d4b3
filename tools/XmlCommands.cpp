// `ostrel xml check|format|find|fix`: XML files in the library's dialect from the command
// line; and the section of `ostrel demo` that runs the typical request on the sample
// payment orders of examples/xml/payments.xml.
//
// Files are read and written as the library does (CP1251, CR LF); what goes to the terminal
// is text like any other output of the program: converted from CP1251 (unless --cp1251),
// lines ending in a plain line feed, and errors with their line breaks kept.
#include "Cli.h"

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/services/NumToText.h>
#include <ostrel/services/Params.h>
#include <ostrel/services/Rounding.h>
#include <ostrel/xml/Xdata.h>

#include <map>
#include <set>

namespace ostrel::cli {
namespace {

// Text with CR LF, CR or LF line ends, as terminal lines.
AnsiString TerminalLines(std::string_view text) {
  AnsiString out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      out += text[i];
    } else {
      out += '\n';
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    }
  }
  return out;
}

// The message of a failed file load on one line, without the file name that the load put
// in front of it: each run of line breaks becomes one blank.
AnsiString LoadFailure(const Exception& e) {
  std::string_view msg = e.Message();
  const AnsiString prefix = _SErrXMLLoadFile.Str() + "\r";
  if (msg.substr(0, prefix.size()) == prefix) {
    const std::size_t body = msg.find("\r\r", prefix.size());
    if (body != std::string_view::npos) msg.remove_prefix(body + 2);
  }
  AnsiString line;
  for (char c : msg) {
    if (c != '\r' && c != '\n')
      line += c;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
  }
  return line;
}

// The arguments of one subcommand: positional values, options with a value, and flags.
struct XmlArgs {
  std::vector<AnsiString> values;
  std::map<std::string, AnsiString, std::less<>> options;
  std::set<std::string, std::less<>> flags;

  const AnsiString* Get(std::string_view name) const {
    const auto it = options.find(name);
    return it == options.end() ? nullptr : &it->second;
  }
};

XmlArgs ReadArgs(std::vector<AnsiString>::const_iterator from,
                 std::vector<AnsiString>::const_iterator to,
                 std::set<std::string_view> valued, std::set<std::string_view> flags) {
  XmlArgs parsed;
  for (auto it = from; it != to; ++it) {
    const AnsiString& a = *it;
    if (a.size() < 2 || a[0] != '-') {
      parsed.values.push_back(a);
    } else if (valued.count(a)) {
      if (std::next(it) == to) throw UsageError("option " + a + " needs a value");
      parsed.options[a] = *++it;
    } else if (flags.count(a)) {
      parsed.flags.insert(a);
    } else {
      throw UsageError("unknown option '" + a + "'");
    }
  }
  return parsed;
}

IPtr<IXDoc> LoadDoc(std::string_view fileName) {
  IPtr<IXDoc> doc;
  GetXDocIntf(fileName, doc);
  return doc;
}

TXItem* RootOf(const IPtr<IXDoc>& doc) { return static_cast<TXDocIntf*>(doc.Get())->Root(); }

// The document to the file named by -o, or to the terminal.
void Emit(Cli& cli, const IPtr<IXDoc>& doc, const XmlArgs& args) {
  if (const AnsiString* out = args.Get("-o"))
    doc->SaveToFile(*out, true);
  else
    cli.Write(TerminalLines(doc->get_XML()));
}

int Check(Cli& cli, const XmlArgs& args) {
  if (args.values.empty()) throw UsageError("xml check needs at least one FILE");
  int failed = 0;
  for (const AnsiString& file : args.values) {
    try {
      LoadDoc(file);
      cli.WriteLn(file + ": ok");
    } catch (const EXMLError& e) {
      ++failed;
      cli.WriteLn(file + ":" + std::to_string(e.Line()) + ":" + std::to_string(e.Column()) +
                  ": " + LoadFailure(e));
    } catch (const Exception& e) {
      ++failed;
      cli.WriteLn(file + ": " + LoadFailure(e));
    }
  }
  return failed ? 1 : 0;
}

int FormatFile(Cli& cli, const XmlArgs& args) {
  if (args.values.size() != 1) throw UsageError("xml format takes one FILE");
  Emit(cli, LoadDoc(args.values[0]), args);
  return 0;
}

int Find(Cli& cli, const XmlArgs& args) {
  if (args.values.size() != 2) throw UsageError("xml find takes a FILE and a PATH");
  if (args.flags.size() + (args.Get("--attr") ? 1 : 0) > 1)
    throw UsageError("xml find takes at most one of --value, --attr and --attrs");
  const IPtr<IXDoc> doc = LoadDoc(args.values[0]);
  IPtr<IXItem> found;
  FindXPath(doc->get_Root(), args.values[1], true, found);
  if (args.flags.count("--value")) {
    cli.WriteLn(TerminalLines(VarToStr(found->get_Value())));
  } else if (const AnsiString* name = args.Get("--attr")) {
    cli.WriteLn(TerminalLines(VarToStr(XAttr(found, *name))));
  } else if (args.flags.count("--attrs")) {
    IPtr<IDump> attrs;
    if (found->GetAttrList(attrs)) cli.WriteLn(TerminalLines(Dump_AsString(attrs, "\n")));
  } else {
    cli.Write(TerminalLines(found->get_XML()));
  }
  return 0;
}

int Fix(Cli& cli, const XmlArgs& args) {
  if (args.values.size() != 2) throw UsageError("xml fix takes a TARGET and a FIXES file");
  const IPtr<IXDoc> target = LoadDoc(args.values[0]);
  const IPtr<IXDoc> fixes = LoadDoc(args.values[1]);
  XFix(RootOf(target), RootOf(fixes));
  Emit(cli, target, args);
  return 0;
}

int RunXml(Cli& cli, std::vector<AnsiString> args) {
  if (args.empty()) throw UsageError("xml needs a subcommand: check, format, find or fix");
  const AnsiString sub = args[0];
  const auto from = args.cbegin() + 1, to = args.cend();
  try {
    if (sub == "check") return Check(cli, ReadArgs(from, to, {}, {}));
    if (sub == "format") return FormatFile(cli, ReadArgs(from, to, {"-o"}, {}));
    if (sub == "find") return Find(cli, ReadArgs(from, to, {"--attr"}, {"--value", "--attrs"}));
    if (sub == "fix") return Fix(cli, ReadArgs(from, to, {"-o"}, {}));
  } catch (const Exception& e) {
    // The library's messages break lines with CR, which a terminal would overprint.
    cli.ErrorLn(TerminalLines(e.Message()));
    return 1;
  }
  throw UsageError("unknown xml subcommand '" + sub + "' (check, format, find, fix)");
}

OSTREL_CLI_COMMAND("xml", "Check, format, search or fix XML files (CP1251)",
                   "check FILE... | format FILE [-o OUT] | "
                   "find FILE PATH [--value | --attr NAME | --attrs] | fix TARGET FIXES [-o OUT]",
                   RunXml);

// The sample file, compiled in so that the demo runs from anywhere.
constexpr unsigned char kPayments[] = {
#include "SamplePayments.inc"
};

void DemoXml(Cli& cli) {
  IPtr<IXDoc> doc(new TXDocIntf);
  TMemoryStream stream;
  stream.Write(kPayments, static_cast<Integer>(sizeof kPayments));
  stream.SetPosition(0);
  LoadXData(RootOf(doc), stream);
  const IPtr<IXItem> root = doc->get_Root();
  cli.WriteLnUtf8("  LoadXData: examples/xml/payments.xml, <" + AnsiToUtf8(root->get_Name()) +
                  "> with " + std::to_string(root->get_Count()) + " payment orders");

  static constexpr auto path = Cp1251(u8"payment[@number=\"318\" @kind=\"ЭЛЕКТРОННО\"]");
  IPtr<IXItem> payment;
  FindXPath(root, path, true, payment);
  cli.WriteLn(AnsiString("  FindXPath: ") + path.Str());

  IPtr<IDump> params;
  payment->GetAttrList(params);
  cli.WriteLnUtf8("  GetAttrList:");
  cli.WriteLn("    " + Dump_AsString(params, "; "));

  // The amount as a bookkeeper writes it: rounded half up to kopecks, then in words.
  const Extended sum = RoundExt(XML2FLOAT(params->get_ByName("sum")), 2, drHalfUp);
  params->set_ByName("sum", FToStr(sum, 2, 2, false));
  params->set_ByName("words", CrcToText("RU", VarToStr(params->get_ByName("currency")), sum));
  params->set_ByName("date", DateToStr(XML2DT(params->get_ByName("date"))));
  params->set_ByName("purpose", XValue(payment, "purpose"));
  static constexpr auto form = Cp1251(
      u8"Платёжное поручение № %number от %date\n"
      u8"Получатель: %payee\n"
      u8"Сумма: %sum (%words)\n"
      u8"Назначение платежа: %purpose");
  cli.WriteLnUtf8("  ParseParams, RoundExt, CrcToText:");
  cli.WriteLn("    " + StringReplaceAll(ParseParams(form, params), "\n", "\n    "));
}

OSTREL_CLI_DEMO(80, "XML: a payment order found by a filtered path and written out", DemoXml);

}  // namespace
}  // namespace ostrel::cli
