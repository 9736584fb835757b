// SPDX-License-Identifier: Apache-2.0

// Deliveries as lines of a recording in the hid-recorder text format (router/Recording.h).
//
// Threading: RecordingState is shared by all devices of a recording and may be read at any time;
//   the lines of one device belong to its thread.
// Order: the first report of any device begins at time 0.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "router/Devices.h"
#include "tool/routing/DeliveryLines.h"
#include "tool/routing/RouteSummary.h"

namespace tool {

/// What has been recorded so far.
struct RecordingState {
  explicit RecordingState(std::uint64_t most) : maximumBytes(most) {}

  const std::uint64_t maximumBytes;
  std::atomic<std::uint64_t> bytes = 0;
  std::atomic<std::uint64_t> leftOut = 0;    ///< reports for which there was no room
  std::atomic<std::int64_t> beginning = -1;  ///< of the first report, in microseconds
};

/// What stands before a device's first report. `device`: its number, in a recording of several.
[[nodiscard]] std::string recordingHeader(const router::DeviceDescription& description,
                                          const std::vector<std::uint8_t>& reportDescriptor,
                                          std::optional<std::uint32_t> device);

/// What stands after the last report: how many the router lost, if it did.
[[nodiscard]] std::string recordingFooter(const std::optional<Losses>& losses);

/// A line for each report. `clock` may count from any point that is not before 0.
[[nodiscard]] std::unique_ptr<DeliveryLines> recordingLines(
    std::shared_ptr<RecordingState> state, std::function<std::chrono::microseconds()> clock,
    std::optional<std::uint32_t> device);

}  // namespace tool
