// SPDX-License-Identifier: Apache-2.0

#include "platform/services/VersionOrder.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

namespace platform {
namespace {

/// Removes the number before the first dot, and the dot; nothing if it is not a number.
std::optional<std::uint64_t> takeNumber(std::string_view& version) {
  const std::size_t dot = std::min(version.find('.'), version.size());
  const std::string_view text = version.substr(0, dot);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  version.remove_prefix(std::min(dot + 1, version.size()));
  return number;
}

}  // namespace

bool isNewer(std::string_view a, std::string_view b) {
  while (!a.empty() || !b.empty()) {
    const auto first = a.empty() ? 0 : takeNumber(a);
    const auto second = b.empty() ? 0 : takeNumber(b);
    if (!first || !second) return false;
    if (*first != *second) return *first > *second;
  }
  return false;
}

bool consistsOfNumbers(std::string_view version) {
  if (version.empty() || version.back() == '.') return false;
  while (!version.empty()) {
    if (!takeNumber(version)) return false;
  }
  return true;
}

}  // namespace platform
