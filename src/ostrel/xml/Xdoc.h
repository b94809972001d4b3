// The XML item tree: TXItem (one element, a plain owned object) and the interfaces through
// which the rest of the system reaches a tree, IXItem for an item and IXDoc for the document
// that owns it. Wrappers forward their reference counts to the document, so any IXItem keeps
// its whole document alive.
//
// Reading and writing XML text, the value conversions and LoadXData/SaveXData are in
// Xmlutils.h; path queries and keyed indexes are in Xdata.h.
#pragma once

#include <ostrel/core/Sysintf.h>
#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Strings.h>

#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ostrel {

// Resource strings of the item tree.
inline constexpr auto _SErrXItemDeleted = Cp1251(u8"Обращение к удаленному элементу");
inline constexpr auto _SErrXItemNotCDATA =
    Cp1251(u8"Значение узла не является симвлольными данными");
inline constexpr auto _SErrXAttrFormat = Cp1251(u8"Ошибка в формате строки атрибутов \"%s\"");

struct IXDoc;
class TXItem;
class TXReader;
namespace detail {
struct TXTextBlock;
}
class TXItemIntf;

// One element of an in-memory XML tree. Operations are in slot order; every one of them
// raises _SErrXItemDeleted once the element behind the interface has been destroyed.
struct IXItem : IInterface {
  static constexpr TGUID IID = TGUID::From("{9FDBFA1D-31BB-4DBC-991F-839C2184B32C}");
  // The document of the tree (null when the tree's root is not a document's).
  virtual IPtr<IXDoc> OSTREL_STDCALL get_Doc() = 0;
  // Null for a root.
  virtual IPtr<IXItem> OSTREL_STDCALL get_Parent() = 0;
  // The position in the parent's children; -1 for a root.
  virtual Integer OSTREL_STDCALL get_Index() = 0;
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  // EListError "List index (%d) out of bounds" outside 0 .. Count - 1.
  virtual IPtr<IXItem> OSTREL_STDCALL get_Items(Integer index) = 0;
  virtual AnsiString OSTREL_STDCALL get_Name() = 0;
  virtual void OSTREL_STDCALL set_Name(std::string_view name) = 0;
  // Null when the element has no text.
  virtual Variant OSTREL_STDCALL get_Value() = 0;
  // A string wrapped in "<![CDATA[" ... "]]>" is unwrapped and marks the value as CDATA.
  virtual void OSTREL_STDCALL set_Value(const Variant& value) = 0;
  virtual bool OSTREL_STDCALL get_IsCDATA() = 0;
  // _SErrXItemNotCDATA when the value is not character data.
  virtual AnsiString OSTREL_STDCALL get_CDATA() = 0;
  virtual void OSTREL_STDCALL set_CDATA(std::string_view text) = 0;
  // The decoded attribute value as a string; Null when absent. Names ignore case.
  virtual Variant OSTREL_STDCALL get_Attr(std::string_view name) = 0;
  // Replaces the attribute in its place; Null removes it; a new one is appended.
  virtual void OSTREL_STDCALL set_Attr(std::string_view name, const Variant& value) = 0;
  // The element and its subtree as XML text, without the declaration line.
  virtual AnsiString OSTREL_STDCALL get_XML() = 0;
  // Clears the element, then reads the text into it.
  virtual void OSTREL_STDCALL set_XML(std::string_view text) = 0;
  // Frees the children (name, value and attributes stay).
  virtual void OSTREL_STDCALL Clear() = 0;
  // Frees the child at index.
  virtual void OSTREL_STDCALL Delete(Integer index) = 0;
  // A new child of that name at index / at the end.
  virtual IPtr<IXItem> OSTREL_STDCALL Insert(Integer index, std::string_view name) = 0;
  virtual IPtr<IXItem> OSTREL_STDCALL Add(std::string_view name) = 0;
  // The first child of that name (letter case ignored); the out reference is cleared first.
  virtual bool OSTREL_STDCALL FindItem(std::string_view name, IPtr<IXItem>& item) = 0;
  // A new dump of the decoded attributes in their order; true when there is at least one.
  virtual bool OSTREL_STDCALL GetAttrList(IPtr<IDump>& list) = 0;
  // Reads one element from the stream into this one / writes this one (no declaration).
  virtual void OSTREL_STDCALL LoadFromStream(TStream& stream) = 0;
  virtual void OSTREL_STDCALL SaveToStream(TStream& stream) = 0;

 protected:
  ~IXItem() = default;
};

