// Layout and merge schema files, and the text drawing of a layout.
//
// Every walk here (files in, files out, drawings) uses an explicit stack: a file decides how
// deep a tree is, and 300 000 nested panels must load, save and draw like three.
#include <ostrel/controls/LayoutFiles.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/xml/Xmlutils.h>

#include <array>
#include <initializer_list>
#include <unordered_map>
#include <unordered_set>

namespace ostrel {
namespace {

// ---- where an element stands -----------------------------------------------------------

// What is being read: the operation's name for messages about items, the file's name for
// messages about files, and the root element, from which an element's place is counted.
struct Source {
  std::string_view operation;
  std::string_view fileName;
  const TXItem* root;
};

// The element's position among the elements of the tree, in document order (text items do
// not count, as they have no tag).
std::size_t ElementIndex(const TXItem* root, const TXItem* element) {
  std::vector<const TXItem*> stack{root};
  std::size_t index = 0;
  while (!stack.empty()) {
    const TXItem* x = stack.back();
    stack.pop_back();
    if (x == element) return index;
    ++index;
    for (Integer i = x->get_Count() - 1; i >= 0; --i)
      if (!x->get_Items(i)->get_IsText()) stack.push_back(x->get_Items(i));
  }
  return index;
}

// Line and column (1-based, in bytes) of the index-th start tag of the file, found with the
// reader's own tag scanner so that they agree with how the file was read: its elements are
// the start tags in order, "?xml" tags aside. Only asked for after a failure, so reading the
// file a second time costs nothing on the way that succeeds.
bool StartTagPosition(std::string_view fileName, std::size_t index, Int64& line, Int64& column) {
  TMemoryStream bytes;
  bytes.LoadFromFile(fileName);
  TXReader reader(bytes);
  std::size_t seen = 0;
  Integer depth = 0;
  for (;;) {
    Variant text;
    bool cdata = false;
    reader.ReadValue(text, cdata);
    do reader.SkipSpaces();
    while (reader.SkipComment());
    const Int64 at = reader.Position();
    AnsiString name, attrs;
    bool selfClosing = false, endTag = false;
    reader.ReadTag(name, attrs, selfClosing, endTag);
    if (name.empty()) return false;
    if (name.starts_with("?xml")) continue;
    if (endTag) {
      if (--depth <= 0) return false;
      continue;
    }
    if (seen++ == index) {
      const auto* p = static_cast<const char*>(bytes.Memory());
      line = column = 1;
      for (Int64 i = 0; i < at; ++i) {
        if (p[i] == '\r' || p[i] == '\n') {
          if (p[i] == '\r' && i + 1 < at && p[i + 1] == '\n') ++i;
          ++line;
          column = 1;
        } else {
          ++column;
        }
      }
      return true;
    }
    if (!selfClosing) ++depth;
  }
}

// "file:line:col: " for an element of a file, "Operation: " for an element of an item.
AnsiString Where(const Source& source, const TXItem* element) {
  if (source.fileName.empty()) return AnsiString(source.operation) + ": ";
  Int64 line = 0, column = 0;
  bool found = false;
  try {
    found = StartTagPosition(source.fileName, ElementIndex(source.root, element), line, column);
  } catch (const Exception&) {
    // The file changed or vanished since it was read: the name alone must do.
  }
  if (!found) return AnsiString(source.fileName) + ": ";
  return AnsiString(source.fileName) + ":" + IntToStr(line) + ":" + IntToStr(column) + ": ";
}

// A failure that already names its place; the library's own failures get it added.
class ELayoutFileError : public Exception {
 public:
  using Exception::Exception;
};

[[noreturn]] void Fail(const Source& source, const TXItem* element, std::string_view message) {
  throw ELayoutFileError(Where(source, element) + AnsiString(message));
}

AnsiString List(std::initializer_list<std::string_view> names) {
  AnsiString text;
  for (std::string_view n : names) {
    if (!text.empty()) text += ", ";
    text += n;
  }
  return text;
}

// Runs fn for the element; a failure of the library below (an invalid component name, a
// malformed attribute text) gets the element's place in front of its message.
template <class Fn>
void AtElement(const Source& source, const TXItem* element, Fn fn) {
  try {
    fn();
  } catch (const ELayoutFileError&) {
    throw;
  } catch (const Exception& e) {
    Fail(source, element, e.Message());
  }
}

// The element may carry only these attributes and no text; its attributes as a dump.
IPtr<IDump> CheckElement(const Source& source, const TXItem* x,
                         std::initializer_list<std::string_view> allowed) {
  IPtr<IDump> attrs;
  AtElement(source, x, [&] { x->GetAttrList(attrs); });
  for (Integer i = 0; i < attrs->get_Count(); ++i) {
    const AnsiString name = attrs->get_Name(i);
    bool known = false;
    for (std::string_view a : allowed) known = known || AnsiSameText(name, a);
    if (!known)
      Fail(source, x,
           Format("unknown attribute \"%s\" of <%s>; allowed: %s", name, x->get_Name(),
                  allowed.size() ? List(allowed) : AnsiString("none")));
  }
  if (!VarIsNull(x->get_Value()) && !Trim(VarToStr(x->get_Value())).empty())
    Fail(source, x,
         Format("<%s> holds text \"%s\"; it takes attributes and elements only", x->get_Name(),
                Trim(VarToStr(x->get_Value()))));
  return attrs;
}

// The value of an attribute the dump holds, and whether it is there at all.
bool Get(const IPtr<IDump>& attrs, std::string_view name, AnsiString& value) {
  const Integer i = attrs->IndexOf(name);
  value = i < 0 ? AnsiString() : VarToStr(attrs->get_Value(i));
  return i >= 0;
}

// The child elements of x, each of one of the allowed names; text between them is an error.
std::vector<const TXItem*> Children(const Source& source, const TXItem* x,
                                    std::initializer_list<std::string_view> allowed) {
  std::vector<const TXItem*> children;
  for (Integer i = 0; i < x->get_Count(); ++i) {
    const TXItem* c = x->get_Items(i);
    if (c->get_IsText())
      Fail(source, x,
           Format("<%s> holds text \"%s\"; it takes attributes and elements only", x->get_Name(),
                  Trim(VarToStr(c->get_Value()))));
    bool known = false;
    for (std::string_view a : allowed) known = known || AnsiSameText(c->get_Name(), a);
    if (!known)
      Fail(source, c,
           Format("unknown element <%s> in <%s>; allowed: %s", c->get_Name(), x->get_Name(),
                  allowed.size() ? List(allowed) : AnsiString("none")));
    children.push_back(c);
  }
  return children;
}

void CheckRoot(const Source& source, std::string_view name) {
  if (!AnsiSameText(source.root->get_Name(), name))
    Fail(source, source.root,
         Format("the root element is <%s>, not <%s>", source.root->get_Name(), name));
}

void LoadFile(TXItem& item, std::string_view fileName) { LoadXData(&item, fileName, false); }

// ---- layouts ---------------------------------------------------------------------------

void SaveControl(const TControl& control, TXItem* x) {
  x->set_Name("control");
  x->set_Attr("name", control.Name());
  x->set_Attr("kind", LayoutControlKind(control));
  if (!control.Visible()) x->set_Attr("visible", "false");
}

// The control elements for the control and everything it holds.
void SaveControlTree(const TControl& top, TXItem* parent) {
  std::vector<std::pair<const TControl*, TXItem*>> stack{{&top, parent}};
  while (!stack.empty()) {
    auto [control, into] = stack.back();
    stack.pop_back();
    TXItem* x = into->Add();
    SaveControl(*control, x);
    if (const auto* holder = dynamic_cast<const TWinControl*>(control))
      for (Integer i = holder->ControlCount() - 1; i >= 0; --i)
        stack.emplace_back(holder->Controls(i), x);
  }
}

class LayoutReader {
 public:
  LayoutReader(TkxLayoutGrid& grid, const Source& source) : fGrid(grid), fSource(source) {
    // The grid's own controls by name, looked up once: a file of many controls reads in
    // linear time.
    for (Integer i = 0; i < grid.ControlCount(); ++i)
      if (!grid.Controls(i)->Name().empty())
        fOnGrid[AnsiUpperCase(grid.Controls(i)->Name())] = grid.Controls(i);
  }

