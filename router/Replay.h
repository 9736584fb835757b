// A recording that is played.
//
// Threading: one thread at a time. Ownership: owns the opened recording, and reads it while it
//   plays, so a long one takes no more memory than a short one.
// Errors: next() throws RecordingError where the file has become unreadable since it was checked.
// Order: that of the recording.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "router/Devices.h"
#include "router/Recording.h"

namespace router {

/// When each report of a recording is due, counted from the first of its pass. A recording's clock
/// says it, except that where the clock says nothing (it restarts, the recording has no times at
/// all, or it begins again) kUntimedInterval passes. Nothing is due later than a century.
class ReplaySchedule {
 public:
  static constexpr std::chrono::microseconds kUntimedInterval{8000};

  ReplaySchedule(bool hasTimes, double speed) : hasTimes_(hasTimes), speed_(speed) {}
  /// Of the next report, whose recorded time is `time`.
  std::chrono::nanoseconds due(std::chrono::microseconds time);
  /// Ends a pass and says how long it is: from its beginning to the next one's.
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
  /// `hasTimes` is what the recording's summary says.
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
  bool isEmpty_ = true;  // this pass, so far
  // When the first report of this pass is due. All deadlines are counted from it, so lateness does
  // not add up.
  std::optional<std::chrono::steady_clock::time_point> start_;
};

}  // namespace router
