// SPDX-License-Identifier: Apache-2.0

// Every element of a device's input reports, with its value and its last seconds.
//
// Threading: one thread at a time.
// Order: that of the descriptor.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/ReportDescriptor.h"
#include "tool/monitor/History.h"

namespace tool::monitor {

struct Track {
  enum class Kind {
    Absolute,
    Relative,
    Switch,  ///< on or off
    Slot,    ///< of an array: which of its usages is selected
    Bytes,   ///< wider than a number
  };

  Kind kind = Kind::Absolute;
  std::string name;  ///< no two of a device have the same
  router::Usage usage;
  std::uint32_t cookie = 0;
  std::uint32_t reportID = 0;
  std::int64_t minimum = 0;
  std::int64_t maximum = 0;
  bool hasNullState = false;  ///< a value out of the range means: none
  History history;

  bool hasValue = false;
  std::int64_t value = 0;
  router::Usage selected{};  ///< of a slot

  /// Where a value lies in the range, from 0 to 1.
  [[nodiscard]] double partOf(std::int64_t value) const;
  /// For people: "-12", "on", "A", "none".
  [[nodiscard]] std::string valueText() const;
};

class Tracks {
 public:
  /// More are not shown.
  static constexpr std::size_t kMost = 1024;

  explicit Tracks(const router::ReportDescriptor& descriptor);

  /// The values of one report, in the order of their cookies.
  void take(Time time, std::span<const platform::HIDElementValueRecord> values);
  [[nodiscard]] const std::vector<Track>& all() const { return tracks_; }

 private:
  std::vector<Track> tracks_;
};

}  // namespace tool::monitor