  void Read() {
    CheckRoot(fSource, "layout");
    const IPtr<IDump> attrs = CheckElement(fSource, fSource.root, {"name"});
    AnsiString name;
    Get(attrs, "name", name);
    if (fGrid.Name().empty() && !name.empty())
      AtElement(fSource, fSource.root, [&] { fGrid.SetName(name); });
    fGrid.Clear();
    struct Frame {
      const TXItem* x;
      TkxLayoutPanel* panel;  // the panel the element's controls go to; null in <unplaced>
      TWinControl* holder;    // the control holding the element's controls; null in panels
    };
    std::vector<Frame> stack;
    auto push = [&](const Frame& parent, const std::vector<const TXItem*>& children) {
      for (auto it = children.rbegin(); it != children.rend(); ++it)
        stack.push_back({*it, parent.panel, parent.holder});
    };
    push({nullptr, fGrid.Layout(), nullptr},
         Children(fSource, fSource.root, {"panel", "control", "unplaced"}));
    while (!stack.empty()) {
      const Frame f = stack.back();
      stack.pop_back();
      const AnsiString& element = f.x->get_Name();
      if (AnsiSameText(element, "panel")) {
        const IPtr<IDump> a = CheckElement(fSource, f.x, {"name"});
        AnsiString panelName;
        Get(a, "name", panelName);
        const Frame inner{f.x, f.panel->AddPanel(panelName), nullptr};
        push(inner, Children(fSource, f.x, {"panel", "control"}));
      } else if (AnsiSameText(element, "unplaced")) {  // only <layout> allows it
        CheckElement(fSource, f.x, {});
        push({f.x, nullptr, nullptr}, Children(fSource, f.x, {"control"}));
      } else {
        TControl* control = nullptr;
        const std::vector<const TXItem*> inner = Children(fSource, f.x, {"control"});
        AtElement(fSource, f.x, [&] { control = Place(f, !inner.empty()); });
        if (!inner.empty()) {
          auto* holder = dynamic_cast<TWinControl*>(control);
          if (!holder)
            Fail(fSource, f.x,
                 Format("control \"%s\" of kind %s cannot hold controls", control->Name(),
                        LayoutControlKind(*control)));
          push({f.x, nullptr, holder}, inner);
        }
      }
    }
  }

