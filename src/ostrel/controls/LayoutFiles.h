// Layouts and merge schemas as XML files of the library's dialect, and a text drawing of a
// layout for people to read.
//
// A layout file holds one grid's panel tree with its controls (name and kind):
//
//   <layout name="FormGrid">
//     <control name="edTitle" kind="TEdit"/>            (controls of the root panel)
//     <panel name="Header">
//       <control name="edNo" kind="TEdit" visible="false"/>
//       <panel name="Details"> ... </panel>
//     </panel>
//   </layout>
//
// A merge schema file holds the items in order; source and target name controls of the
// grids the schema is loaded against, targetname is kept as TargetPointName:
//
//   <mergeschema targetlayout="FormGrid">
//     <item mode="mmAddChild" source="edX" sourceshift="parent" target="edA" targetshift=""/>
//     <item source="edY" targetname="edB"/>
//   </mergeschema>
//
// Attributes at their defaults (mode mmInsertAfter, shifts "root", visible true) are left out
// when writing and taken when absent.
#pragma once

#include <ostrel/controls/Kxlayouts.h>
#include <ostrel/xml/Xdoc.h>

#include <vector>

namespace ostrel {

// The grid's tree as a <layout> element (item is cleared first).
OSTREL_API void Layout_SaveToXItem(const TkxLayoutGrid& grid, TXItem* item);
// Replaces the grid's tree with the one of the <layout> element. A control is the grid's
// control of that name when it has one; otherwise a new TkxLayoutControl of that kind, owned
// by the grid's owner (or by the grid without one). The grid takes the file's name when it has
// none. A malformed element raises Exception naming what is wrong ("LoadLayout: ..."); the
// tree then holds what was read before.
OSTREL_API void Layout_LoadFromXItem(TkxLayoutGrid& grid, const TXItem* item);
OSTREL_API void Layout_SaveToFile(const TkxLayoutGrid& grid, std::string_view fileName);
OSTREL_API void Layout_LoadFromFile(TkxLayoutGrid& grid, std::string_view fileName);

// The schema as a <mergeschema> element (item is cleared first).
OSTREL_API void MergeSchema_SaveToXItem(const TkxLayoutMergeSchema& schema, TXItem* item);
// Replaces the schema's items with those of the element. Names of controls (source, target)
// are looked up among the direct controls of the grids, in order, and targetlayout among the
// grids' names; a name found nowhere, an unknown mode or element raises Exception
// ("LoadMergeSchema: ...").
OSTREL_API void MergeSchema_LoadFromXItem(TkxLayoutMergeSchema& schema, const TXItem* item,
                                          const std::vector<TkxLayoutGrid*>& grids);
OSTREL_API void MergeSchema_SaveToFile(const TkxLayoutMergeSchema& schema, std::string_view fileName);
OSTREL_API void MergeSchema_LoadFromFile(TkxLayoutMergeSchema& schema, std::string_view fileName,
                                         const std::vector<TkxLayoutGrid*>& grids);

// The tree as text, one panel a line indented by two blanks a level, after the grid's name:
//
//   FormGrid: edTitle (TEdit)
//     Header: edNo (TEdit, hidden)
//       Details
//
// A panel without a name shows as "(panel)"; lines end with LF.
OSTREL_API AnsiString Layout_Draw(const TkxLayoutGrid& grid);

}  // namespace ostrel
