// Streams, lists and components of the platform layer: TStream with its file and memory
// streams, the pointer list TList, the string list TStringList, the internally locked
// interface list and the owner-based component TComponent.
#pragma once

#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/System.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace ostrel {

// ---------------------------------------------------------------------------------------
// Streams

enum TSeekOrigin { soBeginning, soCurrent, soEnd };

// The abstract byte stream with 64-bit positions. Read and Write return the number of bytes
// moved (0 for a negative count or on failure); ReadBuffer and WriteBuffer raise instead.
class OSTREL_API TStream : public TObject {
  OSTREL_CLASS(TStream, TObject)
 public:
  TStream() = default;
  ~TStream() override;

  virtual Integer Read(void* buffer, Integer count) = 0;
  virtual Integer Write(const void* buffer, Integer count) = 0;
  // Returns the new position (-1 when the stream cannot move there).
  virtual Int64 Seek(Int64 offset, TSeekOrigin origin) = 0;

  Int64 GetPosition() { return Seek(0, soCurrent); }
  void SetPosition(Int64 position) { Seek(position, soBeginning); }
  // By default measured with Seek, leaving the position where it was.
  virtual Int64 GetSize();
  // Streams that cannot change their size (pipes, read-only streams) ignore the request.
  virtual void SetSize(Int64 newSize);

  // Raise EReadError "Stream read error" / EWriteError "Stream write error" when fewer than
  // count bytes move.
  void ReadBuffer(void* buffer, Integer count);
  void WriteBuffer(const void* buffer, Integer count);
  // Copies count bytes from the source's current position; count 0 copies the whole source
  // from its beginning. Returns the number of bytes copied.
  Int64 CopyFrom(TStream& source, Int64 count);
};

// File open modes: one access mode combined with one sharing mode, or fmCreate (which
// creates or truncates the file, may carry a sharing mode, and is exclusive without one).
inline constexpr Word fmCreate = 0xFF00;
inline constexpr Word fmOpenRead = 0x0000;
inline constexpr Word fmOpenWrite = 0x0001;
inline constexpr Word fmOpenReadWrite = 0x0002;
inline constexpr Word fmShareCompat = 0x0000;
inline constexpr Word fmShareExclusive = 0x0010;
inline constexpr Word fmShareDenyWrite = 0x0020;
inline constexpr Word fmShareDenyRead = 0x0030;
inline constexpr Word fmShareDenyNone = 0x0040;

// A stream over an operating-system file. The name is CP1251 text; it is handed to the
// system as UTF-8 on POSIX and as UTF-16 on Windows.
//
// Sharing on Windows is the system's own. On POSIX systems it is emulated with advisory
// flock locks, which only other users of flock observe: fmShareDenyNone takes no lock, a
// reader denying writes takes a shared lock, and every other open (writers, fmCreate, the
// compatibility and exclusive modes) takes an exclusive lock. Thus two deny-write readers
// share a file, while a writer and a deny-write reader refuse each other; a writer opened
// with fmShareDenyNone cannot be refused by anybody.
class OSTREL_API TFileStream : public TStream {
  OSTREL_CLASS(TFileStream, TStream)
 public:
  // Raises EFCreateError / EFOpenError "Cannot create/open file "<full name>". <reason>".
  TFileStream(std::string_view fileName, Word mode);
  // Takes over a handle that the platform layer opened itself (see TSafeFileWriter); it is
  // closed with the stream. fileName is what FileName() reports.
  TFileStream(std::intptr_t handle, std::string_view fileName) noexcept;
  ~TFileStream() override;

  Integer Read(void* buffer, Integer count) override;
  Integer Write(const void* buffer, Integer count) override;
  Int64 Seek(Int64 offset, TSeekOrigin origin) override;
  Int64 GetSize() override;
  // Sets the end of the file at newSize and leaves the position there; raises EOSError when
  // the system refuses.
  void SetSize(Int64 newSize) override;

  const AnsiString& FileName() const noexcept { return fFileName; }
  // The file descriptor on POSIX, the HANDLE on Windows.
  std::intptr_t Handle() const noexcept { return fHandle; }

 private:
  AnsiString fFileName;
  std::intptr_t fHandle = -1;
};

// A stream over a growable block of memory. Writing past the end extends the block (gaps
// read as zero bytes); the block grows geometrically, so appending is amortised constant.
class OSTREL_API TMemoryStream : public TStream {
  OSTREL_CLASS(TMemoryStream, TStream)
 public:
  TMemoryStream() = default;
  ~TMemoryStream() override;

