#include "PeerModule.h"

namespace ostrel::peer {
namespace {

class TPeerObject : public TkxObject, public IPeerProbe {
  OSTREL_CLASS(TPeerObject, TkxObject)
 public:
  explicit TPeerObject(Integer answer) : TkxObject(true), fAnswer(answer) {}
  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (GetInterfaceEntry<IPeerProbe>(this, iid, obj)) return true;
    return TkxObject::GetInterface(iid, obj);
  }
  Integer OSTREL_STDCALL Answer() override { return fAnswer; }

 private:
  Integer fAnswer;
};
OSTREL_DEFINE_CLASS(TPeerObject)

}  // namespace

IPtr<IInterface> NewPeerObject(Integer answer) {
  return IPtr<IInterface>(static_cast<IPeerProbe*>(new TPeerObject(answer)));
}

TClass PeerObjectClass() { return TPeerObject::StaticClass(); }

Integer PeerDumpCount(const IPtr<IInterface>& obj, bool& isDump) {
  TObject* self = ObjRef(obj, false);
  isDump = self && self->InheritsFrom(TkxDump::StaticClass());
  IPtr<IDump> dump = obj.As<IDump>();
  return dump ? dump->get_Count() : -1;
}

}  // namespace ostrel::peer