// A document: the owner of one tree.
struct IXDoc : IInterface {
  static constexpr TGUID IID = TGUID::From("{894C6481-1981-43CD-AE55-D1CA9DBE70F1}");
  virtual IPtr<IXItem> OSTREL_STDCALL get_Root() = 0;
  virtual AnsiString OSTREL_STDCALL get_FileName() = 0;
  virtual void OSTREL_STDCALL set_FileName(std::string_view fileName) = 0;
  // The whole document as text, with the declaration line.
  virtual AnsiString OSTREL_STDCALL get_XML() = 0;
  virtual void OSTREL_STDCALL SaveToStream(TStream& stream, bool withHeader) = 0;
  // To the given file, or to FileName when the name is empty. The text goes to a temporary
  // file beside the target, which replaces the target only when all of it was written.
  virtual void OSTREL_STDCALL SaveToFile(std::string_view fileName, bool withHeader) = 0;

 protected:
  ~IXDoc() = default;
};

// One element: tag name, text value, attribute text and ordered children. A parent owns its
// children; an item is listed once in its parent. Text between child elements is a child
// named "#text". Not thread-safe: a tree belongs to one thread at a time.
//
// Attributes are kept as the text of the start tag (AttrText), values still encoded; every
// access scans that text, and a change rewrites one `name="value"` span in its place.
//
// Freeing, copying and writing a tree never recurse, so trees of any depth are safe.
class OSTREL_API TXItem : public TObject {
  OSTREL_CLASS(TXItem, TObject)
 public:
  // An empty item (Value Null) that cannot hand out interfaces until it is put under a root
  // that can.
  TXItem();
  // A root item whose wrapper is made at once under the controller (held without a
  // reference); a document makes its root so.
  explicit TXItem(IInterface* controller);
  // Frees the children, leaves the parent, detaches the wrapper.
  ~TXItem() override;

