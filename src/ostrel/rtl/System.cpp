#include <ostrel/rtl/System.h>

#include <ostrel/rtl/Format.h>

namespace ostrel {

OSTREL_DEFINE_CLASS(TInterfacedObject)

AnsiString GUIDToString(const TGUID& g) {
  return Format("{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}", g.D1, g.D2, g.D3, g.D4[0],
                g.D4[1], g.D4[2], g.D4[3], g.D4[4], g.D4[5], g.D4[6], g.D4[7]);
}

TGUID StringToGUID(std::string_view text) {
  TGUID g;
  if (!TGUID::TryParse(text, g)) throw EConvertError(Format(SysConst::SInvalidGUID, text));
  return g;
}

// ---- TObject --------------------------------------------------------------------------

TObject::~TObject() = default;

TClass TObject::StaticClass() noexcept {
  static const TClassInfo info{"TObject", nullptr};
  return &info;
}

bool TObject::ClassInheritsFrom(TClass cls, TClass ancestor) noexcept {
  for (; cls; cls = cls->Parent)
    if (cls == ancestor) return true;
  return false;
}

bool TObject::InheritsFrom(TClass cls) const noexcept {
  return ClassInheritsFrom(ClassType(), cls);
}

bool TObject::GetInterface(const TGUID&, void** obj) {
  *obj = nullptr;
  return false;
}

void TObject::Free(TObject* obj) {
  if (!obj) return;
  obj->BeforeDestruction();
  delete obj;
}

// ---- TInterfacedObject ----------------------------------------------------------------

TInterfacedObject::~TInterfacedObject() = default;

HRESULT OSTREL_STDCALL TInterfacedObject::QueryInterface(const TGUID& iid, void** obj) {
  return GetInterface(iid, obj) ? S_OK : E_NOINTERFACE;
}

Integer OSTREL_STDCALL TInterfacedObject::_AddRef() {
  return fRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

Integer OSTREL_STDCALL TInterfacedObject::_Release() {
  Integer r = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (r == 0) Free(this);
  return r;
}

bool TInterfacedObject::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IInterface>(this, iid, obj)) return true;
  return TObject::GetInterface(iid, obj);
}

void TInterfacedObject::BeforeDestruction() {
  if (RefCount() != 0) throw EInvalidPointer(SysConst::SInvalidPointer);
}

}  // namespace ostrel
