// SPDX-License-Identifier: Apache-2.0

// wlhid uninstall: removes the router.
#include <CLI/CLI.hpp>
#include <filesystem>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/Authorization.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/findings/RouterVersions.h"
#include "tool/installing/Authorize.h"
#include "tool/installing/Installation.h"

namespace tool {

namespace {

struct UninstallOptions {
  std::string prompt;
  std::string answer;
};

/// Why there is nothing to remove, or nothing that the framework would remove; empty if there is.
/// Checked here because the framework asks for authorization before it checks.
std::string whyNothingToRemove(const RouterVersions& there) {
  if (WLHIDEventRouterClient::isInstalled()) return {};
  if (!there.installed) return "it is not installed";
  const RouterCopy& installed = *there.installed;
  if (installed.state != CopyState::Complete)
    return installed.problem + " (repair it first with: " + commandLine({"install"}) + ")";
  return "the installed version is " + installed.version +
         ", and this command removes only its own, " + there.bundle.version +
         " (install that first: " + commandLine(installArguments(there)) + ")";
}

/// Why the installed one is not this command's to remove, on the system's own root.
std::string whyThePackages(const RouterVersions& there) {
  const auto root = platform::SystemRoot::current();
  if (!root.isSystem() || !there.installed) return {};
  const auto packaged = root.path() / root.places().layers.back().helpers;
  if (std::filesystem::path(there.installed->path).parent_path() != packaged) return {};
  return "it came with the package wlhid-router, and goes with it (apt remove wlhid-router)";
}

int uninstall(const UninstallOptions& options) {
  applyAuthorizationAnswer(options.answer);
  const auto prompt =
      options.prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(options.prompt);
  const RouterVersions there = readRouterVersions();
  std::string nothing = whyNothingToRemove(there);
  if (nothing.empty()) nothing = whyThePackages(there);
  if (!nothing.empty()) throw Failure("the router was not removed: " + nothing);
  requireSystemDaemon();
  platform::setAuthorizationPurpose(platform::ChangePurpose::Remove);
  bool removed = false;
  std::shared_ptr<platform::NSError> reason;
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(
      prompt, [&](bool success, const std::shared_ptr<platform::NSError>& error) {
        removed = success;
        reason = error;
      });
  if (!removed) {
    throw Failure("the router was not removed: " +
                  (reason
                       ? describeError(reason)
                       : "the job could not be removed (see why: " + commandLine({"log"}) + ")"));
  }
  print("The router has been removed.\n");
  return ExitDone;
}

}  // namespace

void addUninstallVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<UninstallOptions>();
  CLI::App* verb = app.add_subcommand("uninstall", "Removes the router");
  addAuthorizationOptions(*verb, options->prompt, options->answer);
  verb->footer(
      "Asks for authorization on the terminal if there is something to remove. Clients that are\n"
      "routing are notified and end.\n"
      "\n"
      "Example:\n"
      "  wlhid uninstall --prompt \"Remove the event router?\"");
  verb->callback([options, &chosen] { chosen = [options] { return uninstall(*options); }; });
}

}  // namespace tool
