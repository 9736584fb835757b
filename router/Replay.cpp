// SPDX-License-Identifier: Apache-2.0

#include "router/Replay.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace router {

std::chrono::nanoseconds ReplaySchedule::scaled() const {
  // Adding up times over a clock's whole range would overflow; nobody waits a century for a report.
  constexpr double kLongest = 100.0 * 365 * 24 * 3600 * 1e9;
  return std::chrono::nanoseconds(std::llround(std::min(elapsed_ / speed_, kLongest)));
}

std::chrono::nanoseconds ReplaySchedule::due(std::chrono::microseconds time) {
  if (last_) {
    const bool isTimed = hasTimes_ && time >= *last_;
    const auto interval = isTimed ? time - *last_ : kUntimedInterval;
    elapsed_ += static_cast<double>(interval.count()) * 1e3;
  }
  last_ = time;
  return scaled();
}

std::chrono::nanoseconds ReplaySchedule::beginAgain() {
  elapsed_ += static_cast<double>(kUntimedInterval.count()) * 1e3;
  const auto period = scaled();
  elapsed_ = 0;
  last_.reset();
  return period;
}

Replay::Replay(RecordingFile file, bool hasTimes, const ReplayDevice& device)
    : file_(std::move(file)),
      reader_(file_.read()),
      reportDescriptor_(reader_.header().reportDescriptor),
      schedule_(hasTimes, device.speed.factor),
      isPaced_(!device.speed.maximum),
      repeats_(device.repeat) {}

OpenDevice::Next Replay::next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) {
  if (!start_) start_ = std::chrono::steady_clock::now();
  if (stop.isRaised()) return Next::Stopped;
  RecordedReport report;
  if (!readNext(&report)) return Next::Ended;
  if (isPaced_ && stop.waitUntil(*start_ + schedule_.due(report.time))) return Next::Stopped;
  *returnReport = report.bytes;
  return Next::Report;
}

bool Replay::readNext(RecordedReport* returnReport) {
  if (reader_.next(returnReport)) {
    isEmpty_ = false;
    return true;
  }
  // A recording without reports would repeat for ever and deliver nothing.
  if (!repeats_ || std::exchange(isEmpty_, true)) return false;
  *start_ += schedule_.beginAgain();
  reader_ = file_.read();
  return readNext(returnReport);
}

}  // namespace router
