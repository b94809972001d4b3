// Helpers shared by the test programs: the message an action raises, a counted object that
// offers the interfaces a test names, and a wait on the main thread's queue.
#pragma once

#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/System.h>
#include <ostrel/rtl/Threads.h>

#include <gtest/gtest.h>

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
  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override {
    return TInterfacedObject::QueryInterface(iid, obj);
  }
  Integer OSTREL_STDCALL _AddRef() override { return TInterfacedObject::_AddRef(); }
  Integer OSTREL_STDCALL _Release() override { return TInterfacedObject::_Release(); }
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<Intf...>(this, iid, obj) || TInterfacedObject::GetInterface(iid, obj);
  }
};

}  // namespace ostrel::testutil