  // Items come from a pool of 64 KiB slabs shared by all threads (under a lock): a tree is
  // many small objects made and freed together, which the general heap serves slowly.
  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size) noexcept;

  // Clear, then a deep copy of the source's name, attributes, value, CDATA flag, user word
  // and children (not of its wrapper). A null source only clears.
  void Assign(const TXItem* source);
  // Frees the children; name, value and attributes stay.
  void Clear();
  // Takes the item out of the children (it becomes a root). BUG "TXItem.RemoveItem: invalid
  // item" when it is not a child.
  void RemoveItem(TXItem* item);
  // Moves the item here at index (leaving its former parent); returns it. EListError when
  // index is outside 0 .. Count.
  TXItem* InsertItem(Integer index, TXItem* item);
  TXItem* Insert(Integer index);
  TXItem* AddItem(TXItem* item);
  TXItem* Add();
  // The first child of that name, letter case ignored (Cyrillic too); -1 / false when none.
  Integer IndexOf(std::string_view name) const;
  bool FindItem(std::string_view name, TXItem*& item) const;

  TXItem* Root();
  TXItem* get_Parent() const noexcept { return fParent; }
  // -1 without a parent.
  Integer get_Index() const;
  Integer get_Count() const noexcept { return static_cast<Integer>(fItems.size()); }
  // EListError outside 0 .. Count - 1.
  TXItem* get_Items(Integer index) const;

  const AnsiString& get_Name() const noexcept { return fName; }
  void set_Name(std::string_view name);
  // Takes over a string given as an rvalue (the reader's way).
  template <class S, std::enable_if_t<std::is_same_v<S, AnsiString>, int> = 0>
  void set_Name(S&& name) noexcept {
    fName = std::move(name);
  }
  // A value read from text is made a variant on first use (reading it thus changes the
  // item, as any use of a tree from one thread at a time may).
  const Variant& get_Value() const {
    if (fValueSize != 0) MakeValue();
    return fValue;
  }
  // IsCDATA false; an 8-bit string wrapped in "<![CDATA[" ... "]]>" (markers compared
  // ignoring case) is unwrapped and sets IsCDATA.
  void set_Value(const Variant& value);
  void set_Value(Variant&& value);
  bool get_IsCDATA() const noexcept { return fIsCDATA; }
  AnsiString get_CDATA() const;
  void set_CDATA(std::string_view text);
  // Whether the name is "#text" exactly (letter case counts here).
  bool get_IsText() const noexcept { return fName == "#text"; }
  // "<Name AttrText>", the attribute text trimmed, the blank only when there is any.
  AnsiString TagXML() const;

  // The attribute text as read: everything between the name and ">" or "/>". The view
  // lasts until the text is changed or the item goes.
  std::string_view get_AttrText() const noexcept { return {fText, fAttrSize}; }
  void set_AttrText(std::string_view text);
  // Attribute access raises _SErrXAttrFormat (with the whole attribute text) when the text
  // is malformed: attributes are name="value", double quotes only.
  Variant get_Attr(std::string_view name) const;
  void set_Attr(std::string_view name, const Variant& value);
  // The next attribute at or after pos (1-based; start with 1): its name, the span of
  // `name="value"` (start, len) and the still encoded value. False at the end.
  bool ExtractAttr(Integer& pos, AnsiString& name, Integer& start, Integer& len,
                   AnsiString& value) const;
  bool FindAttr(std::string_view name, AnsiString& value, Integer& start, Integer& len) const;
  // The attribute scanner over any text: when prefix is not empty every name must be
  // preceded by it (path filters use "@"). Raises _SErrXAttrFormat with the whole text.
  static bool ScanAttr(std::string_view text, Integer& pos, std::string_view prefix,
                       AnsiString& name, Integer& start, Integer& len, AnsiString& value);
  bool GetAttrList(IPtr<IDump>& list) const;
  // Adds, for each child whose attribute attrName is not empty, that value with the child
  // as its object. Recursively: each child's own subtree right after the child.
  void BuildIdx(std::string_view attrName, bool recursive, TStringList& list);

  // The user word: copied by Assign, otherwise not looked at.
  Integer get_Tag() const noexcept { return fTag; }
  void set_Tag(Integer tag) noexcept { fTag = tag; }

  // The item's interface, made on first use (always the same one afterwards). BUG
  // "TXItem.Intf: Controller = nil" when the root has no wrapper.
  IPtr<IXItem> get_Intf();
  // The wrapper when one has been made.
  TXItemIntf* Intf() const noexcept { return fIntf; }

 private:
  friend class TXItemIntf;
  // Moves the wrappers of a subtree that leaves its tree: unused ones go, used ones are
  // detached, so none forwards its count to a root it no longer belongs to.
  void DropWrappers();

  friend class TXReader;
  friend class TXWriter;
  // The texts: the attribute text, followed by the value's text while no variant has been
  // made of it. They are a copy of the item's own, or a piece of a text block that the reader
  // filled for many items at once (then fBlock counts this item among its users). The items
  // using one block are always of one tree; an item that leaves its tree takes a copy.
  std::string_view ValueText() const noexcept { return {fText + fAttrSize, fValueSize}; }
  void MakeValue() const;
  // Own copies of the attribute text and of the value's text (empty for none: a value given
  // as a variant stays).
  void SetTexts(std::string_view attrText, std::string_view valueText);
  void SetBlockTexts(detail::TXTextBlock* block, const char* text, Cardinal attrSize,
                     Cardinal valueSize) noexcept;
  void ReleaseTexts() noexcept;
  // Gives every item of the subtree whose texts lie in a block copies of its own.
  void OwnTexts();
  // Takes a child out of the list without the checks and copies of RemoveItem.
  void Unlink(TXItem* item) noexcept;
  // Memory for count items taken at once (all or none), and given back at once; an item made
  // in such a block with placement new is freed by delete as any other.
  static void TakeBlocks(void** blocks, int count);
  static void GiveBlocks(void* const* blocks, int count) noexcept;

  AnsiString fName;
  mutable Variant fValue = Variant::Null();
  const char* fText = nullptr;
  detail::TXTextBlock* fBlock = nullptr;
  TXItem* fParent = nullptr;
  std::vector<TXItem*> fItems;
  TXItemIntf* fIntf = nullptr;
  Cardinal fAttrSize = 0;
  mutable Cardinal fValueSize = 0;  // not 0: the value is the text after the attribute text
  Integer fTag = 0;
  bool fIsCDATA = false;
};

// The interface wrapper of one item. Its count is its own, and every change of it is
// passed on to the controller (the root's IXItem, or for a root the document), so a held
// item holds the document. Interfaces it does not have are asked of the controller.
class OSTREL_API TXItemIntf : public TInterfacedObject, public IXItem {
  OSTREL_CLASS(TXItemIntf, TInterfacedObject)
 public:
  TXItemIntf(IInterface* controller, TXItem* item);
  ~TXItemIntf() override;

  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override;
  Integer OSTREL_STDCALL _AddRef() override;
  // Frees the wrapper only when its count reaches 0 after its item has gone.
  Integer OSTREL_STDCALL _Release() override;
  bool GetInterface(const TGUID& iid, void** obj) override;

