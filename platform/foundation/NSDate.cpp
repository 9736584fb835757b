// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSDate.h"

#include <cmath>

#include "platform/foundation/Format.h"
#include "platform/foundation/NSNumber.h"

namespace platform {
namespace {

constexpr double kSecondsOfTenThousandYears = 10000.0 * 366 * 86400;

}  // namespace

const NSClass& NSDate::classObject() {
  static const NSClass object{"NSDate", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSDate> NSDate::dateWithTimeIntervalSinceReferenceDate(double seconds) {
  return std::make_shared<NSDate>(seconds);
}

std::strong_ordering NSDate::compareValue(const NSObject& other) const {
  return orderOfNumbers(seconds_, static_cast<const NSDate&>(other).seconds_);
}

std::string NSDate::description() const {
  using namespace std::chrono;
  if (!(std::fabs(seconds_) < kSecondsOfTenThousandYears)) {
    return stringWithFormat("%g s since 2001-01-01 00:00:00 +0000", seconds_);
  }
  const sys_seconds time = kReferenceDay + seconds(static_cast<std::int64_t>(std::floor(seconds_)));
  const sys_days day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss<std::chrono::seconds> clock(time - day);
  return stringWithFormat("%04d-%02u-%02u %02lld:%02lld:%02lld +0000",
                          static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                          static_cast<unsigned>(date.day()), clock.hours().count(),
                          clock.minutes().count(), clock.seconds().count());
}

}  // namespace platform
