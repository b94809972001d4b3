// TkxObject: controller, links, aggregation and the counting rules; the helpers that pass
// objects through interfaces and variants; the class registry of scripting access.
#include <ostrel/core/Sysclasses.h>

#include <ostrel/rtl/Classes.h>
#include <ostrel/services/Sysserv.h>

#include <cstdint>
#include <mutex>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxObject)
OSTREL_DEFINE_CLASS(TkxInterfacedObject)

// ---- TkxObject ------------------------------------------------------------------------

TkxObject::TkxObject(bool owned) : fSelfOwned(owned) {}

TkxObject::~TkxObject() {
  fDestroying = true;
  FreeLinks();
  ReleaseController();
}

void TkxObject::BeforeDestruction() {
  if (fSelfOwned) TInterfacedObject::BeforeDestruction();
  fDestroying = true;
}

bool TkxObject::GetInterface(const TGUID& iid, void** obj) {
  // Three interfaces bring three IInterface copies; the object's identity is the one of
  // IObjectReference, so that every query for IInterface gives the same pointer.
  if (iid == IInterface::IID) {
    IInterface* self = AsIInterface();
    *obj = self;
    self->_AddRef();
    return true;
  }
  if (GetInterfaceEntry<IObjectReference, IContainedObject>(this, iid, obj)) return true;
  return TObject::GetInterface(iid, obj);
}

HRESULT OSTREL_STDCALL TkxObject::QueryInterface(const TGUID& iid, void** obj) {
  return QueryInterfaceEx(iid, 0, obj);
}

HRESULT TkxObject::QueryInterfaceEx(const TGUID& iid, Integer id, void** obj) {
  if (GetInterface(iid, obj)) return S_OK;
  return QueryByLinks(iid, id, obj) ? S_OK : E_NOINTERFACE;
}

bool TkxObject::QueryByLinks(const TGUID& iid, Integer id, void** obj) {
  *obj = nullptr;
  if (!fLinks) return false;
  // By index: a query may count the linked object up and down, never changes the list.
  for (std::size_t i = 0; i < fLinks->size(); ++i) {
    const TkxLink& link = (*fLinks)[i];
    if (link.ID != id) continue;
    // The contained object answers through its own QueryInterface, hence through its own
    // links under ID 0 as well.
    if (link.Obj->QueryInterface(iid, obj) == S_OK) return true;
  }
  *obj = nullptr;
  return false;
}

bool TkxObject::GetIntf(const TGUID& iid, Integer id, void** obj) {
  return QueryInterfaceEx(iid, id, obj) == S_OK;
}

