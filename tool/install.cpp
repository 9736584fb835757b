// wlhid install: puts the router in place.
#include "tool/Authorize.h"
#include "tool/Command.h"
#include "tool/Installation.h"
#include "tool/RouterVersions.h"

namespace tool {

namespace {

struct Options {
  std::string prompt;
  std::string answer;
};

int install(const Options& options) {
  applyAuthorizationAnswer(options.answer);
  const auto prompt =
      options.prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(options.prompt);
  installRouter(prompt);
  print("The router is installed, version " + readRouterVersions().bundle.version + ".\n");
  return ExitDone;
}

}  // namespace

void addInstallVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* verb =
      app.add_subcommand("install", "Installs the router, or replaces an installed one");
  addAuthorizationOptions(*verb, options->prompt, options->answer);
  verb->footer(
      "Asks for authorization on the terminal, then copies the router that lies beside this "
      "command.\n"
      "\n"
      "Example:\n"
      "  wlhid install --prompt \"The editor needs the event router for your foot switch.\"");
  verb->callback([options, &chosen] { chosen = [options] { return install(*options); }; });
}

}  // namespace tool