 private:
  template <class Frame>
  TControl* Place(const Frame& f, bool holdsControls) {
    const IPtr<IDump> a = CheckElement(fSource, f.x, {"name", "kind", "visible"});
    AnsiString name, kind, visible;
    Get(a, "name", name);
    Get(a, "kind", kind);
    if (name.empty()) Fail(fSource, f.x, "a control needs a name");
    bool show = true;
    if (Get(a, "visible", visible)) {
      if (AnsiSameText(visible, "false"))
        show = false;
      else if (!AnsiSameText(visible, "true"))
        Fail(fSource, f.x, Format("visible=\"%s\": allowed are true and false", visible));
    }
    TControl* control = nullptr;
    if (f.holder) {
      control = FindControlByName(f.holder, name, false);
    } else if (const auto it = fOnGrid.find(AnsiUpperCase(name)); it != fOnGrid.end()) {
      control = it->second;
    }
    if (control && !fPlaced.insert(control).second)
      Fail(fSource, f.x, Format("control \"%s\" is placed twice", name));
    if (!control) {
      TComponent* owner = fGrid.Owner() ? fGrid.Owner() : &fGrid;
      std::unique_ptr<TControl> made;
      if (holdsControls)
        made = std::make_unique<TkxLayoutContainer>(nullptr, kind);
      else
        made = std::make_unique<TkxLayoutControl>(nullptr, kind);
      made->SetName(name);  // checked before the owner takes it
      owner->InsertComponent(made.get());
      control = made.release();
      fPlaced.insert(control);
      if (!f.holder) fOnGrid[AnsiUpperCase(name)] = control;
    }
    control->SetVisible(show);
    if (f.holder)
      control->SetParent(f.holder);
    else if (f.panel)
      f.panel->AddControl(control);
    else if (control->Parent() != &fGrid)
      control->SetParent(&fGrid);
    return control;
  }

