// SPDX-License-Identifier: Apache-2.0

// wlhid test: walks a person through everything on a device.
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cmath>
#include <span>

#include "platform/foundation/Format.h"
#include "tool/command/Command.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/measuring/Checklist.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/ReportWatch.h"
#include "tool/routing/Routing.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

struct TestOptions {
  std::string device;
  double seconds = 0;  // 0: unlimited
};

/// A line for each control that answers with this report.
std::string answersTo(std::span<const std::uint8_t> report, Checklist* checklist) {
  std::size_t number = checklist->answered();
  std::string lines;
  for (const std::string& name : checklist->take(report)) {
    lines +=
        platform::stringWithFormat("%5zu/%zu  %s\n", ++number, checklist->entries().size(), name);
  }
  constexpr const char* kClearLine = "\r\x1b[K";  // what is to be done next stands there
  return lines.empty() || columnsOfTerminal(STDOUT_FILENO) == 0 ? lines : kClearLine + lines;
}

void route(std::uint64_t registryEntryID, double seconds, StopSignals& signals,
           Checklist* checklist) {
  const ReportWatch watch([checklist](std::string& out, const ReportWatch::Report& report) {
    out += answersTo(report.bytes, checklist);
  });
  const auto session = std::make_shared<RouteSession>(watch.lines(), STDOUT_FILENO, std::nullopt);
  StatusLine next;
  const auto showNext = [&] {
    const auto held = watch.lock();
    next.show("Now " + checklist->nextStep() + "  (anything else counts too; Ctrl-C ends it)");
    return !checklist->isComplete();
  };
  constexpr std::chrono::milliseconds kRefresh{50};
  const RouteEnd end = routeUntilEnd({{registryEntryID, session}}, signals,
                                     {seconds, adviceOnStarting(), showNext, kRefresh});
  if (end.failed) throw Failure(end.message);
}

std::string missingOn(const Checklist& checklist) {
  constexpr std::size_t kShown = 40;
  std::string names;
  std::size_t count = 0;
  for (const auto& entry : checklist.entries()) {
    if (!entry.hasAnswered && ++count <= kShown)
      names += (names.empty() ? "" : ", ") + entry.control.name;
  }
  return count <= kShown ? names : names + " and " + std::to_string(count - kShown) + " more";
}

int test(const TestOptions& options) {
  if (!std::isfinite(options.seconds) || options.seconds < 0 || options.seconds > 1e9)
    throw UsageFailure("--seconds must be a number from 0 to 1000000000");
  StopSignals signals;
  requireInstalledRouter();
  const KnownDevice device = deviceNamed(options.device);
  const auto descriptor = std::make_shared<const router::ReportDescriptor>(
      router::ReportDescriptor::parse(device.facts.reportDescriptor));
  Checklist checklist(descriptor);
  const std::size_t count = checklist.entries().size();
  if (count == 0)
    throw Failure("\"" + device.description.name + "\" has no button, key or axis with a name");
  print(oneLine(device.description.name) + ": " + std::to_string(count) +
        " buttons, keys and axes\n");
  route(device.description.registryEntryID, options.seconds, signals, &checklist);
  if (checklist.isComplete()) {
    print("All have answered.\n");
    return ExitDone;
  }
  print(std::to_string(count - checklist.answered()) +
        " have not answered: " + missingOn(checklist) + "\n");
  return ExitNotSo;
}

}  // namespace

void addTestVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<TestOptions>();
  CLI::App* verb = app.add_subcommand(
      "test", "Walks you through each button, key and axis and ticks off what has answered");
  verb->add_option("DEVICE", options->device, kDeviceHelp)->required();
  verb->add_option("--seconds", options->seconds, "End after S seconds (0, the default: never)")
      ->type_name("S");
  verb->footer(
      "A button has answered when it was pressed and released, an axis when it was moved to both\n"
      "ends, or to and fro. What has no name is not asked for.\n"
      "Exit status: 1 if something has not answered.\n"
      "\n"
      "Example:\n"
      "  wlhid test \"QEMU QEMU USB Mouse\"");
  verb->callback([options, &chosen] { chosen = [options] { return test(*options); }; });
}

}  // namespace tool
