// SPDX-License-Identifier: Apache-2.0

// wlhid route: a device's input, live.
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "platform/foundation/NSNumber.h"
#include "platform/services/Authorization.h"
#include "platform/services/SystemRoot.h"
#include "router/DeviceFiles.h"
#include "router/Devices.h"
#include "router/RouterLimits.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/command/Numbers.h"
#include "tool/installing/Installation.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/RouteSession.h"
#include "tool/routing/RouteSummary.h"
#include "tool/routing/Routing.h"
#include "tool/routing/ScratchRoot.h"
#include "tool/terminal/StopSignals.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

/// A usage as the router's tag dictionary names it: page << 16 | usage.
using UsageCode = std::uint64_t;

struct RouteOptions {
  std::string device;
  std::string recording;
  std::uint32_t number = 0;  // of the device in the recording
  std::string speed;         // empty: as recorded
  std::string countText;
  std::uint64_t count = 0;  // 0: unlimited
  double seconds = 0;       // 0: unlimited
  std::string modeText = "0";
  std::uint64_t mode = 0;
  std::vector<std::string> tagTexts;
  bool json = false;
};

/// "1:48", "0x1:0x30"
UsageCode parseTag(const std::string& text) {
  const std::size_t colon = text.find(':');
  const auto page = parseNumber(text.substr(0, colon));
  const auto usage =
      colon == std::string::npos ? std::nullopt : parseNumber(text.substr(colon + 1));
  if (!page || !usage || *page > 0xffff || *usage > 0xffff) {
    throw UsageFailure("--tag: " + text + " is not PAGE:USAGE, two numbers up to 0xffff");
  }
  return *page << 16 | *usage;
}

std::set<UsageCode> parseTags(const std::vector<std::string>& texts) {
  std::set<UsageCode> tags;
  for (const std::string& text : texts) tags.insert(parseTag(text));
  return tags;
}

router::ReplaySpeed parseSpeed(const std::string& text) {
  if (text.empty()) return {};
  const auto speed = router::ReplaySpeed::parse(text);
  if (!speed)
    throw UsageFailure("--speed: " + text + " is neither a number from 0.001 to 1000 nor max");
  return *speed;
}

