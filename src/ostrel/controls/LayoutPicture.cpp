// Layouts as an SVG picture (TkxLayoutPicture, LayoutFiles.h).
//
// The picture is built as an item tree and written by the library's own XML writer, so names
// are escaped as any XML text is and the file is well-formed whatever the names hold. Sizes
// come from a fixed width per character: the picture needs to be readable, not typeset.
#include <ostrel/controls/LayoutFiles.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/xml/Xmlutils.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace ostrel {
namespace {

constexpr Integer kChar = 7;    // width of a character at the picture's font size
constexpr Integer kPad = 8;     // inside a box, around its content
constexpr Integer kLabel = 20;  // a box's label line
constexpr Integer kCell = 22;   // a control's cell
constexpr Integer kGap = 6;     // between cells, between boxes
constexpr Integer kColumnGap = 32;
constexpr Integer kHeading = 28;
constexpr Integer kMaxDepth = 1000;

Integer TextWidth(std::string_view text) { return static_cast<Integer>(text.size()) * kChar; }

AnsiString Num(Integer n) { return IntToStr(n); }

TXItem* Element(TXItem* parent, std::string_view name) {
  TXItem* x = parent->Add();
  x->set_Name(name);
  return x;
}

void Rect(TXItem* parent, Integer x, Integer y, Integer w, Integer h, std::string_view fill,
          std::string_view stroke) {
  TXItem* r = Element(parent, "rect");
  r->set_Attr("x", Num(x));
  r->set_Attr("y", Num(y));
  r->set_Attr("width", Num(w));
  r->set_Attr("height", Num(h));
  r->set_Attr("rx", "3");
  r->set_Attr("fill", fill);
  r->set_Attr("stroke", stroke);
}

void Text(TXItem* parent, Integer x, Integer y, std::string_view text, bool bold = false) {
  TXItem* t = Element(parent, "text");
  t->set_Attr("x", Num(x));
  t->set_Attr("y", Num(y));
  if (bold) t->set_Attr("font-weight", "bold");
  t->set_Value(Variant(AnsiString(text)));
}

// A labelled group: <g class="..."><title>name</title>...</g>.
TXItem* Group(TXItem* parent, std::string_view cls, std::string_view title) {
  TXItem* g = Element(parent, "g");
  g->set_Attr("class", cls);
  TXItem* t = Element(g, "title");
  t->set_Value(Variant(AnsiString(title)));
  return g;
}

// A row of control cells from (x, y); returns its width.
Integer Cells(TXItem* parent, Integer x, Integer y, const std::vector<const TControl*>& controls) {
  Integer at = x;
  for (const TControl* c : controls) {
    const AnsiString label = Layout_ControlText(*c);
    const Integer w = TextWidth(label) + 2 * kPad;
    if (parent) {
      TXItem* g = Group(parent, c->Visible() ? "control" : "control hidden", c->Name());
      Rect(g, at, y, w, kCell, c->Visible() ? "#ffffff" : "url(#hatch)", "#4a6fa5");
      Text(g, at + kPad, y + 15, label);
    }
    at += w + kGap;
  }
  return controls.empty() ? 0 : at - kGap - x;
}

std::vector<const TControl*> ControlsOf(const TkxLayoutPanel& panel) {
  std::vector<const TControl*> controls;
  for (Integer i = 0; i < panel.ControlCount(); ++i) controls.push_back(panel.Controls(i));
  return controls;
}

struct Metrics {
  Integer width = 0, height = 0;
  Integer visible = 0, controls = 0;  // in the subtree
};

}  // namespace

struct TkxLayoutPicture::Row {
  AnsiString heading;
  struct Column {
    TXItem drawing;
    Integer width, height;
  };
  std::vector<std::unique_ptr<Column>> columns;
};

TkxLayoutPicture::TkxLayoutPicture() = default;
TkxLayoutPicture::~TkxLayoutPicture() = default;

void TkxLayoutPicture::NewRow(std::string_view heading) {
  fRows.push_back(std::make_unique<Row>());
  fRows.back()->heading.assign(heading);
}

