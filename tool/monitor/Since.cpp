// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Since.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace tool::monitor {

namespace {

using std::chrono::duration_cast;
using std::chrono::system_clock;

std::string ageText(std::chrono::seconds age) {
  if (age < std::chrono::minutes(1)) return std::to_string(age.count()) + " s";
  if (age < std::chrono::hours(1))
    return std::to_string(duration_cast<std::chrono::minutes>(age).count()) + " min";
  return std::to_string(duration_cast<std::chrono::hours>(age).count()) + " h";
}

}  // namespace

std::string sinceText(system_clock::time_point since, system_clock::time_point now) {
  const std::time_t time = system_clock::to_time_t(since);
  std::tm local{};
  ::localtime_r(&time, &local);
  std::array<char, 16> clock{};
  const std::size_t length = std::strftime(clock.data(), clock.size(), "%H:%M:%S", &local);
  const auto age = std::max(duration_cast<std::chrono::seconds>(now - since), {});
  return std::string(clock.data(), length) + " (" + ageText(age) + ")";
}

}  // namespace tool::monitor
