// SPDX-License-Identifier: Apache-2.0

#include <chrono>
#include <cmath>

#include "platform/foundation/Format.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/PropertyListCoding.h"

namespace platform {
namespace {

using std::chrono::sys_days;
using std::chrono::year;

constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";

constexpr double secondsToDay(sys_days day) {
  return static_cast<double>((day - kReferenceDay).count()) * 86400.0;
}

/// Whether the text has a digit wherever the pattern has one, and the pattern's characters
/// elsewhere.
bool fitsPattern(std::string_view text) {
  if (text.size() != kPattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kPattern[i] == '0' ? !digit : text[i] != kPattern[i]) return false;
  }
  return true;
}

unsigned numberAt(std::string_view text, std::size_t position, std::size_t digits) {
  unsigned number = 0;
  for (const char c : text.substr(position, digits)) {
    number = number * 10 + static_cast<unsigned>(c - '0');
  }
  return number;
}

}  // namespace

bool isPropertyListDate(double seconds) {
  constexpr double first = secondsToDay(year(0) / 1 / 1);
  constexpr double end = secondsToDay(year(10000) / 1 / 1);
  return seconds >= first && seconds < end;
}

std::string propertyListDateText(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::floor(seconds));
  const std::chrono::sys_seconds time = kReferenceDay + std::chrono::seconds(whole);
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return stringWithFormat("%04d-%02u-%02uT%02lld:%02lld:%02lldZ", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                          clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<double> propertyListDate(std::string_view text) {
  if (!fitsPattern(text)) return std::nullopt;
  const std::chrono::year_month_day date(year(static_cast<int>(numberAt(text, 0, 4))),
                                         std::chrono::month(numberAt(text, 5, 2)),
                                         std::chrono::day(numberAt(text, 8, 2)));
  const unsigned hour = numberAt(text, 11, 2);
  const unsigned minute = numberAt(text, 14, 2);
  const unsigned second = numberAt(text, 17, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return secondsToDay(sys_days(date)) + hour * 3600.0 + minute * 60.0 + second;
}

}  // namespace platform
