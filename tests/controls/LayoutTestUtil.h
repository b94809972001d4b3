// Layout trees for the tests: built from a compact text and shown in the same text.
//
// Shape text: a panel is its name, its controls in brackets when it has any, and its child
// panels in parentheses: "Top[edA edB](Inner[edC]) Bottom". Hidden controls carry a '-'.
#pragma once

#include <ostrel/controls/Kxlayouts.h>

#include <string>

namespace ostrel::testutil {

inline std::string Shape(const TkxLayoutPanel& panel) {
  std::string s = panel.Name();
  if (panel.ControlCount()) {
    s += '[';
    for (Integer i = 0; i < panel.ControlCount(); ++i)
      s += (i ? " " : "") + panel.Controls(i)->Name() + (panel.Controls(i)->Visible() ? "" : "-");
    s += ']';
  }
  if (panel.PanelCount()) {
    s += '(';
    for (Integer i = 0; i < panel.PanelCount(); ++i) s += (i ? " " : "") + Shape(*panel.Panels(i));
    s += ')';
  }
  return s;
}

// The shape of the grid's root panel's children (the root itself has no name).
inline std::string Shape(const TkxLayoutGrid& grid) {
  std::string s = Shape(*grid.Layout());
  return s.size() >= 2 && s.front() == '(' ? s.substr(1, s.size() - 2) : s;
}

// Builds panels and controls below panel from shape text; controls are TkxLayoutControls owned
// by owner. Returns the position after what it read.
inline std::size_t Build(TkxLayoutPanel& panel, TComponent& owner, const std::string& text,
                         std::size_t pos = 0) {
  auto word = [&] {
    std::size_t start = pos;
    while (pos < text.size() && std::string(" []()").find(text[pos]) == std::string::npos) ++pos;
    return text.substr(start, pos - start);
  };
  while (pos < text.size() && text[pos] != ')') {
    if (text[pos] == ' ') {
      ++pos;
      continue;
    }
    TkxLayoutPanel* p = panel.AddPanel(word());
    if (pos < text.size() && text[pos] == '[') {
      ++pos;
      while (text[pos] != ']') {
        if (text[pos] == ' ') {
          ++pos;
          continue;
        }
        auto* c = NewComponent<TkxLayoutControl>(owner, "TEdit");
        c->SetName(word());
        p->AddControl(c);
      }
      ++pos;
    }
    if (pos < text.size() && text[pos] == '(') pos = Build(*p, owner, text, pos + 1) + 1;
  }
  return pos;
}

// A grid named name with the shape below its root; owned by owner, as are its controls.
inline TkxLayoutGrid* MakeGrid(TComponent& owner, const char* name, const std::string& shape) {
  auto* grid = NewComponent<TkxLayoutGrid>(owner);
  grid->SetName(name);
  Build(*grid->Layout(), owner, shape);
  return grid;
}

}  // namespace ostrel::testutil
