// SPDX-License-Identifier: Apache-2.0

// wlhid uninstall: removes the router.
#include <CLI/CLI.hpp>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/findings/RouterVersions.h"
#include "tool/installing/Authorize.h"

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

int uninstall(const UninstallOptions& options) {
  applyAuthorizationAnswer(options.answer);
  const auto prompt =
      options.prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(options.prompt);
  const std::string nothing = whyNothingToRemove(readRouterVersions());
  if (!nothing.empty()) throw Failure("the router was not removed: " + nothing);
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
