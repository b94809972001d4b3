// Key indexes: variant-valued keys each carrying a piece of data, kept in insertion order
// (linear search) or sorted (binary search), with a policy for duplicate keys; and the key
// data, the same index behind a reference-counted interface.
#pragma once

#include <ostrel/core/ListIntf.h>
#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/System.h>
#include <ostrel/rtl/Variants.h>

#include <cstddef>
#include <vector>

namespace ostrel {

inline constexpr auto _SErrKeyValueDuplicate =
    Cp1251(u8"TkxKeyIndex: Дублирование значения ключа (%s).");

// One key of an index: the key and its data. Records are allocated by the index, one per
// key, and keep their address for as long as the key stays in the index. A key never
// changes in its record (the order of the index rests on it): to change a key, delete it
// and add the new one.
struct TkxKeyRec {
  const Variant Key;
  void* Data = nullptr;
};

// The records of an index in index order. Positions are plain indexes, as in a list, but
// the records sit in blocks of bounded size with a table of block starts, so inserting or
// deleting at any position moves at most one block's pointers and one start per block,
// instead of everything behind the position. Reading consecutive positions costs a compare
// or two; any other position a binary search over the block starts.
//
// Beside each record the list keeps the key's value as a 64-bit integer, when the key is an
// integer, so that searches over integer keys need not visit the records.
class OSTREL_API TkxKeyRecList {
 public:
  // A record and, for an integer key, the key's value.
  struct Slot {
    TkxKeyRec* Rec;
    Int64 Ord;  // the key's value when it is an integer; unused otherwise
  };

  TkxKeyRecList() = default;
  TkxKeyRecList(const TkxKeyRecList&) = delete;
  TkxKeyRecList& operator=(const TkxKeyRecList&) = delete;

  Integer Count() const noexcept { return fCount; }
  // 0 <= index < Count; not checked.
  const Slot& At(Integer index) const {
    std::size_t b = fHint;
    if (b >= fBlocks.size() || index < fStarts[b] ||
        index - fStarts[b] >= static_cast<Integer>(fBlocks[b].size()))
      b = Locate(index);
    return fBlocks[b][static_cast<std::size_t>(index - fStarts[b])];
  }
  // 0 <= index <= Count; not checked.
  void Insert(Integer index, Slot slot);
  // 0 <= index < Count; not checked. Returns the record taken out.
  TkxKeyRec* Erase(Integer index);
  // Forgets every record (the records themselves are the caller's).
  void Clear() noexcept;

 private:
  std::size_t Locate(Integer index) const;
  void Split(std::size_t b);
  void MergeAround(std::size_t b);

  std::vector<std::vector<Slot>> fBlocks;
  std::vector<Integer> fStarts;  // position of each block's first record
  Integer fCount = 0;
  mutable std::size_t fHint = 0;  // the block used last
};

// An index of keys with an untyped pointer per key. Keys compare with CompareVar (strings
// without regard to case when ignoreCase is set). A sorted index finds keys and insert
// positions by binary search; an unsorted one keeps insertion order and scans.
//
// Duplicates: dupIgnore returns the existing key's position and adds nothing, dupError
// raises _SErrKeyValueDuplicate, dupAccept keeps them (a sorted index inserts a new key in
// front of the keys equal to it; an unsorted one appends without searching).
//
// Index arguments out of range raise EListError. An index belongs to one thread at a time.
class OSTREL_API TkxKeyIndex : public TObject {
  OSTREL_CLASS(TkxKeyIndex, TObject)
 public:
  TkxKeyIndex(TDuplicates duplicates, bool ignoreCase, bool sorted);
  ~TkxKeyIndex() override;

  Integer get_Count() const noexcept { return fRecs.Count(); }
  TkxKeyRec* get_Rec(Integer index) const;
  Variant get_KeyValue(Integer index) const;
  void* get_KeyData(Integer index) const;
  void set_KeyData(Integer index, void* data);

