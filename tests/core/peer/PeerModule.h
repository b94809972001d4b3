// A second module built apart from the library and from the test program (a DLL of its own
// on Windows, a shared object elsewhere), so that objects, interface tables and class
// records are seen crossing between separately built modules, as an application's modules do.
#pragma once

#include <ostrel/core/Sysclasses.h>

#if defined(_WIN32)
#if defined(OSTREL_PEER_BUILDING)
#define OSTREL_PEER_API __declspec(dllexport)
#else
#define OSTREL_PEER_API __declspec(dllimport)
#endif
#else
#define OSTREL_PEER_API __attribute__((visibility("default")))
#endif

namespace ostrel::peer {

// Offered by the peer's own objects; Answer gives the number the object was made with.
struct IPeerProbe : IInterface {
  static constexpr TGUID IID = TGUID::From("{3E9F2C41-7D55-4B8A-A0C2-5B1D6E7F8A90}");
  virtual Integer OSTREL_STDCALL Answer() = 0;
};

// A TkxObject made in the peer, offering IPeerProbe and, through the library, IObjectReference.
OSTREL_PEER_API IPtr<IInterface> NewPeerObject(Integer answer);
// The peer's class record for its object.
OSTREL_PEER_API TClass PeerObjectClass();
// Checks, from inside the peer, an object made elsewhere: its IDump answers (the entry count
// is returned, -1 when the interface is missing), and it is a TkxDump by the peer's view of
// the class record.
OSTREL_PEER_API Integer PeerDumpCount(const IPtr<IInterface>& obj, bool& isDump);

}  // namespace ostrel::peer
