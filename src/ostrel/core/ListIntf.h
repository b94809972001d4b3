// The interfaces of the variable list, the ID list and the key data.
#pragma once

#include <ostrel/core/Sysintf.h>

#include <string_view>

namespace ostrel {

// A named variable. The name is fixed when the item is made; the value is copied in and out.
struct IkxVarItem : IInterface {
  static constexpr TGUID IID = TGUID::From("{A4EE4102-5E42-44F1-911D-F5197D31D8F4}");
  virtual AnsiString OSTREL_STDCALL get_Name() = 0;
  virtual Variant OSTREL_STDCALL get_Value() = 0;
  virtual void OSTREL_STDCALL set_Value(const Variant& value) = 0;

 protected:
  ~IkxVarItem() = default;
};

// A list of variable items, usable wherever a dump is expected. Items may be shared between
// lists: a value set through one list is seen through every list that holds the item.
struct IkxVarList : IDump {
  static constexpr TGUID IID = TGUID::From("{2C0A2C67-683E-48AE-ACB0-ACE0080024F1}");
  virtual IPtr<IkxVarItem> OSTREL_STDCALL get_Item(Integer index) = 0;
  // Appends the item and returns its index.
  virtual Integer OSTREL_STDCALL Add(const IPtr<IkxVarItem>& item) = 0;
  // Removes the item (found by identity) and returns the index it had, -1 when absent.
  virtual Integer OSTREL_STDCALL Remove(const IPtr<IkxVarItem>& item) = 0;
  // Delete (index) once more, in a slot of its own after Remove, where modules built against
  // the interface's table call it; it deletes by index as the dump's Delete does. It is
  // declared const only so that C++ gives it that slot instead of taking it for an override
  // of IDump::Delete; it changes the list all the same. Calls from C++ reach either.
  using IDump::Delete;
  virtual void OSTREL_STDCALL Delete(Integer index) const = 0;

 protected:
  ~IkxVarList() = default;
};

// Distinct 32-bit identifiers in insertion order (until sorted).
struct IkxIDList : IInterface {
  static constexpr TGUID IID = TGUID::From("{56ED8580-89D8-4007-A9F2-CA74C4412E36}");
  virtual Integer OSTREL_STDCALL get_ID(Integer index) = 0;
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  // Appends an ID that is not present yet; returns its index either way.
  virtual Integer OSTREL_STDCALL Add(Integer id) = 0;
  // -1 when absent.
  virtual Integer OSTREL_STDCALL IndexOf(Integer id) = 0;
  virtual bool OSTREL_STDCALL Find(Integer id, Integer& index) = 0;
  // Whether the ID was present.
  virtual bool OSTREL_STDCALL Remove(Integer id) = 0;
  virtual void OSTREL_STDCALL Delete(Integer index) = 0;
  virtual void OSTREL_STDCALL Clear() = 0;
  // Ascending by value.
  virtual void OSTREL_STDCALL Sort() = 0;
  virtual bool OSTREL_STDCALL IsSorted() = 0;
  // Equal counts and, with ordered, equal IDs position by position; without, every ID of
  // this list in the other (set equality, since neither list holds duplicates).
  virtual bool OSTREL_STDCALL IsEqual(const IPtr<IkxIDList>& other, bool ordered) = 0;
  // The IDs in decimal joined with the separator.
  virtual AnsiString OSTREL_STDCALL GetAsString(char separator) = 0;
  // Adds the IDs of a text split at the separator (a merge: the list is not cleared first).
  virtual void OSTREL_STDCALL SetAsString(std::string_view text, char separator) = 0;

 protected:
  ~IkxIDList() = default;
};

// The key data interface: a variant index of keys with a variant value per key.
struct IkxKeyData : IInterface {
  static constexpr TGUID IID = TGUID::From("{951A8087-DD74-4186-B44F-590A58C24F3F}");
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  virtual Variant OSTREL_STDCALL get_Key(Integer index) = 0;
  virtual Variant OSTREL_STDCALL get_Data(Integer index) = 0;
  virtual void OSTREL_STDCALL set_Data(Integer index, const Variant& value) = 0;
  // The data of the key (the first of equal keys); empty when the key is absent.
  virtual Variant OSTREL_STDCALL get_KeyData(const Variant& key) = 0;
  // Adds the key when it is absent, else sets the data of the first one found.
  virtual void OSTREL_STDCALL set_KeyData(const Variant& key, const Variant& value) = 0;
  virtual Integer OSTREL_STDCALL Add(const Variant& key, const Variant& value) = 0;
  virtual bool OSTREL_STDCALL FindKey(const Variant& key, Integer& index) = 0;
  // Removes every key equal to the given one.
  virtual void OSTREL_STDCALL Remove(const Variant& key) = 0;
  virtual void OSTREL_STDCALL Delete(Integer index) = 0;
  virtual void OSTREL_STDCALL Clear() = 0;

 protected:
  ~IkxKeyData() = default;
};

}  // namespace ostrel
