// wlhid uninstall: takes the router away.
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "tool/Authorize.h"
#include "tool/Command.h"
#include "tool/RouterVersions.h"

namespace tool {

namespace {

struct Options {
  std::string prompt;
  std::string answer;
};

/// Why nothing was removed. The framework gives an error only where authorization failed; what else
/// can be is seen from what was there before.
std::string explain(const RouterVersions& before, const std::shared_ptr<platform::NSError>& error) {
  if (error) return describeError(error);
  if (!before.installed) return "it is not installed";
  if (before.installed->version != before.bundle.version) {
    return "the installed version is " +
           (before.installed->version.empty() ? "unknown" : before.installed->version) +
           ", and this command removes its own, " + before.bundle.version +
           ", only (install it first)";
  }
  return "the job could not be removed";
}

int uninstall(const Options& options) {
  applyAuthorizationAnswer(options.answer);
  const auto prompt =
      options.prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(options.prompt);
  const RouterVersions before = readRouterVersions();
  bool removed = false;
  std::shared_ptr<platform::NSError> reason;
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(
      prompt, [&](bool success, const std::shared_ptr<platform::NSError>& error) {
        removed = success;
        reason = error;
      });
  if (!removed) throw Failure("the router was not removed: " + explain(before, reason));
  print("The router is removed.\n");
  return ExitDone;
}

}  // namespace

void addUninstallVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("uninstall", "Removes the router");
  addAuthorizationOptions(*verb, options->prompt, options->answer);
  verb->footer(
      "Clients that route at that time are told, and end.\n"
      "\n"
      "Example:\n"
      "  wlhid uninstall --prompt \"Remove the event router?\"");
  verb->callback([options, &chosen] { chosen = [options] { return uninstall(*options); }; });
}

}  // namespace tool
