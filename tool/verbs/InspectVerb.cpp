// SPDX-License-Identifier: Apache-2.0

// wlhid inspect: the property list inside an executable.
#include <CLI/CLI.hpp>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "tool/command/Command.h"
#include "tool/files/Files.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

int inspect(const std::string& path) {
  const auto list = KQPrivilegedHelperManager::extractInfoPlistFromData(readWholeFile(path));
  if (!list)
    throw Failure(path +
                  ": no embedded property list (section __TEXT,__info_plist of a Mach-O file)");
  printBytes({reinterpret_cast<const char*>(list->bytes()), list->length()});
  return ExitDone;
}

}  // namespace

void addInspectVerb(CLI::App& app, Action& chosen) {
  auto path = std::make_shared<std::string>();
  CLI::App* verb =
      app.add_subcommand("inspect", "Prints the property list that is embedded in an executable");
  verb->add_option("EXECUTABLE", *path, "A Mach-O file, thin or fat")->required();
  verb->footer(
      "Files and pipes get the exact bytes of the executable.\n"
      "\n"
      "Example:\n"
      "  wlhid inspect build/Contents/Library/LaunchServices/com.quillmar.hideventrouter");
  verb->callback([path, &chosen] { chosen = [path] { return inspect(*path); }; });
}

}  // namespace tool