  TkxLayoutGrid& fGrid;
  const Source& fSource;
  std::unordered_map<AnsiString, TControl*> fOnGrid;
  std::unordered_set<const TControl*> fPlaced;
};

// ---- merge schemas ---------------------------------------------------------------------

struct ModeName {
  TkxLayoutMergeMode mode;
  std::string_view full, shortName, number;
};
constexpr std::array<ModeName, 3> kModes = {{{mmInsertAfter, "mmInsertAfter", "after", "0"},
                                             {mmInsertBefore, "mmInsertBefore", "before", "1"},
                                             {mmAddChild, "mmAddChild", "child", "2"}}};

// The control path as a schema file writes it: from the grid's name (when it has one)
// through the controls holding the control.
AnsiString ControlPath(const TControl& control) {
  AnsiString path = control.Name();
  for (const TWinControl* p = control.Parent(); p; p = p->Parent()) {
    if (p->Name().empty()) break;
    path = p->Name() + "." + path;
    if (dynamic_cast<const TkxLayoutGrid*>(p)) break;
  }
  return path;
}

TControl* FindPath(TWinControl* from, std::string_view path) {
  TControl* found = nullptr;
  for (;;) {
    const std::size_t dot = path.find('.');
    found = FindControlByName(from, path.substr(0, dot), false);
    if (!found || dot == std::string_view::npos) return found;
    from = dynamic_cast<TWinControl*>(found);
    if (!from) return nullptr;
    path.remove_prefix(dot + 1);
  }
}

AnsiString GridNames(const std::vector<TkxLayoutGrid*>& grids) {
  AnsiString names;
  for (const TkxLayoutGrid* g : grids)
    names +=
        (names.empty() ? "" : ", ") + (g->Name().empty() ? AnsiString("(unnamed)") : g->Name());
  return names.empty() ? AnsiString("none") : names;
}

TControl* FindSchemaControl(const Source& source, const TXItem* x,
                            const std::vector<TkxLayoutGrid*>& grids, std::string_view attr,
                            const AnsiString& path) {
  if (const std::size_t dot = path.find('.'); dot != AnsiString::npos)
    for (TkxLayoutGrid* g : grids)
      if (!g->Name().empty() && AnsiSameText(g->Name(), std::string_view(path).substr(0, dot))) {
        if (TControl* c = FindPath(g, std::string_view(path).substr(dot + 1))) return c;
        Fail(source, x,
             Format("%s=\"%s\": layout \"%s\" has no such control", attr, path, g->Name()));
      }
  for (TkxLayoutGrid* g : grids)
    if (TControl* c = FindPath(g, path)) return c;
  Fail(source, x,
       Format("%s=\"%s\": no such control on the layouts (%s)", attr, path, GridNames(grids)));
}

void ReadSchema(TkxLayoutMergeSchema& schema, const Source& source,
                const std::vector<TkxLayoutGrid*>& grids) {
  CheckRoot(source, "mergeschema");
  const IPtr<IDump> rootAttrs = CheckElement(source, source.root, {"targetlayout"});
  TkxLayoutGrid* target = grids.empty() ? nullptr : grids.front();
  AnsiString targetName;
  if (Get(rootAttrs, "targetlayout", targetName)) {
    target = nullptr;
    for (TkxLayoutGrid* g : grids)
      if (!target && !targetName.empty() && AnsiSameText(g->Name(), targetName)) target = g;
    if (!target && !targetName.empty())
      Fail(source, source.root,
           Format("targetlayout=\"%s\": no such layout (%s; \"\" for none)", targetName,
                  GridNames(grids)));
  }
  // Read into a copy first, so that a bad file leaves the schema as it was.
  TkxLayoutMergeItems items;
  for (const TXItem* x : Children(source, source.root, {"item"})) {
    const IPtr<IDump> a = CheckElement(
        source, x, {"mode", "source", "sourceshift", "target", "targetname", "targetshift"});
    Children(source, x, {});
    TkxLayoutMergeItem* m = items.Add();
    AnsiString v;
    if (Get(a, "mode", v)) {
      TkxLayoutMergeMode mode;
      if (!MergeMode_FromText(v, mode))
        Fail(source, x,
             Format("mode=\"%s\": allowed are mmInsertAfter, mmInsertBefore, mmAddChild, "
                    "or after, before, child, or 0, 1, 2",
                    v));
      m->SetMergeMode(mode);
    }
    if (Get(a, "source", v)) m->SetSourcePoint(FindSchemaControl(source, x, grids, "source", v));
    if (Get(a, "sourceshift", v)) m->SetSourceShift(v);
    if (Get(a, "target", v)) m->SetTargetPoint(FindSchemaControl(source, x, grids, "target", v));
    if (Get(a, "targetname", v)) m->SetTargetPointName(v);
    if (Get(a, "targetshift", v)) m->SetTargetShift(v);
  }
  schema.SetItems(&items);
  schema.SetTargetLayout(target);
}

}  // namespace

// ---- layouts ---------------------------------------------------------------------------

void Layout_SaveToXItem(const TkxLayoutGrid& grid, TXItem* item) {
  item->Clear();
  item->set_AttrText("");
  item->set_Name("layout");
  if (!grid.Name().empty()) item->set_Attr("name", grid.Name());
  std::unordered_set<const TControl*> placed;
  std::vector<std::pair<const TkxLayoutPanel*, TXItem*>> stack{{grid.Layout(), item}};
  while (!stack.empty()) {
    auto [panel, x] = stack.back();
    stack.pop_back();
    for (Integer i = 0; i < panel->ControlCount(); ++i) {
      placed.insert(panel->Controls(i));
      SaveControlTree(*panel->Controls(i), x);
    }
    // Children are made in order now and filled when they come off the stack.
    std::vector<std::pair<const TkxLayoutPanel*, TXItem*>> children;
    for (Integer i = 0; i < panel->PanelCount(); ++i) {
      TXItem* c = x->Add();
      c->set_Name("panel");
      if (!panel->Panels(i)->Name().empty()) c->set_Attr("name", panel->Panels(i)->Name());
      children.emplace_back(panel->Panels(i), c);
    }
    stack.insert(stack.end(), children.rbegin(), children.rend());
  }
  TXItem* unplaced = nullptr;
  for (Integer i = 0; i < grid.ControlCount(); ++i) {
    if (placed.count(grid.Controls(i))) continue;
    if (!unplaced) {
      unplaced = item->Add();
      unplaced->set_Name("unplaced");
    }
    SaveControlTree(*grid.Controls(i), unplaced);
  }
}

void Layout_LoadFromXItem(TkxLayoutGrid& grid, const TXItem* item) {
  const Source source{"LoadLayout", {}, item};
  LayoutReader(grid, source).Read();
}

void Layout_SaveToFile(const TkxLayoutGrid& grid, std::string_view fileName) {
  TXItem item;
  Layout_SaveToXItem(grid, &item);
  SaveXData(&item, true, fileName);
}

void Layout_LoadFromFile(TkxLayoutGrid& grid, std::string_view fileName) {
  TXItem item;
  LoadFile(item, fileName);
  const Source source{"LoadLayout", fileName, &item};
  LayoutReader(grid, source).Read();
}

// ---- merge schemas ---------------------------------------------------------------------

bool MergeMode_FromText(std::string_view text, TkxLayoutMergeMode& mode) {
  const AnsiString t = Trim(text);
  for (const ModeName& m : kModes)
    if (AnsiSameText(t, m.full) || AnsiSameText(t, m.full.substr(2)) ||
        AnsiSameText(t, m.shortName) || t == m.number) {
      mode = m.mode;
      return true;
    }
  return false;
}

AnsiString MergeMode_ToText(TkxLayoutMergeMode mode) {
  for (const ModeName& m : kModes)
    if (m.mode == mode) return AnsiString(m.full);
  return IntToStr(static_cast<Integer>(mode));
}

void MergeSchema_SaveToXItem(const TkxLayoutMergeSchema& schema, TXItem* item) {
  item->Clear();
  item->set_AttrText("");
  item->set_Name("mergeschema");
  // Without a target layout the attribute says so: left out, it would mean the first grid.
  item->set_Attr("targetlayout",
                 schema.TargetLayout() ? schema.TargetLayout()->Name() : AnsiString());
  for (Integer i = 0; i < schema.Items()->Count(); ++i) {
    const TkxLayoutMergeItem* m = schema.Items()->Items(i);
    TXItem* x = item->Add();
    x->set_Name("item");
    if (m->MergeMode() != mmInsertAfter) x->set_Attr("mode", MergeMode_ToText(m->MergeMode()));
    if (m->SourcePoint()) x->set_Attr("source", ControlPath(*m->SourcePoint()));
    if (m->IsSourceShiftStored()) x->set_Attr("sourceshift", m->SourceShift());
    if (m->TargetPoint()) x->set_Attr("target", ControlPath(*m->TargetPoint()));
    if (!m->TargetPointName().empty()) x->set_Attr("targetname", m->TargetPointName());
    if (m->IsTargetShiftStored()) x->set_Attr("targetshift", m->TargetShift());
  }
}

void MergeSchema_LoadFromXItem(TkxLayoutMergeSchema& schema, const TXItem* item,
                               const std::vector<TkxLayoutGrid*>& grids) {
  ReadSchema(schema, Source{"LoadMergeSchema", {}, item}, grids);
}

void MergeSchema_SaveToFile(const TkxLayoutMergeSchema& schema, std::string_view fileName) {
  TXItem item;
  MergeSchema_SaveToXItem(schema, &item);
  SaveXData(&item, true, fileName);
}

void MergeSchema_LoadFromFile(TkxLayoutMergeSchema& schema, std::string_view fileName,
                              const std::vector<TkxLayoutGrid*>& grids) {
  TXItem item;
  LoadFile(item, fileName);
  ReadSchema(schema, Source{"LoadMergeSchema", fileName, &item}, grids);
}

// ---- drawings --------------------------------------------------------------------------

AnsiString Layout_ControlText(const TControl& top) {
  // Controls inside controls nest without limit, so the text is built from a stack of the
  // controls still open and the next child of each.
  AnsiString out;
  std::vector<std::pair<const TWinControl*, Integer>> open;
  auto start = [&](const TControl& c) {
    out += c.Name() + " (" + LayoutControlKind(c) + (c.Visible() ? "" : ", hidden");
    const auto* holder = dynamic_cast<const TWinControl*>(&c);
    if (holder && holder->ControlCount() > 0) {
      out += ": ";
      open.emplace_back(holder, 0);
    } else {
      out += ')';
    }
  };
  start(top);
  while (!open.empty()) {
    auto& [holder, next] = open.back();
    if (next == holder->ControlCount()) {
      out += ')';
      open.pop_back();
      continue;
    }
    if (next > 0) out += ", ";
    start(*holder->Controls(next++));
  }
  return out;
}

AnsiString Layout_Draw(const TkxLayoutGrid& grid) {
  constexpr Integer kMaxIndent = 40;
  AnsiString out;
  std::unordered_set<const TControl*> placed;
  std::vector<std::pair<const TkxLayoutPanel*, Integer>> stack{{grid.Layout(), 0}};
  while (!stack.empty()) {
    auto [panel, depth] = stack.back();
    stack.pop_back();
    // Indentation stops growing at kMaxIndent levels and deeper lines say their level, so
    // that the text of a deep tree grows with its panels, not with their square.
    out.append(static_cast<std::size_t>(std::min(depth, kMaxIndent)) * 2, ' ');
    if (depth > kMaxIndent) out += "[" + IntToStr(depth) + "] ";
    out += depth == 0 ? (grid.Name().empty() ? AnsiString("(grid)") : grid.Name())
                      : (panel->Name().empty() ? AnsiString("(panel)") : panel->Name());
    for (Integer i = 0; i < panel->ControlCount(); ++i) {
      placed.insert(panel->Controls(i));
      out += i ? ", " : ": ";
      out += Layout_ControlText(*panel->Controls(i));
    }
    out += '\n';
    for (Integer i = panel->PanelCount() - 1; i >= 0; --i)
      stack.emplace_back(panel->Panels(i), depth + 1);
  }
  bool any = false;
  for (Integer i = 0; i < grid.ControlCount(); ++i) {
    if (placed.count(grid.Controls(i))) continue;
    out += any ? ", " : "(unplaced): ";
    out += Layout_ControlText(*grid.Controls(i));
    any = true;
  }
  if (any) out += '\n';
  return out;
}

}  // namespace ostrel
