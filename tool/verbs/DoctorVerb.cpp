// SPDX-License-Identifier: Apache-2.0

// wlhid doctor: is everything in order, and if not, how to fix it.
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/findings/Diagnosis.h"
#include "tool/findings/InventoryJson.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

int examine(bool json) {
  const Diagnosis diagnosis = diagnose(takeInventory(platform::SystemRoot::current()));
  print(json ? dumped(jsonOf(diagnosis)) : linesOf(diagnosis, showsColours(STDOUT_FILENO)));
  return diagnosis.inOrder ? ExitDone : ExitNotSo;
}

}  // namespace

void addDoctorVerb(CLI::App& app, Action& chosen) {
  auto json = std::make_shared<bool>(false);
  CLI::App* verb = app.add_subcommand(
      "doctor", "Checks everything that routing needs, and says how to fix what is wrong");
  verb->add_flag("--json", *json, "Print one JSON object");
  verb->footer(
      "The first line is the verdict. Nothing is changed, and nothing started, except on the\n"
      "system's own root, where router and job daemon start when they are asked. A command after\n"
      "\"->\" can be pasted into a shell as is.\n"
      "Exit status: 0 everything is in order, 1 something is not.\n"
      "\n"
      "Example:\n"
      "  wlhid doctor");
  verb->callback([json, &chosen] { chosen = [json] { return examine(*json); }; });
}

}  // namespace tool