  Integer Read(void* buffer, Integer count) override;
  Integer Write(const void* buffer, Integer count) override;
  // Any non-negative position is allowed, also past the end; a negative one gives -1 and
  // leaves the position unchanged.
  Int64 Seek(Int64 offset, TSeekOrigin origin) override;
  Int64 GetSize() override { return static_cast<Int64>(fData.size()); }
  // Raises EStreamError "Out of memory while expanding memory stream" when the block cannot
  // grow; a position past the new end moves back to it.
  void SetSize(Int64 newSize) override;

  // The block; valid until the next change of size.
  void* Memory() noexcept { return fData.data(); }
  const void* Memory() const noexcept { return fData.data(); }
  // Empties the stream and releases the block.
  void Clear();

  // Replaces the contents with the whole of the stream (read from its beginning).
  void LoadFromStream(TStream& stream);
  void LoadFromFile(std::string_view fileName);
  // Writes the whole contents, whatever the current position.
  void SaveToStream(TStream& stream);
  void SaveToFile(std::string_view fileName);

 private:
  void Reserve(std::size_t size);

  std::vector<Byte> fData;
  Int64 fPosition = 0;
};

// ---------------------------------------------------------------------------------------
// Lists

// Three-way comparison of two list items: negative, zero or positive.
using TListSortCompare = std::function<int(void* item1, void* item2)>;

// A list of untyped pointers. Index errors raise EListError "List index (%d) out of bounds".
class OSTREL_API TList : public TObject {
  OSTREL_CLASS(TList, TObject)
 public:
  TList() = default;
  ~TList() override;

  Integer Count() const noexcept { return static_cast<Integer>(fItems.size()); }
  // Grows with null items or cuts the list; a negative count raises EListError.
  void SetCount(Integer count);
  Integer Capacity() const noexcept { return static_cast<Integer>(fItems.capacity()); }
  // Raises EListError "List capacity (%d) exceeded." below the count.
  void SetCapacity(Integer capacity);

  void* Items(Integer index) const;
  void SetItems(Integer index, void* item);
  void* operator[](Integer index) const { return Items(index); }
  void* First() const { return Items(0); }
  void* Last() const { return Items(Count() - 1); }
  void* const* List() const noexcept { return fItems.data(); }

  Integer Add(void* item);
  // 0 <= index <= Count.
  void Insert(Integer index, void* item);
  void Delete(Integer index);
  // Removes the first occurrence; returns the index it had, or -1.
  Integer Remove(void* item);
  // Removes the first occurrence and returns it (null when absent).
  void* Extract(void* item);
  Integer IndexOf(const void* item) const;
  void Clear();
  void Exchange(Integer index1, Integer index2);
  void Move(Integer curIndex, Integer newIndex);
  // Removes the null items.
  void Pack();
  // Sorts in place (not stable). A comparison that contradicts itself leaves the items in
  // some order but never harms them.
  void Sort(const TListSortCompare& compare);

 private:
  std::vector<void*> fItems;
};

enum TDuplicates { dupIgnore, dupAccept, dupError };

class TStringList;
// Compares the strings at two indexes of the list: negative, zero or positive.
using TStringListSortCompare =
    std::function<int(TStringList& list, Integer index1, Integer index2)>;

// A list of strings, each with an object slot. The slot holds either a TObject or an
// untyped pointer (for data that is no TObject); the list remembers which, so that
// Objects() never reinterprets a plain pointer and OwnsObjects frees only TObjects.
//
// Unsorted by default, compared without regard to case (AnsiCompareText; AnsiCompareStr when
// CaseSensitive). A sorted list keeps its order on Add and applies Duplicates; positional
// changes (Insert, SetStrings, Move) are refused on it with EStringListError.
class OSTREL_API TStringList : public TObject {
  OSTREL_CLASS(TStringList, TObject)
 public:
  TStringList() = default;
  explicit TStringList(bool ownsObjects) : fOwnsObjects(ownsObjects) {}
  ~TStringList() override;

  Integer Count() const noexcept { return static_cast<Integer>(fItems.size()); }
  Integer Capacity() const noexcept { return static_cast<Integer>(fItems.capacity()); }
  void SetCapacity(Integer capacity);

  // Index errors raise EStringListError "List index (%d) out of bounds".
  const AnsiString& Strings(Integer index) const;
  const AnsiString& operator[](Integer index) const { return Strings(index); }
  // Refused on a sorted list.
  void SetStrings(Integer index, std::string_view s);
  // The TObject in the slot (null when empty); EInvalidCast when it holds a plain pointer.
  TObject* Objects(Integer index) const;
  // With OwnsObjects, an owned object that is replaced is freed.
  void SetObjects(Integer index, TObject* object);
  // The slot as an untyped pointer, whatever it holds.
  void* ObjectPtr(Integer index) const;
  void SetObjectPtr(Integer index, void* data);

