// Layout and merge schema files, and the text drawing of a layout.
#include <ostrel/controls/LayoutFiles.h>

#include <ostrel/rtl/Variants.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/xml/Xmlutils.h>

#include <array>
#include <memory>

namespace ostrel {
namespace {

constexpr std::array<std::string_view, 3> kModeNames = {"mmInsertAfter", "mmInsertBefore", "mmAddChild"};

AnsiString Attr(const TXItem* item, std::string_view name) { return VarToStr(item->get_Attr(name)); }
bool HasAttr(const TXItem* item, std::string_view name) { return !VarIsNull(item->get_Attr(name)); }

// The elements of the file that are not text or comments.
template <class Fn>
void ForEachElement(const TXItem* item, Fn fn) {
  for (Integer i = 0; i < item->get_Count(); ++i)
    if (!item->get_Items(i)->get_IsText()) fn(item->get_Items(i));
}

void CheckRoot(const TXItem* item, std::string_view name, std::string_view operation) {
  if (!AnsiSameText(item->get_Name(), name))
    DIE("%s: the root element is <%s>, not <%s>", operation, item->get_Name(), name);
}

// ---- layouts ---------------------------------------------------------------------------

void SavePanel(const TkxLayoutPanel& panel, TXItem* item) {
  for (Integer i = 0; i < panel.ControlCount(); ++i) {
    const TControl* c = panel.Controls(i);
    TXItem* x = item->Add();
    x->set_Name("control");
    x->set_Attr("name", c->Name());
    x->set_Attr("kind", LayoutControlKind(*c));
    if (!c->Visible()) x->set_Attr("visible", "false");
  }
  for (Integer i = 0; i < panel.PanelCount(); ++i) {
    TXItem* x = item->Add();
    x->set_Name("panel");
    if (!panel.Panels(i)->Name().empty()) x->set_Attr("name", panel.Panels(i)->Name());
    SavePanel(*panel.Panels(i), x);
  }
}

void LoadPanel(TkxLayoutGrid& grid, TkxLayoutPanel& panel, const TXItem* item) {
  ForEachElement(item, [&](const TXItem* x) {
    if (AnsiSameText(x->get_Name(), "panel")) {
      LoadPanel(grid, *panel.AddPanel(Attr(x, "name")), x);
      return;
    }
    if (!AnsiSameText(x->get_Name(), "control"))
      DIE("LoadLayout: unknown element <%s> in panel \"%s\"", x->get_Name(), panel.Name());
    const AnsiString name = Attr(x, "name");
    if (name.empty()) DIE("LoadLayout: a control without a name in panel \"%s\"", panel.Name());
    TControl* control = FindControlByName(&grid, name, false);
    TkxLayoutPanel* placed = nullptr;
    if (control && grid.Layout()->FindControl(control, placed))
      DIE("LoadLayout: control \"%s\" is placed twice", name);
    if (!control) {
      TComponent* owner = grid.Owner() ? grid.Owner() : &grid;
      auto made = std::make_unique<TkxLayoutControl>(nullptr, Attr(x, "kind"));
      made->SetName(name);  // checked before the owner takes it
      owner->InsertComponent(made.get());
      control = made.release();
    }
    if (HasAttr(x, "visible")) control->SetVisible(XML2BOOL(x->get_Attr("visible")));
    panel.AddControl(control);
  });
}

void DrawPanel(const TkxLayoutPanel& panel, Integer depth, std::string_view title, AnsiString& out) {
  out.append(static_cast<std::size_t>(depth) * 2, ' ');
  out += title;
  for (Integer i = 0; i < panel.ControlCount(); ++i) {
    const TControl* c = panel.Controls(i);
    out += i ? ", " : ": ";
    out += c->Name() + " (" + LayoutControlKind(*c) + (c->Visible() ? ")" : ", hidden)");
  }
  out += '\n';
  for (Integer i = 0; i < panel.PanelCount(); ++i) {
    const TkxLayoutPanel* p = panel.Panels(i);
    DrawPanel(*p, depth + 1, p->Name().empty() ? AnsiString("(panel)") : p->Name(), out);
  }
}

// ---- merge schemas ---------------------------------------------------------------------

TControl* FindSchemaControl(const std::vector<TkxLayoutGrid*>& grids, const AnsiString& name) {
  for (TkxLayoutGrid* g : grids)
    if (TControl* c = FindControlByName(g, name, false)) return c;
  DIE("LoadMergeSchema: no control named \"%s\" on the layouts", name);
}

TkxLayoutGrid* FindSchemaGrid(const std::vector<TkxLayoutGrid*>& grids, const AnsiString& name) {
  for (TkxLayoutGrid* g : grids)
    if (AnsiSameText(g->Name(), name)) return g;
  DIE("LoadMergeSchema: no layout named \"%s\"", name);
}

TkxLayoutMergeMode ParseMode(const AnsiString& text) {
  for (std::size_t i = 0; i < kModeNames.size(); ++i)
    if (AnsiSameText(text, kModeNames[i])) return static_cast<TkxLayoutMergeMode>(i);
  DIE("LoadMergeSchema: unknown merge mode \"%s\"", text);
}

}  // namespace

void Layout_SaveToXItem(const TkxLayoutGrid& grid, TXItem* item) {
  item->Clear();
  item->set_AttrText("");
  item->set_Name("layout");
  if (!grid.Name().empty()) item->set_Attr("name", grid.Name());
  SavePanel(*grid.Layout(), item);
}

void Layout_LoadFromXItem(TkxLayoutGrid& grid, const TXItem* item) {
  CheckRoot(item, "layout", "LoadLayout");
  const AnsiString name = Attr(item, "name");
  if (grid.Name().empty() && !name.empty()) grid.SetName(name);
  grid.Clear();
  LoadPanel(grid, *grid.Layout(), item);
}

void Layout_SaveToFile(const TkxLayoutGrid& grid, std::string_view fileName) {
  TXItem item;
  Layout_SaveToXItem(grid, &item);
  SaveXData(&item, true, fileName);
}

void Layout_LoadFromFile(TkxLayoutGrid& grid, std::string_view fileName) {
  TXItem item;
  LoadXData(&item, fileName, false);
  Layout_LoadFromXItem(grid, &item);
}

void MergeSchema_SaveToXItem(const TkxLayoutMergeSchema& schema, TXItem* item) {
  item->Clear();
  item->set_AttrText("");
  item->set_Name("mergeschema");
  if (schema.TargetLayout()) item->set_Attr("targetlayout", schema.TargetLayout()->Name());
  for (Integer i = 0; i < schema.Items()->Count(); ++i) {
    const TkxLayoutMergeItem* m = schema.Items()->Items(i);
    TXItem* x = item->Add();
    x->set_Name("item");
    if (m->MergeMode() != mmInsertAfter) x->set_Attr("mode", kModeNames[m->MergeMode()]);
    if (m->SourcePoint()) x->set_Attr("source", m->SourcePoint()->Name());
    if (m->IsSourceShiftStored()) x->set_Attr("sourceshift", m->SourceShift());
    if (m->TargetPoint()) x->set_Attr("target", m->TargetPoint()->Name());
    if (!m->TargetPointName().empty()) x->set_Attr("targetname", m->TargetPointName());
    if (m->IsTargetShiftStored()) x->set_Attr("targetshift", m->TargetShift());
  }
}

void MergeSchema_LoadFromXItem(TkxLayoutMergeSchema& schema, const TXItem* item,
                               const std::vector<TkxLayoutGrid*>& grids) {
  CheckRoot(item, "mergeschema", "LoadMergeSchema");
  // Read into a copy first, so that a bad file leaves the schema as it was.
  TkxLayoutMergeItems items;
  ForEachElement(item, [&](const TXItem* x) {
    if (!AnsiSameText(x->get_Name(), "item"))
      DIE("LoadMergeSchema: unknown element <%s>", x->get_Name());
    TkxLayoutMergeItem* m = items.Add();
    if (HasAttr(x, "mode")) m->SetMergeMode(ParseMode(Attr(x, "mode")));
    if (HasAttr(x, "source")) m->SetSourcePoint(FindSchemaControl(grids, Attr(x, "source")));
    if (HasAttr(x, "sourceshift")) m->SetSourceShift(Attr(x, "sourceshift"));
    if (HasAttr(x, "target")) m->SetTargetPoint(FindSchemaControl(grids, Attr(x, "target")));
    m->SetTargetPointName(Attr(x, "targetname"));
    if (HasAttr(x, "targetshift")) m->SetTargetShift(Attr(x, "targetshift"));
  });
  TkxLayoutGrid* target = HasAttr(item, "targetlayout") ? FindSchemaGrid(grids, Attr(item, "targetlayout")) : nullptr;
  schema.SetItems(&items);
  schema.SetTargetLayout(target);
}

void MergeSchema_SaveToFile(const TkxLayoutMergeSchema& schema, std::string_view fileName) {
  TXItem item;
  MergeSchema_SaveToXItem(schema, &item);
  SaveXData(&item, true, fileName);
}

void MergeSchema_LoadFromFile(TkxLayoutMergeSchema& schema, std::string_view fileName,
                              const std::vector<TkxLayoutGrid*>& grids) {
  TXItem item;
  LoadXData(&item, fileName, false);
  MergeSchema_LoadFromXItem(schema, &item, grids);
}

AnsiString Layout_Draw(const TkxLayoutGrid& grid) {
  AnsiString out;
  DrawPanel(*grid.Layout(), 0, grid.Name().empty() ? AnsiString("(grid)") : grid.Name(), out);
  return out;
}

}  // namespace ostrel
