// wlhid log: the router's own entries of a log.
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "diagnostics/LogExcerpt.h"
#include "tool/Command.h"
#include "tool/LogModules.h"
#include "tool/NewFile.h"
#include "tool/StopCleanup.h"
#include "tool/Terminal.h"

namespace tool {

namespace {

using Excerpt = std::shared_ptr<platform::NSData>;

struct Options {
  std::string file;
  std::string output;
};

Excerpt excerptOfFile(const std::string& path) {
  const auto text = platform::NSString::stringWithUTF8(path);
  if (!text) throw Failure("the file's name is not UTF-8");
  const auto excerpt = diagnostics::readLogExcerpt(platform::NSURL::fileURLWithPath(text));
  if (excerpt.error) throw Failure(path + ": " + describeError(excerpt.error));
  return excerpt.data;
}

/// Through the log module, as every report gets it.
Excerpt excerptOfSystemLog() {
  const auto modules = askLogModules();
  const auto ours =
      std::ranges::find(modules, textOf(KQLogModuleIdentifierWLHIDEventRouterLogFileProvider),
                        &ModuleFiles::identifier);
  if (ours == modules.end() || ours->files.empty())
    throw Failure("the system log: there is no log module for it");
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

/// A terminal gets a line feed at the end and nothing that it would obey.
void show(const Excerpt& excerpt) {
  if (::isatty(STDOUT_FILENO) != 1) return print(textOf(excerpt));
  std::string text = safeForTerminal(textOf(excerpt));
  if (!text.empty() && text.back() != '\n') text += '\n';
  print(text);
}

int log(const Options& options) {
  const Excerpt excerpt = options.file.empty() ? excerptOfSystemLog() : excerptOfFile(options.file);
  if (options.output.empty()) {
    show(excerpt);
  } else {
    save(excerpt, options.output);
  }
  return ExitDone;
}

}  // namespace

void addLogVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("log", "Prints the router's own entries of a log");
  const auto isNotEmpty = [](const std::string& value) {
    return value.empty() ? "is empty" : std::string();
  };
  verb->add_option("FILE", options->file, "A log; without it, that of the system root")
      ->check(isNotEmpty);
  verb->add_option("-o,--output", options->output,
                   "Write to this file, whole or not at all, instead of standard output")
      ->type_name("OUT")
      ->check(isNotEmpty);
  verb->footer(
      "An entry is printed whole, lines of it that continue the first included.\n"
      "\n"
      "Examples:\n"
      "  wlhid log\n"
      "  wlhid log old/system.log.0 -o router.log");
  verb->callback([options, &chosen] { chosen = [options] { return log(*options); }; });
}

}  // namespace tool
