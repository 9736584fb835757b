// SPDX-License-Identifier: Apache-2.0

// wlhid install: installs the router.
#include <CLI/CLI.hpp>

#include "tool/command/Command.h"
#include "tool/findings/RouterVersions.h"
#include "tool/installing/Authorize.h"
#include "tool/installing/Installation.h"

namespace tool {

namespace {

struct InstallOptions {
  std::string prompt;
  std::string answer;
  bool force = false;
};

/// Announces a downgrade, which needs --force.
void announceReplacement(const RouterVersions& there, bool force) {
  if (!isDowngrade(there)) return;
  const std::string what = "version " + there.installed->version +
                           " is installed, and this command carries the older version " +
                           there.bundle.version;
  if (!force)
    throw Failure("the router was not installed: " + what + " (--force replaces it anyway)");
  print(oneLine("Replacing: " + what + ".") + "\n");
}

int install(const InstallOptions& options) {
  applyAuthorizationAnswer(options.answer);
  const RouterVersions there = readRouterVersions();
  announceReplacement(there, options.force);
  requireSystemDaemon();
  const auto prompt =
      options.prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(options.prompt);
  installRouter(prompt);
  print(oneLine("The router is installed, version " + there.bundle.version + ".") + "\n");
  return ExitDone;
}

}  // namespace

void addInstallVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<InstallOptions>();
  CLI::App* verb =
      app.add_subcommand("install", "Installs the router, or replaces an installed one");
  addAuthorizationOptions(*verb, options->prompt, options->answer);
  verb->add_flag("--force", options->force, "Replace a newer version with this older one");
  verb->footer(
      "Asks for authorization on the terminal, then installs the router that comes with this "
      "command.\n"
      "\n"
      "Example:\n"
      "  wlhid install --prompt \"The editor needs the event router for your foot switch.\"");
  verb->callback([options, &chosen] { chosen = [options] { return install(*options); }; });
}

}  // namespace tool
