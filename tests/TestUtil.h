// Helpers shared by the test programs: the message an action raises, a counted object that
// offers the interfaces a test names, a wait on the main thread's queue, a system monitor
// that writes down what it is told, and a localisation library a test translates with.
#pragma once

#include <ostrel/core/ModuleLinks.h>
#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/System.h>
#include <ostrel/rtl/Threads.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>

namespace ostrel::testutil {

// The 80-bit extended value nearest to v: what the library's extended arithmetic and text
// conversions give on every platform. The identity where long double is that format; where
// it is wider, a literal such as 2.68L holds more bits than the library's results.
inline Extended X(Extended v) { return Extended80(v).ToExtended(); }

// The message of the E that fn raises, or "<no exception>" when it returns. An exception of
// another class passes through and fails the test.
template <class E = Exception, class Fn>
std::string MessageOf(Fn&& fn) {
  try {
    fn();
  } catch (const E& e) {
    return e.Message();
  }
  return "<no exception>";
}

// The time a test allows an input of its size that the library must handle in time linear in
// the size: one second, times OSTREL_TEST_SLOWDOWN where that is set (the qemu runner sets it,
// as emulated code runs tens of times slower). Work that grew with the square of the size
// would take far longer.
inline std::chrono::steady_clock::duration LinearTimeBudget() {
  const char* slowdown = std::getenv("OSTREL_TEST_SLOWDOWN");
  const int factor = slowdown ? std::atoi(slowdown) : 1;
  return std::chrono::seconds(1) * std::max(factor, 1);
}

// The values as text, separated by blanks: several small results compared in one line.
template <class... T>
std::string Join(const T&... values) {
  std::ostringstream out;
  ((out << values << ' '), ...);
  std::string text = out.str();
  if (!text.empty()) text.pop_back();
  return text;
}

// Runs the main thread's queue until done() holds, sleeping in CheckSynchronize between
// pieces of work; fails after ten seconds instead of hanging the suite.
template <class Done>
void ServeUntil(Done done) {
  for (int i = 0; i < 500 && !done(); ++i) CheckSynchronize(20);
  ASSERT_TRUE(done()) << "the work never arrived";
}

// A reference-counted object answering for Intf...; a test derives from it to fill the
// interfaces' own slots.
template <class... Intf>
class TIntfObject : public TInterfacedObject, public Intf... {
 public:
  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<Intf...>(this, iid, obj) || TInterfacedObject::GetInterface(iid, obj);
  }
};

// A system monitor that writes down its calls as "start a|b|c|d; " and "next id|a|b; ";
// every trace it starts gets the ID 42.
class TRecordingMonitor : public TIntfObject<IkxSysMonitor> {
 public:
  void OSTREL_STDCALL TraceStart(std::string_view a, std::string_view b, std::string_view c,
                                 std::string_view d, Integer& id) override {
    log += "start " + std::string(a) + "|" + std::string(b) + "|" + std::string(c) + "|" +
           std::string(d) + "; ";
    id = 42;
  }
  void OSTREL_STDCALL TraceNext(Integer id, std::string_view a, std::string_view b) override {
    log += "next " + std::to_string(id) + "|" + std::string(a) + "|" + std::string(b) + "; ";
  }
  std::string log;
};

// A localisation library whose translation is translate(text, context); the other slots do
// nothing.
class TLcLib : public TIntfObject<IkxLcLib> {
 public:
  using Translate = std::function<WideString(std::u16string_view, std::string_view)>;
  explicit TLcLib(Translate translate) : fTranslate(std::move(translate)) {}
  void OSTREL_STDCALL Op1() override {}
  AnsiString OSTREL_STDCALL Op2(std::string_view) override { return {}; }
  WideString OSTREL_STDCALL TranslateW(std::u16string_view text, std::string_view ctx) override {
    return fTranslate(text, ctx);
  }
  WideString OSTREL_STDCALL TranslateA(std::string_view text, std::string_view ctx) override {
    return fTranslate(AnsiToWide(text), ctx);
  }
  void OSTREL_STDCALL Op5() override {}

 private:
  Translate fTranslate;
};

}  // namespace ostrel::testutil
