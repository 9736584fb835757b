// SPDX-License-Identifier: Apache-2.0

// wlhid measure: how often a device reports, and what it makes of its range.
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>

#include "platform/foundation/Format.h"
#include "platform/services/SystemRoot.h"
#include "router/Recording.h"
#include "tool/command/Command.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/descriptor/UnitNames.h"
#include "tool/findings/InventoryJson.h"
#include "tool/measuring/Measurement.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/LatencyWatch.h"
#include "tool/routing/ReportWatch.h"
#include "tool/routing/RouteSummary.h"
#include "tool/routing/Routing.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

struct MeasureOptions {
  std::string device;
  std::string recording;
  std::uint32_t number = 0;  // of the device in the recording
  double seconds = 10;
  double gap = 50;  // milliseconds
  bool json = false;
};

struct Measured {
  std::string name;
  Measurement measurement;
  std::optional<Losses> losses{};
  std::optional<LatencyFigures> latency{};
};

std::chrono::microseconds gapOf(const MeasureOptions& options) {
  return std::chrono::microseconds(static_cast<std::int64_t>(options.gap * 1000));
}

std::shared_ptr<const router::ReportDescriptor> parsed(const std::vector<std::uint8_t>& bytes) {
  return std::make_shared<const router::ReportDescriptor>(
      router::ReportDescriptor::parseUpToFault(bytes).descriptor);
}

/// Routes the device for a while. With losses, if the router counts them.
void measureDevice(std::uint64_t registryEntryID, double seconds, StopSignals& signals,
                   Measured* measured) {
  LatencyWatch latency;
  const ReportWatch watch([&](std::string& /*out*/, const ReportWatch::Report& report) {
    const auto now = std::chrono::steady_clock::now();
    latency.arrived(report.number, now);
    measured->measurement.take(
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()),
        report.bytes);
  });
  const auto session = std::make_shared<RouteSession>(watch.lines(), STDOUT_FILENO, std::nullopt);
  const LossCount lossCount(platform::SystemRoot::current());
  StatusLine progress;
  const auto showProgress = [&] {
    latency.ask(registryEntryID);
    const auto held = watch.lock();
    progress.show(
        platform::stringWithFormat("Use the device. %llu reports, %.0f Hz  (Ctrl-C ends it)",
                                   measured->measurement.reports(), measured->measurement.rate()));
    return true;
  };
  const RouteEnd end = routeUntilEnd({{registryEntryID, session}}, signals,
                                     {seconds, adviceOnStarting(), showProgress});
  if (end.failed) throw Failure(end.message);
  measured->losses = lossCount.take();
  measured->latency = latency.figures();
}

Measured measureInstalled(const MeasureOptions& options) {
  StopSignals signals;
  requireInstalledRouter();
  const KnownDevice device = deviceNamed(options.device);
  Measured measured{device.description.name,
                    Measurement(parsed(device.facts.reportDescriptor), gapOf(options))};
  measureDevice(device.description.registryEntryID, options.seconds, signals, &measured);
  return measured;
}

Measured measureRecording(const MeasureOptions& options) {
  const auto file = router::RecordingFile::at(options.recording, options.number);
  auto reader = file.read();
  const router::RecordingHeader& header = reader.header();
  Measured measured{header.name, Measurement(parsed(header.reportDescriptor), gapOf(options))};
  router::RecordedReport report;
  while (reader.next(&report)) measured.measurement.take(report.time, report.bytes);
  return measured;
}

ordered_json intervalsJson(const Intervals& intervals) {
  auto histogram = ordered_json::array();
  for (const auto& bar : intervals.histogram()) {
    histogram.push_back({{"from", bar.from.count()}, {"to", bar.to.count()}, {"count", bar.count}});
  }
  return {{"p50", intervals.percentile(0.5).count()},
          {"p99", intervals.percentile(0.99).count()},
          {"longest", intervals.longest().count()},
          {"gap", intervals.gap().count()},
          {"gaps", intervals.gaps()},
          {"histogram", histogram}};
}

ordered_json latencyJson(const LatencyFigures& latency) {
  return {{"p50", latency.median.count()},
          {"p99", latency.longOnes.count()},
          {"longest", latency.longest.count()},
          {"reports", latency.reports}};
}

