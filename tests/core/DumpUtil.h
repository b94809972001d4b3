// Dumps for the container tests: one filled from a list of pairs, and the text of a missing
// name's error.
#pragma once

#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/Format.h>

#include <TestUtil.h>

#include <initializer_list>
#include <utility>

namespace ostrel::testutil {

inline IPtr<IDump> DumpOf(std::initializer_list<std::pair<AnsiString, Variant>> entries) {
  IPtr<IDump> d = GetDumpIntf();
  for (const auto& [name, value] : entries) d->set_ByName(name, value);
  return d;
}

inline AnsiString NotFound(std::string_view name) { return Format(_SErrDumpNameNotFount, name); }

}  // namespace ostrel::testutil
