// Layout and merge schema files from any bytes: the input is a form's layout, a frame's
// layout and a schema, separated by NUL bytes. Whatever reads must draw (as text and as a
// picture), save and read back to the same drawing; the schema, read against both grids, is
// applied with and without merging, and every failure must be the library's own.
#include <FuzzUtil.h>

#include <ostrel/controls/LayoutFiles.h>
#include <ostrel/xml/Xmlutils.h>

using namespace ostrel;

namespace {

bool Read(TXItem& item, std::string_view text) {
  TMemoryStream in;
  if (!text.empty()) in.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  in.SetPosition(0);
  return fuzz::Guarded([&] { LoadXData(&item, in); });
}

// Loads the layout into grid; a layout that loads must draw, save and load back unchanged.
bool Load(TkxLayoutGrid& grid, std::string_view text) {
  TXItem item;
  if (!Read(item, text) || !fuzz::Guarded([&] { Layout_LoadFromXItem(grid, &item); })) return false;
  const AnsiString drawing = Layout_Draw(grid);
  TXItem saved;
  Layout_SaveToXItem(grid, &saved);
  TComponent owner(nullptr);
  auto* again = NewComponent<TkxLayoutGrid>(owner);
  fuzz::Require(fuzz::Guarded([&] { Layout_LoadFromXItem(*again, &saved); }),
                "a saved layout does not read back", drawing);
  fuzz::Require(Layout_Draw(*again) == drawing, "a saved layout reads back differently", drawing);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string_view formText = input.Until('\0');
  const std::string_view frameText = input.Until('\0');
  const std::string_view schemaText = input.Rest();
  for (const bool merge : {false, true}) {
    TComponent form(nullptr), frame(nullptr);
    auto* formGrid = NewComponent<TkxLayoutGrid>(form);
    auto* frameGrid = NewComponent<TkxLayoutGrid>(frame);
    if (!Load(*formGrid, formText)) return 0;
    Load(*frameGrid, frameText);
    TkxLayoutMergeSchema schema(nullptr);
    TXItem item;
    if (!Read(item, schemaText) || !fuzz::Guarded([&] {
          MergeSchema_LoadFromXItem(schema, &item, {formGrid, frameGrid});
        }))
      return 0;
    TXItem saved;
    MergeSchema_SaveToXItem(schema, &saved);
    TkxLayoutMergeSchema again(nullptr);
    fuzz::Require(fuzz::Guarded([&] {
                    MergeSchema_LoadFromXItem(again, &saved, {formGrid, frameGrid});
                  }),
                  "a saved schema does not read back");
    fuzz::Require(again.Items()->Count() == schema.Items()->Count(), "a saved schema loses items");
    fuzz::Guarded([&] { schema.Apply(merge); });
    Layout_Draw(*formGrid);
    TkxLayoutPicture picture;  // refuses trees too deep for a picture
    if (fuzz::Guarded([&] { picture.Add(*formGrid, "form"); }) &&
        fuzz::Guarded([&] { picture.Add(*frameGrid, "frame"); })) {
      TXItem svg;
      picture.SaveToXItem(&svg);
    }
  }
  return 0;
}
