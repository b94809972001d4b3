#include <ostrel/services/ErrServ.h>

#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <unistd.h>
#endif

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

AnsiString GetExeFileName() {
#if defined(_WIN32)
  std::vector<char> buf(MAX_PATH);
  for (;;) {
    DWORD n = GetModuleFileNameA(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
    if (n == 0) return AnsiString();
    if (n < buf.size()) return AnsiString(buf.data(), n);
    buf.resize(buf.size() * 2);
  }
#else
  // The link names the file in the file system's encoding, which is UTF-8 on the systems
  // the library runs on.
  std::vector<char> buf(256);
  for (;;) {
    ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) return AnsiString();
    if (static_cast<std::size_t>(n) < buf.size())
      return Utf8ToAnsi(std::string_view(buf.data(), static_cast<std::size_t>(n)));
    if (buf.size() >= 65536) return AnsiString();
    buf.resize(buf.size() * 2);
  }
#endif
}

namespace {

AnsiString ExeName() {
  AnsiString path = GetExeFileName();
#if defined(_WIN32)
  std::size_t slash = path.find_last_of("\\/:");
#else
  std::size_t slash = path.rfind('/');
#endif
  return slash == AnsiString::npos ? path : path.substr(slash + 1);
}

void DefaultAlert(const AnsiString& caption, const AnsiString& text) {
#if defined(_WIN32)
  MessageBoxA(nullptr, text.c_str(), caption.c_str(), MB_OK);
#else
  std::string out = AnsiToUtf8(caption);
  out += ": ";
  out += AnsiToUtf8(text);
  out += '\n';
  std::fwrite(out.data(), 1, out.size(), stderr);
  std::fflush(stderr);
#endif
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
  if (handler) handler(ExeName(), text);
  else DefaultAlert(ExeName(), text);
}

}  // namespace ostrel