  // Add returns the index of the new string; on a sorted list a duplicate is ignored
  // (returning the index of the one present) or refused with EStringListError "String list
  // does not allow duplicates", as Duplicates says.
  Integer Add(std::string_view s);
  Integer AddObject(std::string_view s, TObject* object);
  Integer AddObject(std::string_view s, void* data);
  Integer AddObject(std::string_view s, std::nullptr_t) { return Add(s); }
  void Insert(Integer index, std::string_view s);
  void InsertObject(Integer index, std::string_view s, TObject* object);
  void InsertObject(Integer index, std::string_view s, void* data);
  // Appends the strings and slots of another list; slots holding objects come across empty
  // when this list owns its objects (one object never gets two owners).
  void AddStrings(const TStringList& strings);
  void Delete(Integer index);
  void Clear();
  void Exchange(Integer index1, Integer index2);
  void Move(Integer curIndex, Integer newIndex);

  Integer IndexOf(std::string_view s) const;
  // The first line whose name part (before NameValueSeparator) equals name; -1 when none.
  Integer IndexOfName(std::string_view name) const;
  Integer IndexOfObject(const void* object) const;
  // Binary search of a sorted list: true when found; index is the position of the string
  // or where it would be inserted. The result is meaningless on an unsorted list.
  bool Find(std::string_view s, Integer& index) const;
  void Sort();
  // Sorts an unsorted list with the comparison (a sorted list stays as it is).
  void CustomSort(const TStringListSortCompare& compare);
  // Three-way comparison used for searching and sorting.
  virtual int CompareStrings(std::string_view s1, std::string_view s2) const;

  // "name=value" lines. Names(i) is the part before the separator ("" without one);
  // Values(name) the part after it ("" when the name is absent). Setting an empty value
  // deletes the line; setting another adds or replaces it.
  AnsiString Names(Integer index) const;
  AnsiString Values(std::string_view name) const;
  void SetValues(std::string_view name, std::string_view value);
  AnsiString ValueFromIndex(Integer index) const;
  void SetValueFromIndex(Integer index, std::string_view value);

  // Lines joined with CR LF after each one; setting splits at CR LF, CR or LF.
  AnsiString Text() const;
  void SetText(std::string_view text);
  // Strings separated by Delimiter, quoted with QuoteChar (doubling it inside) when they
  // hold blanks, control characters, the delimiter or the quote. Reading, unquoted blanks
  // separate strings as the delimiter does.
  AnsiString DelimitedText() const;
  void SetDelimitedText(std::string_view text);
  // DelimitedText with ',' and '"', whatever Delimiter and QuoteChar are.
  AnsiString CommaText() const;
  void SetCommaText(std::string_view text);

  char Delimiter() const noexcept { return fDelimiter; }
  void SetDelimiter(char c) noexcept { fDelimiter = c; }
  char QuoteChar() const noexcept { return fQuoteChar; }
  void SetQuoteChar(char c) noexcept { fQuoteChar = c; }
  char NameValueSeparator() const noexcept { return fNameValueSeparator; }
  void SetNameValueSeparator(char c) noexcept { fNameValueSeparator = c; }
  bool Sorted() const noexcept { return fSorted; }
  // Sorts the list when switched on.
  void SetSorted(bool value);
  TDuplicates Duplicates() const noexcept { return fDuplicates; }
  void SetDuplicates(TDuplicates value) noexcept { fDuplicates = value; }
  bool CaseSensitive() const noexcept { return fCaseSensitive; }
  // Re-sorts a sorted list under the new comparison.
  void SetCaseSensitive(bool value);
  bool OwnsObjects() const noexcept { return fOwnsObjects; }
  void SetOwnsObjects(bool value) noexcept { fOwnsObjects = value; }

  // Reads the bytes from the stream's position to its end as Text (bytes as they are).
  void LoadFromStream(TStream& stream);
  void LoadFromFile(std::string_view fileName);
  // Writes Text: every line ends with CR LF.
  void SaveToStream(TStream& stream) const;
  void SaveToFile(std::string_view fileName) const;

 private:
  struct Item {
    AnsiString Str;
    void* Ptr = nullptr;
    bool IsObject = false;  // Ptr holds a TObject*
  };

