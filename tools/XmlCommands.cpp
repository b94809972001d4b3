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

IPtr<IXDoc> LoadDoc(std::string_view fileName) {
  IPtr<IXDoc> doc;
  GetXDocIntf(fileName, doc);
  return doc;
}

TXItem* RootOf(const IPtr<IXDoc>& doc) { return XRootOf(doc.Get()); }

// The document to the file named by -o, or to the terminal.
void Emit(Cli& cli, const IPtr<IXDoc>& doc, const Args& args) {
  if (const AnsiString* out = args.Value("-o"))
    doc->SaveToFile(*out, true);
  else
    cli.Write(TerminalLines(doc->get_XML()));
}

int Check(Cli& cli, const Args& args) {
  int failed = 0;
  for (const AnsiString& file : args.Values()) {
    try {
      LoadDoc(file);
      cli.WriteLn(file + ": ok");
    } catch (const EXMLError& e) {
      ++failed;
      cli.WriteLn(file + ":" + std::to_string(e.Line()) + ":" + std::to_string(e.Column()) + ": " +
                  LoadFailure(e));
    } catch (const Exception& e) {
      ++failed;
      cli.WriteLn(file + ": " + LoadFailure(e));
    }
  }
  return failed ? 1 : 0;
}

int FormatFile(Cli& cli, const Args& args) {
  Emit(cli, LoadDoc(args.Values()[0]), args);
  return 0;
}

int Find(Cli& cli, const Args& args) {
  if (args.Flag("--value") + args.Flag("--attrs") + (args.Value("--attr") ? 1 : 0) > 1)
    throw UsageError("xml find takes at most one of --value, --attr and --attrs");
  const IPtr<IXDoc> doc = LoadDoc(args.Values()[0]);
  IPtr<IXItem> found;
  FindXPath(doc->get_Root(), args.Values()[1], true, found);
  if (args.Flag("--value")) {
    cli.WriteLn(TerminalLines(VarToStr(found->get_Value())));
  } else if (const AnsiString* name = args.Value("--attr")) {
    cli.WriteLn(TerminalLines(VarToStr(XAttr(found, *name))));
  } else if (args.Flag("--attrs")) {
    IPtr<IDump> attrs;
    if (found->GetAttrList(attrs)) cli.WriteLn(TerminalLines(Dump_AsString(attrs, "\n")));
  } else {
    cli.Write(TerminalLines(found->get_XML()));
  }
  return 0;
}

int Fix(Cli& cli, const Args& args) {
  const IPtr<IXDoc> target = LoadDoc(args.Values()[0]);
  const IPtr<IXDoc> fixes = LoadDoc(args.Values()[1]);
  XFix(RootOf(target), RootOf(fixes));
  Emit(cli, target, args);
  return 0;
}

OSTREL_CLI_COMMAND(
        .name = "xml check", .summary = "Check that XML files read; name the line of each error",
        .run = Check, .usage = "FILE...", .minValues = 1,
        .details = "Prints FILE: ok, or FILE:LINE:COLUMN: the error; status 1 when any fails.");
OSTREL_CLI_COMMAND(.name = "xml format",
                   .summary = "Write an XML file back as the library writes it", .run = FormatFile,
                   .usage = "FILE",
                   .options = {{"-o", "OUT",
                                "write to OUT (CP1251, CR LF) instead of the terminal"}},
                   .minValues = 1, .maxValues = 1);
OSTREL_CLI_COMMAND(.name = "xml find", .summary = "Find the element a path names and show it",
                   .run = Find, .usage = "FILE PATH",
                   .options = {{"--value", nullptr, "show the element's text only"},
                               {"--attr", "NAME", "show one attribute only"},
                               {"--attrs", nullptr, "show the attributes, one NAME=VALUE a line"}},
                   .minValues = 2, .maxValues = 2,
                   .details =
                       "PATH: names separated by /, with filters as payment[@number=\"318\"].");
OSTREL_CLI_COMMAND(.name = "xml fix",
                   .summary = "Apply a file of fixes (fix=\"a|u|d\") to a target file", .run = Fix,
                   .usage = "TARGET FIXES",
                   .options = {{"-o", "OUT",
                                "write to OUT (CP1251, CR LF) instead of the terminal"}},
                   .minValues = 2, .maxValues = 2);

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
