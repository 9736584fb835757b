// SPDX-License-Identifier: Apache-2.0

// A recording of what the monitor receives, as `wlhid record` makes it.
//
// Threading: one thread at a time.
// Ownership: owns the file, which stays.
// Errors: Failure, "FILE: cause".
// Order: finish() last.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "router/Devices.h"
#include "tool/files/GrowingFile.h"
#include "tool/monitor/Pace.h"
#include "tool/recording/RecordingLines.h"

namespace tool::monitor {

class Recorder {
 public:
  Recorder(const std::string& file, const router::DeviceDescription& device,
           const std::vector<std::uint8_t>& reportDescriptor);

  void take(Time time, std::span<const std::uint8_t> report);
  /// Writes what has been taken. If that fails, the file keeps the whole reports that it has.
  void write();
  /// What the file holds, in a sentence.
  [[nodiscard]] std::string finish();

  [[nodiscard]] std::uint64_t reports() const { return reports_ - state_->leftOut; }
  [[nodiscard]] const std::string& path() const { return file_.path(); }

 private:
  GrowingFile file_;
  const std::shared_ptr<RecordingState> state_;
  const std::unique_ptr<DeliveryLines> lines_;
  Time now_{};  // of the report that is being taken
  std::string text_;
  std::uint64_t reports_ = 0;
};

/// A name for a file, of the device's name and the local time: "Example-Pen-20260131-120304.hid".
[[nodiscard]] std::string recordingName(std::string_view device, std::int64_t secondsSinceEpoch);

}  // namespace tool::monitor