  void CheckIndex(Integer index) const;
  Integer AddItem(std::string_view s, void* ptr, bool isObject);
  void InsertItem(Integer index, std::string_view s, void* ptr, bool isObject);
  void ReleaseSlot(Item& item) noexcept;
  void QuickSort(const TStringListSortCompare& compare);
  void ReplaceLine(Integer index, AnsiString line);
  AnsiString JoinDelimited(char delimiter, char quoteChar) const;
  void SplitDelimited(std::string_view text, char delimiter, char quoteChar);

  std::vector<Item> fItems;
  bool fSorted = false;
  bool fCaseSensitive = false;
  bool fOwnsObjects = false;
  TDuplicates fDuplicates = dupIgnore;
  char fDelimiter = ',';
  char fQuoteChar = '"';
  char fNameValueSeparator = '=';
};

// The list of interfaces, locked internally for each operation, so that several threads may
// share it. Lock/Unlock hold the lock (re-entrantly) across several operations.
struct IInterfaceList : IInterface {
  static constexpr TGUID IID = TGUID::From("{285DEA8A-B865-11D1-AAA7-00C04FB17A72}");
  virtual IPtr<IInterface> OSTREL_STDCALL Get(Integer index) = 0;
  virtual Integer OSTREL_STDCALL GetCapacity() = 0;
  virtual Integer OSTREL_STDCALL GetCount() = 0;
  virtual void OSTREL_STDCALL Put(Integer index, const IPtr<IInterface>& item) = 0;
  virtual void OSTREL_STDCALL SetCapacity(Integer capacity) = 0;
  virtual void OSTREL_STDCALL SetCount(Integer count) = 0;
  virtual void OSTREL_STDCALL Clear() = 0;
  virtual void OSTREL_STDCALL Delete(Integer index) = 0;
  virtual void OSTREL_STDCALL Exchange(Integer index1, Integer index2) = 0;
  virtual IPtr<IInterface> OSTREL_STDCALL First() = 0;
  virtual Integer OSTREL_STDCALL IndexOf(const IPtr<IInterface>& item) = 0;
  virtual Integer OSTREL_STDCALL Add(const IPtr<IInterface>& item) = 0;
  virtual void OSTREL_STDCALL Insert(Integer index, const IPtr<IInterface>& item) = 0;
  virtual IPtr<IInterface> OSTREL_STDCALL Last() = 0;
  virtual Integer OSTREL_STDCALL Remove(const IPtr<IInterface>& item) = 0;
  virtual void OSTREL_STDCALL Lock() = 0;
  virtual void OSTREL_STDCALL Unlock() = 0;

 protected:
  ~IInterfaceList() = default;
};

// Reference counted: create it as `IPtr<IInterfaceList> list(new TInterfaceList)` (or hold
// an IPtr<TInterfaceList>). Items are compared by identity, as pointers to IInterface.
// Index errors raise EListError "List index (%d) out of bounds".
class OSTREL_API TInterfaceList : public TInterfacedObject, public IInterfaceList {
  OSTREL_CLASS(TInterfaceList, TInterfacedObject)
 public:
  TInterfaceList() = default;
  ~TInterfaceList() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  IPtr<IInterface> OSTREL_STDCALL Get(Integer index) override;
  Integer OSTREL_STDCALL GetCapacity() override;
  Integer OSTREL_STDCALL GetCount() override;
  void OSTREL_STDCALL Put(Integer index, const IPtr<IInterface>& item) override;
  void OSTREL_STDCALL SetCapacity(Integer capacity) override;
  void OSTREL_STDCALL SetCount(Integer count) override;
  void OSTREL_STDCALL Clear() override;
  void OSTREL_STDCALL Delete(Integer index) override;
  void OSTREL_STDCALL Exchange(Integer index1, Integer index2) override;
  IPtr<IInterface> OSTREL_STDCALL First() override;
  Integer OSTREL_STDCALL IndexOf(const IPtr<IInterface>& item) override;
  Integer OSTREL_STDCALL Add(const IPtr<IInterface>& item) override;
  void OSTREL_STDCALL Insert(Integer index, const IPtr<IInterface>& item) override;
  IPtr<IInterface> OSTREL_STDCALL Last() override;
  Integer OSTREL_STDCALL Remove(const IPtr<IInterface>& item) override;
  void OSTREL_STDCALL Lock() override;
  void OSTREL_STDCALL Unlock() override;

  Integer Count() { return GetCount(); }
  IPtr<IInterface> Items(Integer index) { return Get(index); }

 private:
  std::recursive_mutex fLock;
  Integer fLockDepth = 0;  // Lock calls not yet undone, by the thread holding fLock
  std::vector<IPtr<IInterface>> fItems;
};

