// Layouts and merge schemas as XML files of the library's dialect, a text drawing of a layout
// and an SVG picture of layouts, for people to read. docs/LAYOUTS.md describes both file
// formats with examples; in short:
//
//   <layout name="FormGrid">
//     <control name="edTitle" kind="TEdit"/>            (controls of the root panel)
//     <panel name="Header">
//       <control name="edNo" kind="TEdit" visible="false"/>
//       <control name="gbAddress" kind="TGroupBox">     (a control holding controls)
//         <control name="edCity" kind="TEdit"/>
//       </control>
//       <panel name="Details"> ... </panel>
//     </panel>
//     <unplaced>                                        (on the grid, in no panel)
//       <control name="lblHint" kind="TLabel"/>
//     </unplaced>
//   </layout>
//
//   <mergeschema targetlayout="FormGrid">               ("" for none; absent: the first grid)
//     <item mode="child" source="FrameGrid.edX" sourceshift="parent" target="edA" targetshift=""/>
//     <item source="edY" targetname="edB"/>
//   </mergeschema>
//
// Reading is strict: an element, attribute or value the format does not know raises Exception
// naming the file, line and column of the element ("form.xml:4:5: ...") and what is allowed
// there; read from an item rather than a file, the message starts with the operation
// ("LoadLayout: ...", "LoadMergeSchema: ..."). Attributes at their defaults (mode
// mmInsertAfter, shifts "root", visible true) are left out when writing.
#pragma once

#include <ostrel/controls/Kxlayouts.h>
#include <ostrel/xml/Xdoc.h>

#include <memory>
#include <vector>

namespace ostrel {

// ---- layouts ---------------------------------------------------------------------------

// The grid's tree as a <layout> element (item is cleared first).
OSTREL_API void Layout_SaveToXItem(const TkxLayoutGrid& grid, TXItem* item);
// Replaces the grid's tree with the one of the <layout> element. A control is the grid's
// (or its holding control's) control of that name when it has one; otherwise a new
// TkxLayoutControl of that kind, or a TkxLayoutContainer when it holds controls, owned by the
// grid's owner (or by the grid without one). The grid takes the file's name when it has none.
// A malformed element raises Exception; the tree then holds what was read before.
OSTREL_API void Layout_LoadFromXItem(TkxLayoutGrid& grid, const TXItem* item);
OSTREL_API void Layout_SaveToFile(const TkxLayoutGrid& grid, std::string_view fileName);
OSTREL_API void Layout_LoadFromFile(TkxLayoutGrid& grid, std::string_view fileName);

// ---- merge schemas ---------------------------------------------------------------------

// The schema as a <mergeschema> element (item is cleared first). Controls are written as
// paths from their grid ("FrameGrid.gbAddress.edCity") when the grid has a name, so that a
// name present on two grids reads back as the same control.
OSTREL_API void MergeSchema_SaveToXItem(const TkxLayoutMergeSchema& schema, TXItem* item);
// Replaces the schema's items with those of the element; a failure leaves the schema as it
// was. A control path whose first step names one of the grids is looked up on that grid;
// any other path on each grid in order (the first grid wins a name present on two). Each
// further step goes into a control holding controls. targetlayout names one of the grids,
// "" none; without it the schema merges into the first grid.
OSTREL_API void MergeSchema_LoadFromXItem(TkxLayoutMergeSchema& schema, const TXItem* item,
                                          const std::vector<TkxLayoutGrid*>& grids);
OSTREL_API void MergeSchema_SaveToFile(const TkxLayoutMergeSchema& schema,
                                       std::string_view fileName);
OSTREL_API void MergeSchema_LoadFromFile(TkxLayoutMergeSchema& schema, std::string_view fileName,
                                         const std::vector<TkxLayoutGrid*>& grids);
// A merge mode from its name ("mmAddChild", "AddChild"), its short name ("after", "before",
// "child") or its number ("0" to "2"), in any letter case; false for anything else.
OSTREL_API bool MergeMode_FromText(std::string_view text, TkxLayoutMergeMode& mode);
// The full name: "mmInsertAfter", "mmInsertBefore", "mmAddChild".
OSTREL_API AnsiString MergeMode_ToText(TkxLayoutMergeMode mode);

// ---- drawings --------------------------------------------------------------------------

// A control as the drawings show it: "edNo (TEdit)", "edNo (TEdit, hidden)", and for a
// control holding others "gbAddress (TGroupBox: edCity (TEdit), edStreet (TEdit))".
OSTREL_API AnsiString Layout_ControlText(const TControl& control);

// The tree as text, one panel a line indented by two blanks a level, after the grid's name;
// controls on the grid in no panel follow on a line of their own:
//
//   FormGrid: edTitle (TEdit)
//     Header: edNo (TEdit, hidden)
//       Details
//   (unplaced): lblHint (TLabel)
//
// A panel without a name shows as "(panel)"; lines end with LF. Below 40 levels the
// indentation stays and a line starts with its level instead: "[41] Name".
OSTREL_API AnsiString Layout_Draw(const TkxLayoutGrid& grid);

// Layouts drawn as an SVG picture: each layout a column under its caption, each panel a
// labelled box (an SVG group of class "panel" whose <title> is the panel's name) nested in
// its parent's, each control a labelled cell (class "control"). Hidden controls, and panels
// whose controls are all hidden, are drawn greyed and hatched (class "... hidden"). Rows of
// columns stack downwards (a merge: before, then after).
class OSTREL_API TkxLayoutPicture {
 public:
  TkxLayoutPicture();
  ~TkxLayoutPicture();
  TkxLayoutPicture(const TkxLayoutPicture&) = delete;
  TkxLayoutPicture& operator=(const TkxLayoutPicture&) = delete;

  // Starts a row of columns under a heading (the first row starts by itself).
  void NewRow(std::string_view heading = {});
  // Draws the grid as it is now as the next column of the current row. A tree more than
  // 1000 panels deep raises Exception (its picture would grow with the square of its depth).
  void Add(const TkxLayoutGrid& grid, std::string_view caption);
  // The picture as an <svg> element (item is cleared first), or as a file.
  void SaveToXItem(TXItem* item) const;
  void SaveToFile(std::string_view fileName) const;

 private:
  struct Row;
  std::vector<std::unique_ptr<Row>> fRows;
};

}  // namespace ostrel
