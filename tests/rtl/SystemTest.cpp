#include <ostrel/rtl/System.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

TEST(GuidText, RoundTripsInUpperCase) {
  const TGUID g = StringToGUID("{f346b0a8-c5a8-473a-a9c6-c9784a57ff2c}");
  EXPECT_TRUE(g.D1 == 0xF346B0A8u && g.D2 == 0xC5A8u && g.D4[0] == 0xA9u && g.D4[7] == 0x2Cu);
  EXPECT_EQ(GUIDToString(g), "{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}");
  EXPECT_TRUE(g == TGUID::From("{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}"));
}

TEST(GuidText, MalformedTextRaisesConvertErrorQuotingIt) {
  for (const char* text : {"", "F346B0A8-C5A8-473A-A9C6-C9784A57FF2C",  // no braces
                           "{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C",     // no closing brace
                           "{F346B0A8C-5A8-473A-A9C6-C9784A57FF2C}",    // dash misplaced
                           "{G346B0A8-C5A8-473A-A9C6-C9784A57FF2C}",    // not hexadecimal
                           "{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}0",   // trailing text
                           "{F346B0A8-C5A8-473A-A9C6-C9784A57FF2 }"})
    EXPECT_EQ(testutil::MessageOf<EConvertError>([&] { StringToGUID(text); }),
              "'" + std::string(text) + "' is not a valid GUID value");
}

struct ITestIntf : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1D4E20-0B7C-4F0E-9D53-2C3B8E7F1A01}");
  virtual Integer OSTREL_STDCALL Value() = 0;
};
struct IOtherIntf : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1D4E20-0B7C-4F0E-9D53-2C3B8E7F1A02}");
};

class TTestObject : public testutil::TIntfObject<ITestIntf> {
  OSTREL_CLASS(TTestObject, TInterfacedObject)
 public:
  explicit TTestObject(int* destroyed) : fDestroyed(destroyed) {}
  ~TTestObject() override { ++*fDestroyed; }
  Integer OSTREL_STDCALL Value() override { return 42; }

 private:
  int* fDestroyed;
};
OSTREL_DEFINE_CLASS(TTestObject)

TEST(InterfacePointer, CountsCopiesMovesAndQueries) {
  int destroyed = 0;
  auto* obj = new TTestObject(&destroyed);
  {
    IPtr<ITestIntf> a(obj);
    EXPECT_EQ(obj->RefCount(), 1);
    IPtr<ITestIntf> b = a;
    EXPECT_EQ(obj->RefCount(), 2);
    IPtr<ITestIntf> c = std::move(b);
    EXPECT_EQ(obj->RefCount(), 2);
    EXPECT_FALSE(b);
    IPtr<IInterface> unknown = c.As<IInterface>();
    EXPECT_EQ(obj->RefCount(), 3);
    IPtr<ITestIntf> back = unknown.As<ITestIntf>();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->Value(), 42);
    EXPECT_EQ(obj->RefCount(), 4);
    EXPECT_FALSE(c.As<IOtherIntf>());
    EXPECT_EQ(obj->RefCount(), 4);
    a = back;  // self-same object: the count must not drop to zero on the way
    c.Reset();
    EXPECT_EQ(obj->RefCount(), 3);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(InterfacePointer, SupportsAnswersForPointersAndObjects) {
  int destroyed = 0;
  IPtr<ITestIntf> intf(new TTestObject(&destroyed));
  EXPECT_TRUE(Supports(intf, IInterface::IID));
  EXPECT_FALSE(Supports(intf, IOtherIntf::IID));
  IPtr<IOtherIntf> other;
  EXPECT_FALSE(Supports(intf, other));
  IPtr<ITestIntf> same;
  EXPECT_TRUE(Supports(intf.As<IInterface>(), same));
  EXPECT_EQ(same, intf);
  TObject plain;
  EXPECT_FALSE(Supports(&plain, IInterface::IID));
  EXPECT_FALSE(Supports(static_cast<TObject*>(nullptr), IInterface::IID));
}

TEST(InterfacedObject, FreeRefusesWhileReferencedAndWorksAfterwards) {
  int destroyed = 0;
  auto* obj = new TTestObject(&destroyed);
  IPtr<ITestIntf> ref(obj);
  EXPECT_THROW(TObject::Free(obj), EInvalidPointer);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(ref->Value(), 42);
  ref = nullptr;
  EXPECT_EQ(destroyed, 1);
  auto* unreferenced = new TTestObject(&destroyed);
  TObject::Free(unreferenced);
  EXPECT_EQ(destroyed, 2);
  TObject::Free(nullptr);
}

TEST(ClassReference, InheritanceAndNames) {
  int destroyed = 0;
  TTestObject obj(&destroyed);  // never referenced, so a plain lifetime is fine
  EXPECT_STREQ(obj.ClassName(), "TTestObject");
  EXPECT_TRUE(obj.InheritsFrom(TInterfacedObject::StaticClass()));
  EXPECT_TRUE(obj.InheritsFrom(TObject::StaticClass()));
  EXPECT_FALSE(TObject::ClassInheritsFrom(TObject::StaticClass(), TTestObject::StaticClass()));
}

}  // namespace
}  // namespace ostrel