// ---------------------------------------------------------------------------------------
// Components

enum TComponentStateItem : Byte { csLoading, csDestroying, csDesigning };

// A small set of TComponentStateItem.
class TComponentState {
 public:
  constexpr TComponentState() = default;
  constexpr TComponentState(std::initializer_list<TComponentStateItem> items) {
    for (TComponentStateItem i : items) Include(i);
  }
  constexpr bool Contains(TComponentStateItem i) const { return (fBits >> i) & 1u; }
  constexpr void Include(TComponentStateItem i) { fBits = static_cast<Byte>(fBits | (1u << i)); }
  constexpr void Exclude(TComponentStateItem i) { fBits = static_cast<Byte>(fBits & ~(1u << i)); }
  constexpr bool Empty() const { return fBits == 0; }
  constexpr friend bool operator==(TComponentState, TComponentState) = default;

 private:
  Byte fBits = 0;
};

enum TOperation { opInsert, opRemove };

// A named object with an owner. The owner keeps a list of the components it owns and frees
// them (the last one first) when it is freed itself; an owned component freed earlier leaves
// its owner's list. Components that have an owner must therefore be allocated with new
// (NewComponent below does it), never on the stack or in another owner.
//
// Names are empty or identifiers (a Latin letter or '_', then Latin letters, digits, '_')
// and unique, without regard to case, among the components of one owner.
class OSTREL_API TComponent : public TObject {
  OSTREL_CLASS(TComponent, TObject)
 public:
  explicit TComponent(TComponent* owner);
  ~TComponent() override;

  TComponent* Owner() const noexcept { return fOwner; }
  const AnsiString& Name() const noexcept { return fName; }
  // Raises EComponentError "''%s'' is not a valid component name" or "A component named %s
  // already exists".
  virtual void SetName(std::string_view newName);
  Integer Tag() const noexcept { return fTag; }
  void SetTag(Integer tag) noexcept { fTag = tag; }

  Integer ComponentCount() const noexcept { return static_cast<Integer>(fComponents.size()); }
  // Raises EListError "List index (%d) out of bounds".
  TComponent* Components(Integer index) const;
  // The position in the owner's list; -1 without an owner.
  Integer ComponentIndex() const noexcept;
  // The owned component with the name, compared without regard to case; null when none (an
  // empty name finds nothing).
  TComponent* FindComponent(std::string_view name) const;

  TComponentState ComponentState() const noexcept { return fState; }
  void SetLoading(bool value);
  // Marks the component, and with inclSubComponents those it owns, as being designed.
  void SetDesigning(bool value, bool inclSubComponents = true);
  // Called when loading is over; clears csLoading. Overrides call the inherited one.
  virtual void Loaded();

  // Takes over a component (from its former owner, if any). Raises EComponentError when the
  // name is taken or when the component is this one or one of its owners.
  void InsertComponent(TComponent* component);
  // Releases a component owned by this one (nothing otherwise); the caller now owns it.
  void RemoveComponent(TComponent* component);
  // Frees all owned components, the last one first.
  void DestroyComponents();

  // Asks that component be told (Notification with opRemove) when this one is freed, whoever
  // owns either: how a component keeps a reference to one it does not own. The request
  // lapses when either of them is freed.
  void FreeNotification(TComponent* component);
  void RemoveFreeNotification(TComponent* component);

  void BeforeDestruction() override;

 protected:
  // Tells this component and, in turn, all it owns that a component is inserted into or
  // removed from this one. Overrides call the inherited one.
  virtual void Notification(TComponent* component, TOperation operation);
  virtual void ValidateRename(TComponent* component, std::string_view curName,
                              std::string_view newName) const;
  // Marks the component and those it owns as being destroyed.
  void Destroying() noexcept;

 private:
  void Attach(TComponent* component);
  void Detach(TComponent* component) noexcept;

  TComponent* fOwner = nullptr;
  AnsiString fName;
  std::vector<TComponent*> fComponents;
  std::vector<TComponent*> fFreeNotifies;  // both sides of a request list each other
  TComponentState fState;
  Integer fTag = 0;
};

// Creates a component owned by owner, which frees it: `auto* b = NewComponent<TButton>(form)`.
template <class T, class... Args>
T* NewComponent(TComponent& owner, Args&&... args) {
  return new T(&owner, std::forward<Args>(args)...);
}

// Whether the text is an identifier: a Latin letter or '_', then Latin letters, digits, '_'.
OSTREL_API bool IsValidIdent(std::string_view ident);

}  // namespace ostrel