  IPtr<IXDoc> OSTREL_STDCALL get_Doc() override;
  IPtr<IXItem> OSTREL_STDCALL get_Parent() override;
  Integer OSTREL_STDCALL get_Index() override;
  Integer OSTREL_STDCALL get_Count() override;
  IPtr<IXItem> OSTREL_STDCALL get_Items(Integer index) override;
  AnsiString OSTREL_STDCALL get_Name() override;
  void OSTREL_STDCALL set_Name(std::string_view name) override;
  Variant OSTREL_STDCALL get_Value() override;
  void OSTREL_STDCALL set_Value(const Variant& value) override;
  bool OSTREL_STDCALL get_IsCDATA() override;
  AnsiString OSTREL_STDCALL get_CDATA() override;
  void OSTREL_STDCALL set_CDATA(std::string_view text) override;
  Variant OSTREL_STDCALL get_Attr(std::string_view name) override;
  void OSTREL_STDCALL set_Attr(std::string_view name, const Variant& value) override;
  AnsiString OSTREL_STDCALL get_XML() override;
  void OSTREL_STDCALL set_XML(std::string_view text) override;
  void OSTREL_STDCALL Clear() override;
  void OSTREL_STDCALL Delete(Integer index) override;
  IPtr<IXItem> OSTREL_STDCALL Insert(Integer index, std::string_view name) override;
  IPtr<IXItem> OSTREL_STDCALL Add(std::string_view name) override;
  bool OSTREL_STDCALL FindItem(std::string_view name, IPtr<IXItem>& item) override;
  bool OSTREL_STDCALL GetAttrList(IPtr<IDump>& list) override;
  void OSTREL_STDCALL LoadFromStream(TStream& stream) override;
  void OSTREL_STDCALL SaveToStream(TStream& stream) override;

  // The item; _SErrXItemDeleted once it has been destroyed.
  TXItem* XItem() const;
  // Called by the item's destructor: an unreferenced wrapper is freed at once, a referenced
  // one loses its item and lives on until its last reference goes.
  void DoRelease();
  IInterface* Controller() const noexcept { return fController; }

 private:
  friend class TXItem;
  IInterface* fController;
  TXItem* fXItem;
};

// The document: a file name and the root item, whose controller it is.
class OSTREL_API TXDocIntf : public TInterfacedObject, public IXDoc {
  OSTREL_CLASS(TXDocIntf, TInterfacedObject)
 public:
  TXDocIntf();
  ~TXDocIntf() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  IPtr<IXItem> OSTREL_STDCALL get_Root() override;
  AnsiString OSTREL_STDCALL get_FileName() override;
  void OSTREL_STDCALL set_FileName(std::string_view fileName) override;
  AnsiString OSTREL_STDCALL get_XML() override;
  void OSTREL_STDCALL SaveToStream(TStream& stream, bool withHeader) override;
  void OSTREL_STDCALL SaveToFile(std::string_view fileName, bool withHeader) override;

  TXItem* Root() const noexcept { return fRoot; }

 private:
  AnsiString fFileName;
  TXItem* fRoot;
};

/// The tree item behind an item interface that this library made (an item of a document, or
/// of a tree made with TXItem), or null for an empty pointer and for another implementation of
/// IXItem. Raises the deleted-item error when the interface's item has been destroyed.
OSTREL_API TXItem* XItemOf(IXItem* item);
/// The root item of a document that this library made, or null for an empty pointer and for
/// another implementation of IXDoc.
OSTREL_API TXItem* XRootOf(IXDoc* doc);

// A new document read from the stream (one element into its root).
OSTREL_API void GetXDocIntf(TStream& stream, IPtr<IXDoc>& doc);
// A new document with FileName set; when the name is not empty the file is loaded into the
// root with LoadXData(root, fileName, true), so XFixProc runs on it. An empty name gives an
// empty document.
OSTREL_API void GetXDocIntf(std::string_view fileName, IPtr<IXDoc>& doc);

// The first letter of the item's "fix" attribute in lower case, or def when the attribute
// is absent or empty.
OSTREL_API char GetXFixMode(const TXItem* item, char def);
// Merges fixes into target: the first child of fixes that matches target (same name,
// letter case ignored; each of its attributes except "fix" equal to target's, as variants
// ignoring case) has its children applied to target by their "fix" modes:
//   a  append a deep copy            u  replace the matching child by a deep copy
//   d  destroy the matching child    x  go into the matching child and apply there
// Without a "fix" attribute the mode is a when nothing matches, x when the fix item has
// children, u otherwise. Another letter is a BUG. A merge stopped by an error keeps the
// changes made before it.
OSTREL_API void XFix(TXItem* target, const TXItem* fixes);

}  // namespace ostrel
