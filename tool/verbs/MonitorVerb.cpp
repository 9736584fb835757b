// SPDX-License-Identifier: Apache-2.0

// wlhid monitor: devices and the input of one of them, on the whole screen.
#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>
#include <optional>

#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/monitor/Layout.h"
#include "tool/monitor/Showing.h"
#include "tool/routing/DeviceNames.h"

namespace tool {

namespace {

using monitor::Clock;

struct MonitorOptions {
  std::string device;
  std::string svg;
  std::string recording;
  std::string after = "250";
  std::string size = "120x40";
  double seconds = 0;  // 0: unlimited
  bool sensitive = false;
  bool ascii = false;
  bool lines = false;
};

Clock::time_point endOf(const MonitorOptions& options) {
  if (options.seconds == 0) return Clock::time_point::max();
  const std::chrono::duration<double> time(options.seconds);
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
}

/// "120x40": columns, rows.
monitor::PictureOptions pictureOf(const MonitorOptions& options) {
  constexpr std::uint64_t kMost = 500;
  const std::size_t times = options.size.find('x');
  const auto columns = parseNumber(options.size.substr(0, times));
  const auto rows =
      times == std::string::npos ? std::nullopt : parseNumber(options.size.substr(times + 1));
  if (!columns || !rows || *columns < monitor::kLeastColumns || *rows < monitor::kLeastRows ||
      *columns > kMost || *rows > kMost)
    throw UsageFailure("--size: " + options.size + " is not COLUMNSxROWS, from 40x10 to 500x500");
  const auto reports = parseNumber(options.after);
  if (!reports) throw UsageFailure("--after: " + options.after + " is not a whole number");
  return {options.svg,
          static_cast<int>(*rows),
          static_cast<int>(*columns),
          {!options.ascii, true},
          *reports};
}

void checkUsage(const MonitorOptions& options) {
  if (!std::isfinite(options.seconds) || options.seconds < 0 || options.seconds > 1e9)
    throw UsageFailure("--seconds must be a number from 0 to 1000000000");
  if (!options.recording.empty() && (options.svg.empty() || !options.device.empty()))
    throw UsageFailure("--recording goes with --svg, in place of a DEVICE");
  if (!options.svg.empty() && options.device.empty() && options.recording.empty())
    throw UsageFailure("--svg needs a DEVICE or a --recording");
  static_cast<void>(pictureOf(options));
}

/// What is still to be said when the screen is as before.
std::string show(const MonitorOptions& options, const std::optional<std::uint64_t>& device,
                 const StopSignals& signals, std::unique_ptr<monitor::FullScreen> screen) {
  monitor::Session session(options.sensitive);
  if (device) session.open(*device);
  const auto end = endOf(options);
  if (!options.svg.empty())
    monitor::showPicture(session, pictureOf(options), signals, end);
  else if (screen != nullptr)
    monitor::showOnTerminal(session, *screen, signals, end);
  else
    monitor::showLines(session, signals, end);
  return session.finishRecording();
}

int monitorDevices(const MonitorOptions& options) {
  checkUsage(options);
  if (!options.recording.empty()) {
    monitor::drawRecording(options.recording, pictureOf(options));
    return ExitDone;
  }
  StopSignals signals;
  std::optional<std::uint64_t> device;
  if (!options.device.empty()) device = registryEntryIDOf(options.device);
  std::unique_ptr<monitor::FullScreen> screen;
  if (options.svg.empty() && !options.lines) screen = monitor::FullScreen::open(options.ascii);
  const std::string said = show(options, device, signals, std::move(screen));
  if (!said.empty()) print(oneLine(said) + "\n");
  return ExitDone;
}

void addPictureOptions(CLI::App& verb, MonitorOptions& options) {
  verb.add_option("--svg", options.svg,
                  "Write the screen as a picture instead, once the reports have come or\nno more "
                  "will; a file of that name is replaced")
      ->type_name("FILE");
  verb.add_option("--recording", options.recording,
                  "With --svg: show the reports of a recording, at its own times, instead of a\n"
                  "device's")
      ->type_name("FILE");
  verb.add_option("--after", options.after, "With --svg: after N reports (default 250)")
      ->type_name("N");
  verb.add_option("--size", options.size, "With --svg: columns and rows (default 120x40)")
      ->type_name("CxR");
}

}  // namespace

void addMonitorVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<MonitorOptions>();
  CLI::App* verb = app.add_subcommand(
      "monitor", "Shows the devices and the input of one of them on the whole screen");
  verb->add_option("DEVICE", options->device, kDeviceHelp);
  verb->add_flag("--sensitive", options->sensitive,
                 "Allow the key r to record also sensitive devices, whose input can\nbe secret");
  verb->add_flag("--ascii", options->ascii,
                 "Draw with ASCII characters alone (the default where the locale is\nnot UTF-8)");
  verb->add_flag("--lines", options->lines,
                 "Print lines instead (the default where there is no terminal, or\none that cannot "
                 "move its cursor)");
  verb->add_option("--seconds", options->seconds, "End after S seconds (0, the default: never)")
      ->type_name("S");
  addPictureOptions(*verb, *options);
  verb->footer(
      "Keys: arrows and Enter choose a device, p pauses, s shows one report more, r records to a "
      "file in this\n"
      "directory, x takes the device exclusively, Tab changes the view, ? explains, q quits. It "
      "goes on by itself\n"
      "when the router or the device comes back.\n"
      "\n"
      "Rate, intervals and jitter are measured where reports arrive, latency from the router's "
      "reading a report to\n"
      "there: the kernel tells no earlier time. The losses are those that the router counts, of "
      "all "
      "its sessions\n"
      "together.\n"
      "\n"
      "Examples:\n"
      "  wlhid monitor\n"
      "  wlhid monitor \"QEMU QEMU USB Tablet\"\n"
      "  wlhid monitor \"QEMU QEMU USB Tablet\" --svg tablet.svg --after 300 --size 100x30");
  verb->callback([options, &chosen] { chosen = [options] { return monitorDevices(*options); }; });
}

}  // namespace tool
