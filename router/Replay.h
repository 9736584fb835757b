// SPDX-License-Identifier: Apache-2.0

// A recording being played.
//
// Threading: one thread at a time.
// Ownership: owns the opened recording and reads it while playing, so a long one takes no more
//   memory than a short one.
// Errors: next() throws RecordingError if the file has become unreadable since it was checked.
// Order: that of the recording.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "router/Devices.h"
#include "router/Recording.h"
#include "router/StopSignal.h"

namespace router {

/// When each report is due, relative to the first one of the current pass. The recording's clock
/// decides; where it gives no interval (it restarts, the recording has no times at all, or it
/// starts over), kUntimedInterval is used. Nothing is due later than a century.
class ReplaySchedule {
 public:
  static constexpr std::chrono::microseconds kUntimedInterval{8000};

  ReplaySchedule(bool hasTimes, double speed) : hasTimes_(hasTimes), speed_(speed) {}
  /// For the next report, whose recorded time is `time`.
  std::chrono::nanoseconds due(std::chrono::microseconds time);
  /// Ends a pass and returns its length, from its beginning to that of the next.
  std::chrono::nanoseconds beginAgain();

 private:
  [[nodiscard]] std::chrono::nanoseconds scaled() const;

  bool hasTimes_;
  double speed_;
  std::optional<std::chrono::microseconds> last_;
  double elapsed_ = 0;  // nanoseconds as recorded
};

class Replay final : public OpenDevice {
 public:
  /// `hasTimes` comes from the recording's summary.
  Replay(RecordingFile file, bool hasTimes, const ReplayDevice& device);

  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return reportDescriptor_;
  }
  [[nodiscard]] bool waitsForReaders() const override { return !isPaced_; }
  Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) override;

 private:
  bool readNext(RecordedReport* returnReport);

  RecordingFile file_;
  RecordingReader reader_;
  std::vector<std::uint8_t> reportDescriptor_;
  ReplaySchedule schedule_;
  const bool isPaced_;
  const bool repeats_;
  bool isEmpty_ = true;  // the current pass, so far
  // When the first report of this pass is due. All deadlines are relative to it, so delays do not
  // accumulate.
  std::optional<std::chrono::steady_clock::time_point> start_;
};

}  // namespace router
