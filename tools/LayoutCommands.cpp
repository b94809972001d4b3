// `ostrel layout show` and `ostrel layout merge`: layout files drawn as text or as an SVG
// picture, and a frame's layout merged into a form's by a schema. docs/LAYOUTS.md describes
// the files.
#include "Cli.h"

#include <ostrel/controls/LayoutFiles.h>
#include <ostrel/rtl/Format.h>

namespace ostrel::cli {
namespace {

// A grid loaded from a file, owned by a component of its own as a form owns its grid.
struct LoadedLayout {
  TComponent owner{nullptr};
  TkxLayoutGrid* grid = NewComponent<TkxLayoutGrid>(owner);
  explicit LoadedLayout(const AnsiString& fileName) { Layout_LoadFromFile(*grid, fileName); }
};

AnsiString Caption(std::string_view role, const TkxLayoutGrid& grid) {
  return AnsiString(role) + ": " + (grid.Name().empty() ? AnsiString("(unnamed)") : grid.Name());
}

int RunShow(Cli& cli, const Args& args) {
  LoadedLayout layout(args.Values()[0]);
  if (const AnsiString* svg = args.Value("--svg")) {
    TkxLayoutPicture picture;
    picture.Add(*layout.grid, Caption("layout", *layout.grid));
    picture.SaveToFile(*svg);
    return 0;
  }
  cli.Write(Layout_Draw(*layout.grid));
  return 0;
}

int RunMerge(Cli& cli, const Args& args) {
  const std::vector<AnsiString>& files = args.Values();
  const bool merge = !args.Flag("--no-merge");
  LoadedLayout form(files[0]), frame(files[1]);
  TkxLayoutMergeSchema schema(nullptr);
  MergeSchema_LoadFromFile(schema, files[2], {form.grid, frame.grid});

  TkxLayoutPicture picture;
  const AnsiString* svg = args.Value("--svg");
  if (svg) {
    picture.NewRow("before");
    picture.Add(*form.grid, Caption("form", *form.grid));
    picture.Add(*frame.grid, Caption("frame", *frame.grid));
  }
  // The items one by one, as Apply runs them, so that a failure can name its item; the
  // items before it stay applied, and that state is what gets drawn and saved.
  AnsiString failure;
  const Integer count = schema.Items()->Count();
  for (Integer i = 0; i < count && failure.empty(); ++i) {
    TkxLayoutMergeItem* item = schema.Items()->Items(i);
    try {
      item->DoMerge(schema.TargetLayout(), merge);
    } catch (const Exception& e) {
      failure = Format("%s: item %d of %d (%s): %s", files[2], i + 1, count, item->GetDisplayName(),
                       e.Message());
    }
  }
  if (svg) {
    picture.NewRow(failure.empty()
                       ? AnsiString(merge ? "after the merge" : "after hiding the sources")
                       : AnsiString("as the failure left them"));
    picture.Add(*form.grid, Caption("form", *form.grid));
    picture.Add(*frame.grid, Caption("frame", *frame.grid));
    picture.SaveToFile(*svg);
  }
  const AnsiString* formOut = args.Value("-o");
  const AnsiString* frameOut = args.Value("--frame-out");
  if (formOut) Layout_SaveToFile(*form.grid, *formOut);
  if (frameOut) Layout_SaveToFile(*frame.grid, *frameOut);
  if (!failure.empty() || (!formOut && !frameOut && !svg)) {
    cli.Write(Layout_Draw(*form.grid));
    cli.Write(Layout_Draw(*frame.grid));
  }
  if (!failure.empty()) throw Exception(failure);
  return 0;
}

}  // namespace

OSTREL_CLI_COMMAND(.name = "layout show",
                   .summary = "Draw a layout file as a text tree or an SVG picture", .run = RunShow,
                   .usage = "FILE",
                   .options = {{"--svg", "OUT",
                                "draw the layout as an SVG picture into OUT instead"}},
                   .minValues = 1, .maxValues = 1,
                   .details =
                       "Each line of the tree is a panel with its controls; docs/LAYOUTS.md "
                       "describes the file.");
OSTREL_CLI_COMMAND(
        .name = "layout merge", .summary = "Merge a frame's layout into a form's by a schema",
        .run = RunMerge, .usage = "FORM FRAME SCHEMA",
        .options = {{"--no-merge", nullptr,
                     "hide the frame's source panels instead of moving them"},
                    {"-o", "OUT", "save the form's layout to OUT"},
                    {"--frame-out", "OUT", "save the frame's layout to OUT"},
                    {"--svg", "OUT",
                     "draw form and frame, before and after, as an SVG picture into OUT"}},
        .minValues = 3, .maxValues = 3,
        .details =
            "Without -o, --frame-out or --svg both layouts are drawn as text. A schema without\n"
            "targetlayout merges into the form. When an item fails, the error names it, the\n"
            "layouts are drawn (and saved) as the failure left them, with the items before it\n"
            "applied, and the exit status is 1.");

}  // namespace ostrel::cli
