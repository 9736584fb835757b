// SPDX-License-Identifier: Apache-2.0

// wlhid report: a diagnostic report to attach to a bug report.
#include <CLI/CLI.hpp>
#include <optional>

#include "platform/kit/KQLogger.h"
#include "platform/kit/RecentLogLines.h"
#include "tool/command/Command.h"
#include "tool/files/NewFile.h"
#include "tool/report/DiagnosticReport.h"
#include "tool/routing/DeviceNames.h"
#include "tool/terminal/StopCleanup.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

struct ReportOptions {
  std::string output;
  std::string device;
  bool withInput = false;
  bool json = false;
};

std::string summaryOf(const ReportResult& result, const ReportOptions& options) {
  std::string text = oneLine(options.output) + ": " + std::to_string(result.parts.size() + 1) +
                     " files, " +
                     (options.withInput ? "with input and serial numbers: be careful who gets it\n"
                                        : "without input and serial numbers\n");
  text += "Open summary.html in it first: it says what is wrong.\n";
  for (const MissingPart& part : result.missing)
    text += "Missing: " + part.part + ": " + part.problem + "\n";
  return text;
}

ReportResult writeReportTo(const ReportOptions& options) {
  ReportRequest request{platform::SystemRoot::current(), options.withInput, std::nullopt, {}};
  if (!options.device.empty()) request.deviceToTry = registryEntryIDOf(options.device);
  StopSignals signals;
  NewFile file(options.output);
  const StopCleanup cleanUp(signals, [&file] { file.discard(); });
  ReportArchive archive(file);
  Progress progress(reportSteps(request));
  request.onStep = [&progress](std::string_view what) { progress.step(what); };
  ReportResult result = writeReport(request, archive);
  archive.finish();
  file.keep();
  return result;
}

int report(const ReportOptions& options) {
  platform::KQLogger::sharedLogger().recentLines().setKeepsInput(options.withInput);
  const ReportResult result = writeReportTo(options);
  print(options.json ? result.manifest : summaryOf(result, options));
  return ExitDone;
}

}  // namespace

void addReportVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<ReportOptions>();
  CLI::App* verb =
      app.add_subcommand("report", "Writes a diagnostic report to attach to a bug report");
  verb->add_option("OUT", options->output, "The zip archive to write, whole or not at all")
      ->required()
      ->check([](const std::string& value) { return value.empty() ? "is empty" : std::string(); });
  verb->add_option("--try", options->device,
                   "Also route this device until its first input, for at most 10 s, and\nrecord "
                   "how far it got. This starts the router")
      ->type_name("DEVICE");
  verb->add_flag("--with-input", options->withInput,
                 "Include what devices sent, serial numbers and paths unchanged");
  verb->add_flag("--json", options->json, "Print the archive's manifest");
  verb->footer(
      "The first file of the archive, summary.html, says on one page what is wrong.\n"
      "\n"
      "Without --with-input, a report has no input, serial numbers, names or paths: of logs and\n"
      "findings it keeps only this project's own words, counts and codes. Check it before you "
      "send it.\n"
      "\n"
      "Examples:\n"
      "  wlhid report report.zip\n"
      "  wlhid report report.zip --try \"QEMU QEMU USB Mouse\"");
  verb->callback([options, &chosen] { chosen = [options] { return report(*options); }; });
}

}  // namespace tool
