// The command `wlhid`: what an application can ask of the framework, for people and scripts.
#include <csignal>
#include <exception>

#include "platform/services/SystemRoot.h"
#include "tool/Command.h"

namespace tool {
namespace {

constexpr const char* kDescription =
    "Installs, inspects and uses the HID event router.\n"
    "\n"
    "Exit status: 0 done, or it is so; 1 failed, or it is not so; 2 wrong usage.";

/// Fills `app` with the global options and all verbs.
void describe(CLI::App& app, std::string& root, Action& chosen) {
  app.description(kDescription);
  app.name("wlhid");
  app.set_version_flag("--version", "wlhid " WLHID_VERSION);
  app.add_option("--root", root,
                 "The system root: the directory under which router, jobs and log lie\n"
                 "(default: $WLHID_ROOT, else wlhid/root in the user's state directory)")
      ->type_name("DIR")
      ->check([](const std::string& value) { return value.empty() ? "is empty" : std::string(); });
  app.require_subcommand(1);
  app.fallthrough();
  app.get_formatter()->column_width(28);
  addStatusVerb(app, chosen);
  addInstallVerb(app, chosen);
  addUninstallVerb(app, chosen);
  addInspectVerb(app, chosen);
  addDevicesVerb(app, chosen);
  addRouteVerb(app, chosen);
  addLogVerb(app, chosen);
  addReportVerb(app, chosen);
  addDoctorVerb(app, chosen);
}

/// The usage that helps most: that of the verb which was begun.
std::string helpHint(const CLI::App& app) {
  std::string command = "wlhid";
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    command += " " + at->get_name();
  }
  return " (see " + command + " --help)";
}

/// What is wrong with the command line. The parser misses a verb before it looks at what stands in
/// its place.
std::string explain(const CLI::App& app, const CLI::ParseError& error) {
  const auto rest = app.remaining();
  if (app.get_subcommands().empty() && !rest.empty())
    return "there is no verb \"" + rest.front() + "\"";
  if (app.get_subcommands().empty() && error.get_name() == "RequiredError")
    return "a verb is required";
  return error.what();
}

int runChosen(const std::string& root, const Action& chosen) {
  if (!root.empty()) platform::SystemRoot::setCurrent(platform::SystemRoot(root));
  return chosen();
}

int run(int argc, const char* const* argv) {
  CLI::App app;
  std::string root;
  Action chosen;
  describe(app, root, chosen);
  try {
    app.parse(argc, argv);
    return runChosen(root, chosen);
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
}

}  // namespace
}  // namespace tool

int main(int argc, char** argv) {
  // A reader that has gone away and a file that may not grow are noticed where something is
  // written.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return tool::run(argc, argv);
  } catch (const std::exception& error) {
    tool::complain(error.what());
    return tool::ExitNotSo;
  }
}
