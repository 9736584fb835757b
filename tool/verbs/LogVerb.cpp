// SPDX-License-Identifier: Apache-2.0

// wlhid log: the router's own entries of a log.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "diagnostics/LogExcerpt.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/files/NewFile.h"
#include "tool/findings/Inventory.h"
#include "tool/report/LogModules.h"
#include "tool/terminal/StopCleanup.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

using Excerpt = std::shared_ptr<platform::NSData>;

struct LogOptions {
  std::string file;
  std::string output;
};

Excerpt excerptOfFile(const std::string& path) {
  const auto text = platform::NSString::stringWithUTF8(path);
  if (!text) throw Failure(path + ": the file name is not UTF-8");
  const auto excerpt = diagnostics::readLogExcerpt(platform::NSURL::fileURLWithPath(text));
  if (excerpt.error) throw Failure(describeError(excerpt.error));
  return excerpt.data;
}

/// Through the log module, as in every report.
Excerpt excerptOfSystemLog() {
  const auto modules = askLogModules();
  const auto ours =
      std::ranges::find(modules, textOf(KQLogModuleIdentifierWLHIDEventRouterLogFileProvider),
                        &ModuleFiles::identifier);
  if (ours == modules.end() || ours->files.empty())
    throw Failure("the system log: no log module provides it");
  const ModuleContent content = readModuleFile(ours->files.front());
  if (!content.problem.empty()) throw Failure("the system log: " + content.problem);
  return content.data;
}

std::string_view textOf(const Excerpt& excerpt) {
  return {reinterpret_cast<const char*>(excerpt->bytes()), excerpt->length()};
}

void save(const Excerpt& excerpt, const std::string& path) {
  StopSignals signals;
  NewFile file(path);
  const StopCleanup cleanUp(signals, [&file] { file.discard(); });
  file.write(excerpt->span());
  file.keep();
}

/// Whether the root's log does not exist yet or is empty.
bool nothingIsLoggedYet() {
  const LogState log = logOf(platform::SystemRoot::current());
  return !log.exists || (log.problem.empty() && log.bytes == 0);
}

std::string nothingLogged() {
  return "nothing has been logged yet on the system root " +
         platform::SystemRoot::current().path().string() +
         " (the log is created with a job's first line)";
}

int log(const LogOptions& options) {
  if (options.file.empty() && nothingIsLoggedYet()) {
    if (!options.output.empty()) throw Failure(nothingLogged());
    complain(nothingLogged());
    return ExitDone;
  }
  const Excerpt excerpt = options.file.empty() ? excerptOfSystemLog() : excerptOfFile(options.file);
  if (options.output.empty()) {
    printBytes(textOf(excerpt));
  } else {
    save(excerpt, options.output);
  }
  return ExitDone;
}

}  // namespace

void addLogVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<LogOptions>();
  CLI::App* verb = app.add_subcommand("log", "Prints the router's own entries of a log");
  const auto isNotEmpty = [](const std::string& value) {
    return value.empty() ? "is empty" : std::string();
  };
  verb->add_option("FILE", options->file, "A log file (default: the system root's log)")
      ->check(isNotEmpty);
  verb->add_option("-o,--output", options->output,
                   "Write to this file instead of standard output, whole or not at all")
      ->type_name("OUT")
      ->check(isNotEmpty);
  verb->footer(
      "Entries are printed whole, including continuation lines. A terminal gets control "
      "characters\n"
      "as visible escapes; files and pipes get every byte as logged.\n"
      "\n"
      "Examples:\n"
      "  wlhid log\n"
      "  wlhid log old/system.log.0 -o router.log");
  verb->callback([options, &chosen] { chosen = [options] { return log(*options); }; });
}

}  // namespace tool