ordered_json axesJson(const std::vector<AxisUse>& axes) {
  auto list = ordered_json::array();
  for (const AxisUse& axis : axes) {
    const auto density = axis.stepsPerUnit();
    list.push_back({{"name", axis.control.name},
                    {"cookie", axis.control.cookie},
                    {"logicalMinimum", axis.control.field->logicalMinimum},
                    {"logicalMaximum", axis.control.field->logicalMaximum},
                    {"values", axis.values},
                    {"smallest", axis.smallest},
                    {"largest", axis.largest},
                    {"step", axis.step},
                    {"bits", axis.usedBits()},
                    {"declaredBits", axis.declaredBits()},
                    {"stepsPerUnit", density ? ordered_json(*density) : ordered_json()},
                    {"unit", unitName(axis.control.field->unit)}});
  }
  return list;
}

ordered_json asJson(const Measured& measured) {
  const Measurement& measurement = measured.measurement;
  const bool hasTimes = measurement.hasTimes();
  return {{"name", measured.name},
          {"verdict", verdictOn(measurement, measured.losses)},
          {"reports", measurement.reports()},
          {"repeated", measurement.repeated()},
          {"rate", hasTimes ? ordered_json(measurement.rate()) : ordered_json()},
          {"intervals", hasTimes ? intervalsJson(measurement.intervals()) : ordered_json()},
          {"lost", measured.losses ? ordered_json(measured.losses->reports) : ordered_json()},
          {"latency", measured.latency ? latencyJson(*measured.latency) : ordered_json()},
          {"axes", axesJson(measurement.axes())}};
}

/// What the intervals are between, and how long reports took to get there.
std::string originOfTimes(const Measured& measured, const MeasureOptions& options) {
  if (!measured.measurement.hasTimes()) return {};
  if (!options.recording.empty())
    return "Times are those of the recording; how long reports took to get there is not known.\n";
  const std::string here = "Times are those of arrival here";
  if (!measured.latency) return here + "; how long reports took from the router is not known.\n";
  const LatencyFigures& latency = *measured.latency;
  return here + ". From the router's reading a report to there: half within " +
         durationText(latency.median) + ", 99 % within " + durationText(latency.longOnes) +
         ", longest " + durationText(latency.longest) + "\n";
}

void checkUsage(const MeasureOptions& options) {
  if (options.device.empty() == options.recording.empty())
    throw UsageFailure("measure needs either a DEVICE or --recording FILE");
  if (options.number != 0 && options.recording.empty())
    throw UsageFailure("--device goes with --recording");
  if (!std::isfinite(options.seconds) || options.seconds < 0 || options.seconds > 1e9)
    throw UsageFailure("--seconds must be a number from 0 to 1000000000");
  if (!std::isfinite(options.gap) || options.gap < 0.001 || options.gap > 1e9)
    throw UsageFailure("--gap must be a number of milliseconds from 0.001 to 1000000000");
}

int measure(const MeasureOptions& options) {
  checkUsage(options);
  const Measured measured =
      options.recording.empty() ? measureInstalled(options) : measureRecording(options);
  if (options.json) {
    print(dumped(asJson(measured)));
  } else {
    print(oneLine(measured.name) + "\n" + measurementText(measured.measurement, measured.losses) +
          originOfTimes(measured, options));
  }
  return measured.measurement.reports() == 0 ? ExitNotSo : ExitDone;
}

}  // namespace

void addMeasureVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<MeasureOptions>();
  CLI::App* verb = app.add_subcommand(
      "measure", "Measures how often a device reports and how finely, while you use it");
  verb->add_option("DEVICE", options->device, kDeviceHelp);
  verb->add_option("--recording", options->recording,
                   "Instead of a DEVICE: the reports of this recording, at its times")
      ->type_name("FILE");
  verb->add_option("--device", options->number,
                   "With --recording: which device of a recording of several (default 0)")
      ->type_name("N");
  verb->add_option("--seconds", options->seconds,
                   "End after S seconds (default 10; 0: only at Ctrl-C)")
      ->type_name("S");
  verb->add_option("--gap", options->gap,
                   "From how many milliseconds on a pause counts (default 50)")
      ->type_name("MS");
  verb->add_flag("--json", options->json, "Print a JSON object; times are microseconds");
  verb->footer(
      "Times are those of the reports' arrival at this command. \"latency\" is how long they took "
      "to\n"
      "get there since the router read them from the kernel, which keeps no time of its own; it "
      "is\n"
      "null where the router did not say. Many devices report only while they are used, so gaps\n"
      "count only if you used the device all the time.\n"
      "Exit status: 1 if no report came.\n"
      "\n"
      "Examples:\n"
      "  wlhid measure \"QEMU QEMU USB Mouse\" --seconds 5\n"
      "  wlhid measure --recording recordings/qemu-usb-mouse.hid --json");
  verb->callback([options, &chosen] { chosen = [options] { return measure(*options); }; });
}

}  // namespace tool