Integer OSTREL_STDCALL TkxObject::_AddRef() {
  // While referenced, the object keeps its controller alive.
  IInterface* controller = fController ? fController->AsIInterface() : nullptr;
  if (controller != fControllerRef.Get()) fControllerRef = controller;
  return fRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

Integer OSTREL_STDCALL TkxObject::_Release() {
  Integer r = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (r != 0 || fDestroying) return r;
  if (fSelfOwned) {
    Free(this);
    return 0;
  }
  // Unreferenced but owned: the object lives on under its controller, which is no longer
  // kept alive on its behalf. Dropping that reference may free the controller and with it
  // this object, so nothing of this object is touched afterwards.
  IPtr<IInterface> controllerRef = std::move(fControllerRef);
  controllerRef.Reset();
  return 0;
}

TObject* OSTREL_STDCALL TkxObject::GetInstance() { return this; }

IPtr<IInterface> OSTREL_STDCALL TkxObject::GetController() {
  return IPtr<IInterface>(fController ? fController->AsIInterface() : nullptr);
}

TkxLinks& TkxObject::Links() {
  if (!fLinks) fLinks = std::make_unique<TkxLinks>();
  return *fLinks;
}

void TkxObject::FreeLinks() {
  if (!fLinks) return;
  // References that objects cut loose below held on this object; they are dropped at the
  // very end, when nothing of this object is used any more.
  std::vector<IPtr<IInterface>> dropped;
  while (fLinks && !fLinks->empty()) {
    TkxObject* obj = fLinks->front().Obj;
    if (obj->fSelfOwned && obj->RefCount() > 0) {
      // A self-owned object that is still referenced cannot be freed without leaving its
      // holders dangling; it is cut loose instead and lives on by its own count.
      fLinks->erase(fLinks->begin());
      obj->fController = nullptr;
      dropped.push_back(std::move(obj->fControllerRef));
      continue;
    }
    Free(obj);  // its destructor removes its own record
    if (fLinks && !fLinks->empty() && fLinks->front().Obj == obj) fLinks->erase(fLinks->begin());
  }
  fLinks.reset();
  dropped.clear();
}

void TkxObject::ReleaseController() {
  if (fController) {
    if (TkxLinks* links = fController->fLinks.get()) {
      for (std::size_t i = links->size(); i-- > 0;)
        if ((*links)[i].Obj == this) links->erase(links->begin() + static_cast<std::ptrdiff_t>(i));
    }
    fController = nullptr;
  }
  IPtr<IInterface> controllerRef = std::move(fControllerRef);
  controllerRef.Reset();
}

void OSTREL_STDCALL TkxObject::SetController(const IPtr<IInterface>& controller, bool owned,
                                             Integer id) {
  TkxObject* newController = nullptr;
  if (controller) {
    IPtr<IObjectReference> ref = controller.As<IObjectReference>();
    if (!ref) throw Exception("IObjectReference required");
    newController = dynamic_cast<TkxObject*>(ref->GetInstance());
    if (!newController) throw Exception("TkxObject required");
  }
  if (newController == fController) return;
  // A chain of controllers that comes back to this object would keep itself alive forever
  // and send the counting round in circles.
  for (TkxObject* c = newController; c; c = c->fController)
    if (c == this) throw Exception("SetController: an object cannot be its own controller");

  ReleaseController();
  fController = newController;
  fSelfOwned = !owned;
  if (newController) newController->Links().push_back(TkxLink{this, id});
  // Takes up the controller reference when the object is referenced. For a fresh object
  // that nobody references yet and that stays self-owned, this frees it at once.
  _AddRef();
  _Release();
}

// ---- objects through interfaces and variants ----------------------------------------

TObject* ObjRef(IInterface* intf, bool required) {
  if (!intf) return nullptr;
  IPtr<IObjectReference> ref;
  if (intf->QueryInterface(IObjectReference::IID, ref.ReleaseAndGetAddressOf()) == S_OK && ref)
    return ref->GetInstance();
  if (required) throw Exception("IObjectReference not implemented");
  return nullptr;
}

TObject* ObjRef(const Variant& value, bool required) {
  if (VarType(value) == varUnknown) return ObjRef(VarToIntf(value).Get(), required);
  // Objects also travel through variants as raw addresses. An address needs the full width
  // of a pointer, which on 64-bit systems is more than the classic 32-bit integer.
  if constexpr (sizeof(void*) > sizeof(Integer)) {
    Int64 address = VarToInt64(value);
    return reinterpret_cast<TObject*>(static_cast<std::intptr_t>(address));
  } else {
    Integer address = VarToInt(value);
    return reinterpret_cast<TObject*>(static_cast<std::intptr_t>(address));
  }
}

Variant ObjToVar(TObject* obj) {
  auto address = reinterpret_cast<std::intptr_t>(obj);
  if constexpr (sizeof(void*) > sizeof(Integer))
    return Variant(static_cast<Int64>(address));
  else
    return Variant(static_cast<Integer>(address));
}

void ObjIntf(TObject* obj, IPtr<IInterface>& intf) {
  intf = nullptr;
  if (!obj || !obj->GetInterface(IInterface::IID, intf.ReleaseAndGetAddressOf()) || !intf)
    BUG("ObjIntf: IUnknown not implemented");
}

void ObjIntf(const Variant& value, IPtr<IInterface>& intf) {
  intf = nullptr;
  ObjIntf(ObjRef(value, true), intf);
}

void SetControllerIntf(const IPtr<IInterface>& obj, const IPtr<IInterface>& controller, bool owned,
                       Integer id) {
  IPtr<IContainedObject> contained = obj.As<IContainedObject>();
  if (!contained) throw Exception("IContainedObject required");
  contained->SetController(controller, owned, id);
}

// ---- class registry -----------------------------------------------------------------

namespace {
struct RTTIRegistry {
  std::mutex Lock;
  std::vector<TClass> Classes;
};

RTTIRegistry& Registry() {
  static RTTIRegistry registry;
  return registry;
}
}  // namespace

void RegisterRTTI(TClass cls) {
  RTTIRegistry& r = Registry();
  std::lock_guard<std::mutex> guard(r.Lock);
  r.Classes.push_back(cls);
}

std::vector<TClass> GetRegisteredRTTIClasses() {
  RTTIRegistry& r = Registry();
  std::lock_guard<std::mutex> guard(r.Lock);
  return r.Classes;
}

// ---- properties and components ---------------------------------------------------------

void CheckPropReadOnly(TObject* obj, std::string_view propName, bool readOnly) {
  if (!readOnly) return;
  std::string_view className = obj ? std::string_view(obj->ClassName()) : std::string_view();
  throw Exception(Format(_SErrPropIsReadOnly, className, propName));
}

TComponent* FindComponentEx(TComponent* root, std::string_view path) {
  if (!root) return nullptr;
  static constexpr TCharSet kDot{'.'};
  AnsiString text(path);
  AnsiString segment;
  int pos = 1;
  TComponent* current = root;
  bool any = false;
  while (ExtractStr(text, pos, kDot, segment)) {
    any = true;
    current = current->FindComponent(segment);
    if (!current) return nullptr;
  }
  return any ? current : nullptr;
}

}  // namespace ostrel
