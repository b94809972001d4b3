// Text blocks of the item tree: the reader copies the attribute text of many items into one
// block instead of giving each item a heap string of its own. A block counts the items that
// use it (and the reader while it fills it) and goes with the last of them. All users of a
// block are of one tree, which belongs to one thread at a time, so the count is plain.
#pragma once

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Types.h>

#include <cstddef>
#include <new>
#include <string_view>

namespace ostrel::detail {

struct TXTextBlock {
  std::size_t users;
  std::size_t capacity;
  std::size_t used;

  char* Data() noexcept { return reinterpret_cast<char*>(this + 1); }

  static TXTextBlock* Make(std::size_t capacity) {
    void* memory = ::operator new(sizeof(TXTextBlock) + capacity);
    return new (memory) TXTextBlock{1, capacity, 0};
  }
  static void Release(TXTextBlock* block) noexcept {
    if (block && --block->users == 0) ::operator delete(block);
  }
};

// The size of a text as an item holds it (32 bits); a longer text is refused rather than
// cut short.
inline Cardinal TextSize(std::size_t size) {
  if constexpr (sizeof(std::size_t) > sizeof(Cardinal)) {
    if (size > static_cast<std::size_t>(static_cast<Cardinal>(-1)))
      throw EInvalidArgument("TXItem: a text longer than 4 GB cannot be held");
  }
  return static_cast<Cardinal>(size);
}

// Whether s is "<![CDATA[" ... "]]>", the markers compared ignoring letter case: such a
// value is kept unwrapped and marked as character data.
inline bool IsCDATAWrapped(std::string_view s) {
  constexpr std::string_view open = "<![CDATA[", close = "]]>";
  return s.size() >= open.size() + close.size() && SameText(s.substr(0, open.size()), open) &&
         SameText(s.substr(s.size() - close.size()), close);
}

}  // namespace ostrel::detail