void TkxLayoutPicture::Add(const TkxLayoutGrid& grid, std::string_view caption) {
  if (fRows.empty()) NewRow();
  // Sizes first, children before parents: the panels in tree order, measured backwards.
  std::vector<const TkxLayoutPanel*> order;
  std::unordered_map<const TkxLayoutPanel*, Metrics> m;
  std::vector<std::pair<const TkxLayoutPanel*, Integer>> stack{{grid.Layout(), 0}};
  while (!stack.empty()) {
    const auto [p, depth] = stack.back();
    stack.pop_back();
    // Each level nests a group and indents its lines in the file, so a picture of a very
    // deep tree grows with the square of its depth: refused rather than written for minutes.
    if (depth > kMaxDepth)
      DIE("TkxLayoutPicture: layout \"%s\" is more than %d panels deep; draw it as text instead",
          grid.Name(), kMaxDepth);
    order.push_back(p);
    for (Integer i = p->PanelCount() - 1; i >= 0; --i) stack.emplace_back(p->Panels(i), depth + 1);
  }
  auto title = [&](const TkxLayoutPanel* p) {
    return p == grid.Layout() ? (grid.Name().empty() ? AnsiString("(grid)") : grid.Name())
                              : (p->Name().empty() ? AnsiString("(panel)") : p->Name());
  };
  std::unordered_set<const TControl*> placed;
  for (auto it = order.rbegin(); it != order.rend(); ++it) {
    const TkxLayoutPanel* p = *it;
    Metrics& pm = m[p];
    const std::vector<const TControl*> controls = ControlsOf(*p);
    placed.insert(controls.begin(), controls.end());
    pm.controls += static_cast<Integer>(controls.size());
    for (const TControl* c : controls) pm.visible += c->Visible() ? 1 : 0;
    pm.width = std::max(TextWidth(title(p)), Cells(nullptr, 0, 0, controls));
    pm.height = kLabel + (controls.empty() ? 0 : kCell + kGap);
    for (Integer i = 0; i < p->PanelCount(); ++i) {
      const Metrics& cm = m[p->Panels(i)];
      pm.width = std::max(pm.width, cm.width);
      pm.height += cm.height + kGap;
      pm.controls += cm.controls;
      pm.visible += cm.visible;
    }
    pm.width += 2 * kPad;
    pm.height += kPad;
  }

  auto column = std::make_unique<Row::Column>();
  TXItem* top = &column->drawing;
  top->set_Name("g");
  top->set_Attr("class", "layout");
  Text(top, 0, 14, caption, true);
  // Then the boxes, parents before children, each child stretched to its parent's width.
  struct Place {
    const TkxLayoutPanel* panel;
    TXItem* into;
    Integer x, y, width;
  };
  std::vector<Place> places{{grid.Layout(), top, 0, kHeading, m[grid.Layout()].width}};
  while (!places.empty()) {
    const Place pl = places.back();
    places.pop_back();
    const Metrics& pm = m[pl.panel];
    const bool hidden = pm.controls > 0 && pm.visible == 0;
    TXItem* g = Group(pl.into, hidden ? "panel hidden" : "panel", title(pl.panel));
    Rect(g, pl.x, pl.y, pl.width, pm.height, hidden ? "url(#hatch)" : "#eef3fa", "#4a6fa5");
    Text(g, pl.x + kPad, pl.y + 15, title(pl.panel), pl.panel == grid.Layout());
    Integer y = pl.y + kLabel;
    const std::vector<const TControl*> controls = ControlsOf(*pl.panel);
    if (!controls.empty()) {
      Cells(g, pl.x + kPad, y, controls);
      y += kCell + kGap;
    }
    std::vector<Place> children;
    for (Integer i = 0; i < pl.panel->PanelCount(); ++i) {
      const TkxLayoutPanel* c = pl.panel->Panels(i);
      children.push_back({c, g, pl.x + kPad, y, pl.width - 2 * kPad});
      y += m[c].height + kGap;
    }
    places.insert(places.end(), children.rbegin(), children.rend());
  }
  column->width = m[grid.Layout()].width;
  column->height = kHeading + m[grid.Layout()].height;
  std::vector<const TControl*> unplaced;
  for (Integer i = 0; i < grid.ControlCount(); ++i)
    if (!placed.count(grid.Controls(i))) unplaced.push_back(grid.Controls(i));
  if (!unplaced.empty()) {
    TXItem* g = Group(top, "unplaced", "(unplaced)");
    Text(g, 0, column->height + 16, "(unplaced)");
    const Integer w = Cells(g, TextWidth("(unplaced)") + kPad, column->height + kGap - 2, unplaced);
    column->width = std::max(column->width, TextWidth("(unplaced)") + kPad + w);
    column->height += kCell + 2 * kGap;
  }
  fRows.back()->columns.push_back(std::move(column));
}

void TkxLayoutPicture::SaveToXItem(TXItem* item) const {
  item->Clear();
  item->set_AttrText("");
  item->set_Name("svg");
  item->set_Attr("xmlns", "http://www.w3.org/2000/svg");
  TXItem* defs = Element(item, "defs");
  TXItem* pattern = Element(defs, "pattern");
  pattern->set_Attr("id", "hatch");
  pattern->set_Attr("width", "6");
  pattern->set_Attr("height", "6");
  pattern->set_Attr("patternUnits", "userSpaceOnUse");
  pattern->set_Attr("patternTransform", "rotate(45)");
  Rect(pattern, 0, 0, 6, 6, "#dddddd", "none");
  TXItem* line = Element(pattern, "line");
  line->set_Attr("x1", "0");
  line->set_Attr("y1", "0");
  line->set_Attr("x2", "0");
  line->set_Attr("y2", "6");
  line->set_Attr("stroke", "#999999");
  line->set_Attr("stroke-width", "2");

  Integer width = 0, y = kGap;
  for (const auto& row : fRows) {
    if (!row->heading.empty()) {
      Text(item, kGap, y + 16, row->heading, true);
      y += kHeading;
    }
    Integer x = kGap, height = 0;
    for (const auto& column : row->columns) {
      TXItem* g = Element(item, "g");
      g->Assign(&column->drawing);
      g->set_Attr("transform", "translate(" + Num(x) + "," + Num(y) + ")");
      x += column->width + kColumnGap;
      height = std::max(height, column->height);
    }
    width = std::max(width, x);
    y += height + kColumnGap;
  }
  item->set_Attr("width", Num(width));
  item->set_Attr("height", Num(y));
  item->set_Attr("viewBox", "0 0 " + Num(width) + " " + Num(y));
  item->set_Attr("font-family", "sans-serif");
  item->set_Attr("font-size", "12");
}

void TkxLayoutPicture::SaveToFile(std::string_view fileName) const {
  TXItem item;
  SaveToXItem(&item);
  SaveXData(&item, true, fileName);
}

}  // namespace ostrel
