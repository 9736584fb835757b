// A point in time.
//
// Threading, Ownership, Errors, Order: as in NSObject.h.
#pragma once

#include "platform/foundation/NSObject.h"

namespace platform {

/// Seconds since 2001-01-01 00:00:00 UTC.
class NSDate final : public NSObject {
 public:
  static const NSClass& classObject();
  static std::shared_ptr<NSDate> dateWithTimeIntervalSinceReferenceDate(double seconds);

  [[nodiscard]] double timeIntervalSinceReferenceDate() const { return seconds_; }

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "2026-11-21 04:01:39 +0000"
  [[nodiscard]] std::string description() const override;

  explicit NSDate(double seconds) : seconds_(seconds) {}

 protected:
  /// Every NaN is the same.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const double seconds_;
};

}  // namespace platform
