// The three ways the library reports trouble: DIE for an expected failure whose message the
// user may read, BUG for a broken internal assumption, Alert for a message box.
#pragma once

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Process.h>  // GetExeFileName

#include <functional>

namespace ostrel {

inline constexpr auto _SErrBUG =
    Cp1251(u8"Невозможная ошибка (BUG). Пожалуйста, обратитесь к разработчикам.");

// Raises Exception with the message.
[[noreturn]] OSTREL_API void DIE(std::string_view msg);
// Formats with Format first.
template <class A0, class... A>
[[noreturn]] void DIE(std::string_view fmt, const A0& arg0, const A&... args) {
  DIE(Format(fmt, arg0, args...));
}

// Raises Exception with the apology text of _SErrBUG, followed by "\r\r" and the message
// when the message is not empty.
[[noreturn]] OSTREL_API void BUG(std::string_view msg = {});
template <class A0, class... A>
[[noreturn]] void BUG(std::string_view fmt, const A0& arg0, const A&... args) {
  BUG(Format(fmt, arg0, args...));
}

// Shows the message to the user and returns when it has been seen: a modal box without
// owner window, with the executable's file name as caption and one OK button.
OSTREL_API void Alert(std::string_view msg);
template <class A0, class... A>
void Alert(std::string_view fmt, const A0& arg0, const A&... args) {
  Alert(Format(fmt, arg0, args...));
}

// Where Alert sends its message. The default shows a message box on Windows and writes
// caption and text in UTF-8 to standard error elsewhere. SetAlertHandler returns the
// previous handler; an empty handler restores the default.
using TAlertHandler = std::function<void(const AnsiString& caption, const AnsiString& text)>;
OSTREL_API TAlertHandler SetAlertHandler(TAlertHandler handler);

}  // namespace ostrel
