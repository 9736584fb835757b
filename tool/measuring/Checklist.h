// SPDX-License-Identifier: Apache-2.0

// Which of a device's controls have answered while a person tries one after the other.
//
// A button or key has answered when it has been pressed and released; an axis when it has been
// moved to both ends, or, if its values are changes, in both directions.
//
// Threading: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "router/ReportDecoder.h"
#include "tool/measuring/Controls.h"

namespace tool {

class Checklist {
 public:
  explicit Checklist(std::shared_ptr<const router::ReportDescriptor> descriptor);

  /// Returns the names of the controls that have answered with this report.
  std::vector<std::string> take(std::span<const std::uint8_t> report);

  struct Entry {
    Control control;
    bool hasAnswered = false;
    bool wasLow = false;  ///< has been released, at the low end, or moved back
    bool wasHigh = false;
  };
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  [[nodiscard]] std::size_t answered() const { return answered_; }
  [[nodiscard]] bool isComplete() const { return answered_ == entries_.size(); }
  /// What to do for the first control that has not answered: "press Button 2"; empty if all have.
  [[nodiscard]] std::string nextStep() const;

 private:
  static void takeAxis(std::int64_t value, Entry* entry);
  void takeSwitch(bool isDown, Entry* entry) const;
  void takeReport(std::span<const platform::HIDElementValueRecord> values, Entry* entry) const;

  router::ReportDecoder decoder_;
  std::vector<Entry> entries_;
  std::size_t answered_ = 0;
};

}  // namespace tool
