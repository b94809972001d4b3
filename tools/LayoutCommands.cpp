// `ostrel layout show FILE`: draws the panel tree of a layout file.
// `ostrel layout merge FORM FRAME SCHEMA [--no-merge] [-o OUT]`: loads a form's layout and an
// embedded frame's layout, applies the merge schema (hides the frame's sources instead under
// --no-merge), then draws both layouts, or saves the form's layout to OUT.
#include "Cli.h"

#include <ostrel/controls/LayoutFiles.h>

namespace ostrel::cli {
namespace {

// A grid loaded from a file, owned by a component of its own as a form owns its grid.
struct LoadedLayout {
  TComponent owner{nullptr};
  TkxLayoutGrid* grid = NewComponent<TkxLayoutGrid>(owner);
  explicit LoadedLayout(const AnsiString& fileName) { Layout_LoadFromFile(*grid, fileName); }
};

int RunShow(Cli& cli, const std::vector<AnsiString>& args) {
  if (args.size() != 1) throw UsageError("layout show takes one FILE");
  LoadedLayout layout(args[0]);
  cli.Write(Layout_Draw(*layout.grid));
  return 0;
}

int RunMerge(Cli& cli, const std::vector<AnsiString>& args) {
  std::vector<AnsiString> files;
  bool merge = true;
  AnsiString out;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--no-merge") {
      merge = false;
    } else if (args[i] == "-o") {
      if (++i == args.size()) throw UsageError("-o needs a file name");
      out = args[i];
    } else if (!args[i].empty() && args[i][0] == '-') {
      throw UsageError("unknown option '" + args[i] + "' for layout merge");
    } else {
      files.push_back(args[i]);
    }
  }
  if (files.size() != 3) throw UsageError("layout merge takes FORM, FRAME and SCHEMA files");
  LoadedLayout form(files[0]), frame(files[1]);
  TkxLayoutMergeSchema schema(nullptr);
  MergeSchema_LoadFromFile(schema, files[2], {form.grid, frame.grid});
  // A schema that names no target layout merges into the form.
  if (!schema.TargetLayout()) schema.SetTargetLayout(form.grid);
  schema.Apply(merge);
  if (!out.empty()) {
    Layout_SaveToFile(*form.grid, out);
    return 0;
  }
  cli.Write(Layout_Draw(*form.grid));
  cli.Write(Layout_Draw(*frame.grid));
  return 0;
}

int RunLayout(Cli& cli, std::vector<AnsiString> args) {
  if (args.empty()) throw UsageError("layout needs 'show' or 'merge'");
  const AnsiString action = args[0];
  args.erase(args.begin());
  if (action == "show") return RunShow(cli, args);
  if (action == "merge") return RunMerge(cli, args);
  throw UsageError("unknown layout action '" + action + "' (show, merge)");
}

}  // namespace

OSTREL_CLI_COMMAND("layout", "Draw a layout file, or merge a frame's layout into a form's by a schema",
                   "show FILE | merge FORM FRAME SCHEMA [--no-merge] [-o OUT]", RunLayout);

}  // namespace ostrel::cli
