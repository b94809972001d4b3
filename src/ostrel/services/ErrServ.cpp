#include <ostrel/services/ErrServ.h>

#include <ostrel/rtl/Files.h>
#include <ostrel/rtl/Process.h>

#include <mutex>
#include <utility>

namespace ostrel {

void DIE(std::string_view msg) { throw Exception(msg); }

void BUG(std::string_view msg) {
  AnsiString text(_SErrBUG.View());
  if (!msg.empty()) {
    text += "\r\r";
    text += msg;
  }
  throw Exception(text);
}

namespace {

void DefaultAlert(const AnsiString& caption, const AnsiString& text) {
  SystemMessageBox(caption, text);
}

std::mutex gAlertLock;
TAlertHandler gAlertHandler;

}  // namespace

TAlertHandler SetAlertHandler(TAlertHandler handler) {
  std::lock_guard<std::mutex> lock(gAlertLock);
  TAlertHandler previous = std::move(gAlertHandler);
  gAlertHandler = std::move(handler);
  if (!previous) previous = DefaultAlert;
  return previous;
}

void Alert(std::string_view msg) {
  TAlertHandler handler;
  {
    std::lock_guard<std::mutex> lock(gAlertLock);
    handler = gAlertHandler;
  }
  const AnsiString text(msg);
  const AnsiString caption = ExtractFileName(GetExeFileName());
  if (handler)
    handler(caption, text);
  else
    DefaultAlert(caption, text);
}

}  // namespace ostrel
