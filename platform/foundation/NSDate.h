// SPDX-License-Identifier: Apache-2.0

// A point in time.
//
// Threading, Ownership, Errors, Order: as in NSObject.h.
#pragma once

#include <chrono>
#include <compare>
#include <memory>
#include <string>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"

namespace platform {

inline constexpr std::chrono::sys_days kReferenceDay = std::chrono::year(2001) / 1 / 1;

/// Seconds since 2001-01-01 00:00:00 UTC.
class WLHID_EXPORT NSDate final : public NSObject {
 public:
  static const NSClass& classObject();
  static std::shared_ptr<NSDate> dateWithTimeIntervalSinceReferenceDate(double seconds);

  [[nodiscard]] double timeIntervalSinceReferenceDate() const { return seconds_; }

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "2026-11-21 04:01:39 +0000"
  [[nodiscard]] std::string description() const override;

  explicit NSDate(double seconds) : seconds_(seconds) {}

 protected:
  /// All NaNs are equal.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const double seconds_;
};

}  // namespace platform
