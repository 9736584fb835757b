// SPDX-License-Identifier: Apache-2.0

// wlhid record: the input of devices into a file that can be played again.
#include <malloc.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>

#include "platform/foundation/Format.h"
#include "platform/services/SystemRoot.h"
#include "router/RouterLimits.h"
#include "router/policy/DeviceClass.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/files/GrowingFile.h"
#include "tool/recording/RecordingLines.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/RouteSummary.h"
#include "tool/routing/Routing.h"
#include "tool/terminal/Terminal.h"

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct RecordOptions {
  std::string device;
  std::vector<std::string> others;
  std::string file;
  double seconds = 0;  // 0: unlimited
  bool sensitive = false;
};

std::chrono::microseconds now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
}

std::string sizeText(std::uint64_t bytes) {
  constexpr double kKiB = 1024;
  const auto number = static_cast<double>(bytes);
  if (number < kKiB) return std::to_string(bytes) + " bytes";
  if (number < kKiB * kKiB) return platform::stringWithFormat("%.1f KiB", number / kKiB);
  return platform::stringWithFormat("%.1f MiB", number / kKiB / kKiB);
}

/// Throws Failure unless the person knows what the file will hold.
void requireConsent(const KnownDevice& device, const RecordOptions& options) {
  const auto classification = router::classify(device.facts);
  if (options.sensitive || classification.deviceClass == router::DeviceClass::Ordinary) return;
  std::vector<std::string> again{"record", "--sensitive", options.device, options.file};
  for (const std::string& other : options.others) again.insert(again.end(), {"--also", other});
  throw Failure("\"" + device.description.name + "\" is sensitive (" + classification.reason +
                "): the recording would hold all its input, also what is secret; to record it "
                "nevertheless: " +
                commandLine(again));
}

std::vector<KnownDevice> devicesOf(const RecordOptions& options) {
  std::vector<KnownDevice> devices;
  std::vector<std::string> names{options.device};
  names.insert(names.end(), options.others.begin(), options.others.end());
  for (const std::string& text : names) {
    KnownDevice device = deviceNamed(text);
    const bool isNew = std::ranges::none_of(devices, [&](const KnownDevice& other) {
      return other.description.registryEntryID == device.description.registryEntryID;
    });
    if (!isNew) throw UsageFailure("the device \"" + text + "\" is named twice");
    requireConsent(device, options);
    devices.push_back(std::move(device));
  }
  return devices;
}

/// One recording, from its header to its summary.
class Recording {
 public:
  Recording(const RecordOptions& options, const std::vector<KnownDevice>& devices)
      : options_(options),
        file_(options.file),
        state_(std::make_shared<RecordingState>(router::RouterLimits::kRecordingBytes)) {
    std::string header = "# recorded with wlhid " WLHID_VERSION "\n";
    for (std::size_t i = 0; i < devices.size(); ++i) {
      const auto number =
          devices.size() == 1 ? std::nullopt : std::optional(static_cast<std::uint32_t>(i));
      header += recordingHeader(devices[i].description, devices[i].facts.reportDescriptor, number);
      routed_.push_back(
          {devices[i].description.registryEntryID,
           std::make_shared<RouteSession>(recordingLines(state_, now, number), file_.descriptor(),
                                          std::nullopt, file_.path())});
    }
    state_->bytes = header.size();
    writeHeader(header);
  }

  int run(StopSignals& signals) {
    const LossCount lossCount(platform::SystemRoot::current());
    const auto begin = now();
    RouteEnd end;
    {
      StatusLine progress;
      end = routeUntilEnd(routed_, signals, {options_.seconds, adviceOnStarting(), [&] {
                                               showProgress(progress, now() - begin);
                                               return state_->leftOut == 0;
                                             }});
    }
    return finish(end, now() - begin, lossCount.take());
  }

 private:
  void writeHeader(const std::string& header) try { file_.write(header); } catch (const Failure&) {
    file_.remove();
    throw;
  }

  void showProgress(StatusLine& line, std::chrono::microseconds time) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    line.show(platform::stringWithFormat("%lld:%02lld  %llu report%s  %s  (Ctrl-C ends it)",
                                         seconds / 60, seconds % 60, reports(),
                                         reports() == 1 ? "" : "s", sizeText(state_->bytes)));
  }

  int finish(const RouteEnd& end, std::chrono::microseconds time,
             const std::optional<Losses>& losses) {
    if (end.failed && reports() == 0) {
      file_.remove();
      throw Failure(end.message);
    }
    if (!end.failed) file_.write(recordingFooter(losses));
    const std::uint64_t size = file_.finish();
    print(file_.path() + ": " + sizeText(size) + "\n" + routeSummary(reports(), time, losses));
    if (end.failed) throw Failure(end.message + " (what had been recorded before is in the file)");
    if (state_->leftOut != 0)
      throw Failure(file_.path() + ": is as large as a recording can be (" +
                    sizeText(state_->maximumBytes) + "); recording has ended");
    return ExitDone;
  }

  /// That are in the file.
  [[nodiscard]] std::uint64_t reports() const {
    std::uint64_t count = 0;
    for (const RoutedDevice& device : routed_) count += device.session->reports();
    return count - std::min<std::uint64_t>(count, state_->leftOut);
  }

  const RecordOptions& options_;
  GrowingFile file_;
  const std::shared_ptr<RecordingState> state_;
  std::vector<RoutedDevice> routed_;
};

/// A recording may take hours, and by default the C library would keep until its end what checking
/// the router's image took.
void giveBackLargeBlocks() {
  constexpr int kLarge = 128 << 10;  // the library's own value, which it would raise
  ::mallopt(M_MMAP_THRESHOLD, kLarge);
}

int record(const RecordOptions& options) {
  if (!std::isfinite(options.seconds) || options.seconds < 0 || options.seconds > 1e9)
    throw UsageFailure("--seconds must be a number from 0 to 1000000000");
  giveBackLargeBlocks();
  StopSignals signals;
  requireInstalledRouter();
  const std::vector<KnownDevice> devices = devicesOf(options);
  return Recording(options, devices).run(signals);
}

}  // namespace

void addRecordVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<RecordOptions>();
  CLI::App* verb = app.add_subcommand(
      "record", "Records the input of devices in a file that can be played again, until Ctrl-C");
  verb->add_option("DEVICE", options->device, kDeviceHelp)->required();
  verb->add_option("FILE", options->file, "The recording; an existing file is not overwritten")
      ->required();
  verb->add_option("--also", options->others,
                   "Record this device, too, in the same file (may be repeated)")
      ->type_name("DEVICE")
      ->expected(1)
      ->take_all();
  verb->add_option("--seconds", options->seconds, "End after S seconds (0, the default: never)")
      ->type_name("S");
  verb->add_flag("--sensitive", options->sensitive,
                 "Record also sensitive devices, whose input can be secret (wlhid\ndescriptor says "
                 "which are)");
  verb->footer(
      "The file is text in the hid-recorder format. It grows report by report, so it is of use\n"
      "however the recording ends: at Ctrl-C, on a full disk, or when a device is unplugged.\n"
      "\n"
      "Examples:\n"
      "  wlhid record \"QEMU QEMU USB Mouse\" mouse.hid --sensitive --seconds 10\n"
      "  wlhid route --recording mouse.hid");
  verb->callback([options, &chosen] { chosen = [options] { return record(*options); }; });
}

}  // namespace tool
