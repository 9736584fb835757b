// SPDX-License-Identifier: Apache-2.0

#include "tool/command/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/command/Suggestion.h"

namespace tool {
namespace {

constexpr const char* kDescription =
    "Installs, inspects and uses the HID event router.\n"
    "\n"
    "Exit status: 0 success, or yes; 1 failure, or no; 2 usage error.";

std::vector<const CLI::App*> verbsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> namesOfVerbs(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* verb : verbsOf(app)) names.push_back(verb->get_name());
  return names;
}

std::string unknownVerb(const CLI::App& app, const std::string& typed) {
  const std::string meant = closestTo(typed, namesOfVerbs(app));
  return "unknown verb \"" + typed + "\"" +
         (meant.empty() ? "" : "; did you mean \"" + meant + "\"?");
}

/// Prints the help of the verb, or nested verb, that the words name.
int help(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* at = &app;
  std::string name = app.get_name();
  for (const std::string& word : words) {
    const auto verbs = verbsOf(*at);
    const auto named =
        std::ranges::find(verbs, word, [](const auto* verb) { return verb->get_name(); });
    if (named == verbs.end()) throw UsageFailure(unknownVerb(*at, word));
    at = *named;
    name += " " + word;
  }
  // Not the parser's own function: that would print the help of the chosen verb, which is "help".
  print(at->get_formatter()->make_help(at, name, CLI::AppFormatMode::Normal));
  return ExitDone;
}

void addHelpVerb(CLI::App& app, Action& chosen) {
  auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* verb = app.add_subcommand("help", "Explains the command or one of its verbs");
  verb->add_option("VERB", *words, "A verb (default: the command itself)");
  verb->footer("Example:\n  wlhid help devices add");
  verb->callback([words, &app, &chosen] { chosen = [words, &app] { return help(app, *words); }; });
}

/// Points to the most specific help: that of the verb that was typed.
std::string helpHint(const CLI::App& app) {
  std::string command = "wlhid";
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    command += " " + at->get_name();
  }
  return " (see " + command + " --help)";
}

/// What is wrong with the command line. The parser reports a missing verb before it looks at what
/// was typed instead.
std::string explain(const CLI::App& app, const CLI::ParseError& error) {
  const auto rest = app.remaining();
  if (app.get_subcommands().empty() && !rest.empty()) return unknownVerb(app, rest.front());
  if (app.get_subcommands().empty() && error.get_name() == "RequiredError")
    return "a verb is required";
  return error.what();
}

bool isSet(const char* variable) {
  const char* const value = ::secure_getenv(variable);
  return value != nullptr && *value != '\0';
}

int runChosen(const std::string& program, const std::string& root, const Action& chosen) {
  setInvocation(program, !root.empty() || isSet("WLHID_ROOT"));
  if (!root.empty()) platform::SystemRoot::setCurrent(platform::SystemRoot(root));
  return chosen();
}

}  // namespace

void describeCommand(CLI::App& app, std::string& root, Action& chosen) {
  app.description(kDescription);
  app.name("wlhid");
  app.set_version_flag("--version", "wlhid " WLHID_VERSION);
  app.add_option("--root", root,
                 "The system root: the directory that holds router, jobs and log\n"
                 "(default: $WLHID_ROOT, else / if the router's package is installed, else\n"
                 "wlhid/root in the user's state directory)")
      ->type_name("DIR")
      ->check([](const std::string& value) { return value.empty() ? "is empty" : std::string(); });
  app.require_subcommand(1);
  app.fallthrough();
  app.get_formatter()->column_width(28);
  addStatusVerb(app, chosen);
  addInstallVerb(app, chosen);
  addUninstallVerb(app, chosen);
  addInspectVerb(app, chosen);
  addSessionsVerb(app, chosen);
  addDevicesVerb(app, chosen);
  addGrantVerbs(app, chosen);
  addRouteVerb(app, chosen);
  addRecordVerb(app, chosen);
  addMeasureVerb(app, chosen);
  addMonitorVerb(app, chosen);
  addTestVerb(app, chosen);
  addPictureVerb(app, chosen);
  addDescriptorVerb(app, chosen);
  addLogVerb(app, chosen);
  addReportVerb(app, chosen);
  addDoctorVerb(app, chosen);
  addSignVerb(app, chosen);
  addHelpVerb(app, chosen);
}

int runCommandLine(int argc, const char* const* argv) try {
  CLI::App app;
  std::string root;
  Action chosen;
  describeCommand(app, root, chosen);
  try {
    app.parse(argc, argv);
    return runChosen(argc > 0 ? argv[0] : "", root, chosen);
  } catch (const CLI::Success& asked) {  // --help, --version
    std::ostringstream text;
    app.exit(asked, text, text);
    print(text.str());
    return ExitDone;
  } catch (const CLI::ParseError& error) {
    complain(explain(app, error) + helpHint(app));
    return ExitWrongUsage;
  } catch (const UsageFailure& error) {
    complain(error.what() + helpHint(app));
    return ExitWrongUsage;
  }
} catch (const std::exception& error) {  // also if a handler above cannot print
  complain(error.what());
  return ExitNotSo;
}

}  // namespace tool
