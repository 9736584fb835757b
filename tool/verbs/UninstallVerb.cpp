// wlhid uninstall: takes the router away.
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

/// Why there is nothing to remove, or nothing that the framework would remove; empty where there
/// is. The framework asks for authorization first and looks then.
std::string whyNothingToRemove(const RouterVersions& there) {
  if (WLHIDEventRouterClient::isInstalled()) return {};
  if (!there.installed) return "it is not installed";
  const RouterCopy& installed = *there.installed;
  if (installed.state != CopyState::Complete)
    return installed.problem + " (" + commandLine({"install"}) + " puts it right first)";
  return "the installed version is " + installed.version + ", and this command removes its own, " +
         there.bundle.version +
         ", only (install it first: " + commandLine(installArguments(there)) + ")";
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
  print("The router is removed.\n");
  return ExitDone;
}

}  // namespace

void addUninstallVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<UninstallOptions>();
  CLI::App* verb = app.add_subcommand("uninstall", "Removes the router");
  addAuthorizationOptions(*verb, options->prompt, options->answer);
  verb->footer(
      "Asks for authorization on the terminal, where there is something to remove. Clients that\n"
      "route at that time are told, and end.\n"
      "\n"
      "Example:\n"
      "  wlhid uninstall --prompt \"Remove the event router?\"");
  verb->callback([options, &chosen] { chosen = [options] { return uninstall(*options); }; });
}

}  // namespace tool