  // The position of the key (see the duplicates policy above).
  Integer AddKey(const Variant& key, void* data);
  // True when the key is present. A sorted index gives the position of the key found (the
  // first of equal keys under dupAccept) or the position where it would be inserted; an
  // unsorted one the first equal key, or Count when there is none.
  bool FindKey(const Variant& key, Integer& index) const;
  bool KeyExist(const Variant& key) const;
  // Deletes every key equal to the given one; true when there was one.
  bool RemoveKey(const Variant& key);
  void DeleteKey(Integer index);
  void Clear();

  TDuplicates Duplicates() const noexcept { return fDuplicates; }
  bool IgnoreCase() const noexcept { return fIgnoreCase; }
  bool Sorted() const noexcept { return fSorted; }

 protected:
  // A new record holding a copy of the key.
  virtual TkxKeyRec* NewKeyRec(const Variant& key);
  // Releases the record and what it owns.
  virtual void FreeKeyRec(TkxKeyRec* rec) noexcept;
  // Stores the data in the record.
  virtual void SetKeyData(TkxKeyRec* rec, void* data);

  int CompareKeys(const Variant& recKey, const Variant& key) const;
  void CheckIndex(Integer index) const;

 private:
  TkxKeyRecList fRecs;
  Integer fOtherKeys = 0;  // keys that are not integers
  TDuplicates fDuplicates;
  bool fIgnoreCase;
  bool fSorted;
};

// A key index whose data is a variant value per key, owned by the record.
class OSTREL_API TkxKeyVarIndex : public TkxKeyIndex {
  OSTREL_CLASS(TkxKeyVarIndex, TkxKeyIndex)
 public:
  using TkxKeyIndex::TkxKeyIndex;
  ~TkxKeyVarIndex() override;

  Integer AddKey(const Variant& key, const Variant& data);
  Variant get_KeyData(Integer index) const;
  void set_KeyData(Integer index, const Variant& value);

 protected:
  TkxKeyRec* NewKeyRec(const Variant& key) override;
  void FreeKeyRec(TkxKeyRec* rec) noexcept override;
  // data points to a Variant, which is copied into the record's cell (and not changed).
  void SetKeyData(TkxKeyRec* rec, void* data) override;
};

// The key data handed out as IkxKeyData: a key index whose records carry a variant each.
class OSTREL_API TkxKeyData : public TInterfacedObject, public IkxKeyData {
  OSTREL_CLASS(TkxKeyData, TInterfacedObject)
 public:
  TkxKeyData(TDuplicates duplicates, bool ignoreCase, bool sorted);
  ~TkxKeyData() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  Integer OSTREL_STDCALL get_Count() override;
  Variant OSTREL_STDCALL get_Key(Integer index) override;
  Variant OSTREL_STDCALL get_Data(Integer index) override;
  void OSTREL_STDCALL set_Data(Integer index, const Variant& value) override;
  Variant OSTREL_STDCALL get_KeyData(const Variant& key) override;
  void OSTREL_STDCALL set_KeyData(const Variant& key, const Variant& value) override;
  Integer OSTREL_STDCALL Add(const Variant& key, const Variant& value) override;
  bool OSTREL_STDCALL FindKey(const Variant& key, Integer& index) override;
  void OSTREL_STDCALL Remove(const Variant& key) override;
  void OSTREL_STDCALL Delete(Integer index) override;
  void OSTREL_STDCALL Clear() override;

  TkxKeyVarIndex& Index() noexcept { return fIndex; }

 private:
  TkxKeyVarIndex fIndex;
};

// A new key data with the given settings.
OSTREL_API void GetKeyDataIntf(IPtr<IkxKeyData>& keyData, TDuplicates duplicates, bool ignoreCase,
                               bool sorted);
OSTREL_API IPtr<IkxKeyData> GetKeyDataIntf(TDuplicates duplicates, bool ignoreCase, bool sorted);

}  // namespace ostrel