/// Null if there are no tags: the router then sends all values.
std::shared_ptr<platform::NSDictionary> tagDictionary(const std::set<UsageCode>& tags) {
  if (tags.empty()) return nullptr;
  std::vector<platform::NSDictionary::Entry> entries;
  entries.reserve(tags.size());
  for (const UsageCode tag : tags) {
    entries.emplace_back(platform::NSNumber::numberWithUnsignedLongLong(tag),
                         platform::NSNumber::numberWithBool(true));
  }
  return platform::NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::unique_ptr<DeliveryLines> deliveryLines(bool json) {
  if (json) return jsonDeliveryLines();
  return textDeliveryLines(
      [] {
        return std::chrono::duration_cast<std::chrono::microseconds>(
            Clock::now().time_since_epoch());
      },
      [] { return columnsOfTerminal(STDOUT_FILENO); });
}

/// None for a recording: its temporary root disappears with the command.
std::string adviceFor(const RouteOptions& options) {
  return options.recording.empty() ? adviceOnStarting() : std::string();
}

std::string nameOfDevice(std::uint64_t registryEntryID) {
  for (const auto& device : router::listDevices(platform::SystemRoot::current(), nullptr)) {
    if (device.registryEntryID == registryEntryID) return device.name;
  }
  return {};
}

int routeDevice(std::uint64_t registryEntryID, const RouteOptions& options, StopSignals& signals) {
  std::optional<std::uint64_t> last;
  if (options.count != 0) last = options.count;
  const auto session =
      std::make_shared<RouteSession>(deliveryLines(options.json), STDOUT_FILENO, last);
  std::optional<LossCount> lossCount;
  if (!options.json) lossCount.emplace(platform::SystemRoot::current());
  if (!options.json) print(routeHeader(nameOfDevice(registryEntryID), registryEntryID));
  const auto begin = Clock::now();
  const RouteEnd end = routeUntilEnd(
      {{registryEntryID, session, options.mode, tagDictionary(parseTags(options.tagTexts))}},
      signals, {options.seconds, adviceFor(options)});
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  if (!options.json) print(routeSummary(session->reports(), time, lossCount->take()));
  if (end.failed) throw Failure(end.message);
  return ExitDone;
}

int routeInstalledDevice(const RouteOptions& options) {
  StopSignals signals;
  requireInstalledRouter();
  return routeDevice(registryEntryIDOf(options.device), options, signals);
}

/// Saves standard input to a file, because a recording is read several times.
std::filesystem::path keepStandardInput(const std::filesystem::path& directory) {
  std::filesystem::path path = directory / "standard-input.hid";
  std::ofstream file(path, std::ios::binary);
  std::array<char, 65536> buffer{};
  std::size_t length = 0;
  while (const std::size_t count = router::readFile(STDIN_FILENO, buffer)) {
    length += count;
    if (length > router::RouterLimits::kRecordingBytes) {
      throw Failure("standard input: larger than " +
                    std::to_string(router::RouterLimits::kRecordingBytes) + " bytes");
    }
    file.write(buffer.data(), static_cast<std::streamsize>(count));
  }
  if (!file.flush()) throw Failure("cannot write " + path.string());
  return path;
}

/// Rethrows the error with the file's name replaced by what the person typed.
[[noreturn]] void failAs(const std::string& name, const std::filesystem::path& path,
                         const std::string& error) {
  const std::string file = path.string();
  throw Failure(error.starts_with(file) ? name + error.substr(file.size()) : error);
}

int routeRecording(const RouteOptions& options) {
  router::ReplayDevice device;
  device.speed = parseSpeed(options.speed);
  device.device = options.number;
  StopSignals signals;
  const ScratchRoot scratch;
  const platform::SystemRoot root(scratch.path());
  platform::SystemRoot::setCurrent(root);
  const bool isStandardInput = options.recording == "-";
  device.recording = isStandardInput ? keepStandardInput(scratch.path())
                                     : std::filesystem::absolute(options.recording);
  std::uint64_t id = 0;
  try {
    id = router::addReplayDevice(root, device);
  } catch (const router::DeviceError& error) {
    if (!isStandardInput) throw;
    failAs("standard input", device.recording, error.what());
  }
  platform::setAuthorizationAgent(
      platform::fixedAuthorizationAgent(platform::errAuthorizationSuccess));
  installRouter(nullptr);
  return routeDevice(id, options, signals);
}

/// Parsed here because the parser's own conversion accepts signs and overflow.
std::uint64_t parseOption(const std::string& name, const std::string& text,
                          std::uint64_t smallest) {
  const auto number = parseNumber(text);
  if (!number || *number < smallest) {
    throw UsageFailure(name + ": " + text + " is not a whole number of at least " +
                       std::to_string(smallest));
  }
  return *number;
}

/// Reads what the parser leaves as text, and checks combinations of options.
void checkUsage(RouteOptions& options) {
  if (options.device.empty() == options.recording.empty()) {
    throw UsageFailure("route needs either a DEVICE or --recording FILE");
  }
  if (!options.speed.empty() && options.recording.empty()) {
    throw UsageFailure("--speed goes with --recording; an added device has its own speed");
  }
  if (options.number != 0 && options.recording.empty())
    throw UsageFailure("--device goes with --recording; an added device is one of them");
  static_cast<void>(parseSpeed(options.speed));
  if (!std::isfinite(options.seconds) || options.seconds < 0 || options.seconds > 1e9) {
    throw UsageFailure("--seconds must be a number from 0 to 1000000000");
  }
  static_cast<void>(parseTags(options.tagTexts));
  if (!options.countText.empty()) options.count = parseOption("--count", options.countText, 0);
  options.mode = parseOption("--mode", options.modeText, 0);
}

int route(RouteOptions options) {
  checkUsage(options);
  return options.recording.empty() ? routeInstalledDevice(options) : routeRecording(options);
}

}  // namespace

void addRouteVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<RouteOptions>();
  CLI::App* verb =
      app.add_subcommand("route", "Prints a device's input as it arrives, until Ctrl-C");
  verb->add_option("DEVICE", options->device, kDeviceHelp);
  verb->add_option("--recording", options->recording,
                   "Instead of a DEVICE: play this recording (- for standard input) once,\nthrough "
                   "a router on a temporary system root")
      ->type_name("FILE");
  verb->add_option("--speed", options->speed,
                   "With --recording: 1 (as recorded, the default), a factor,\nor max (as fast as "
                   "possible)")
      ->type_name("SPEED");
  verb->add_option("--device", options->number,
                   "With --recording: which device of a recording of several (default 0)")
      ->type_name("N");
  verb->add_option("--count", options->countText, "End after N reports (0, the default: never)")
      ->type_name("N");
  verb->add_option("--seconds", options->seconds,
                   "End after S seconds (0, the default: never); a failure\nif the router has not "
                   "answered by then")
      ->type_name("S");
  verb->add_option("--mode", options->modeText,
                   "0 shares the device with others (the default), 1 takes it exclusively")
      ->type_name("MODE");
  verb->add_option("--tag", options->tagTexts,
                   "Only element values of this usage (may be repeated)")
      ->type_name("PAGE:USAGE")
      ->expected(1)
      ->take_all();
  verb->add_flag("--json", options->json,
                 "Print one JSON object per delivery, each on its own line");
  verb->footer(
      "On a terminal, long lines are wrapped. Long runs of vendor-defined values are only "
      "counted.\n"
      "The last line says how many reports arrived and how many were lost.\n"
      "\n"
      "Examples:\n"
      "  wlhid route \"QEMU QEMU USB Mouse\" --count 10\n"
      "  wlhid route 0x1a2b3c4d5 --tag 1:0x30 --tag 1:0x31 --json\n"
      "  wlhid route --recording recordings/qemu-usb-mouse.hid --speed max --json\n"
      "  gunzip -c recording.hid.gz | wlhid route --recording -");
  verb->callback([options, &chosen] { chosen = [options] { return route(*options); }; });
}

}  // namespace tool
