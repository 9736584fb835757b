// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidName.h"

#include <charconv>

namespace router {

namespace {

constexpr std::uint64_t kFirstID = 0x10000;
constexpr std::uint64_t kLargestID = 0xffffffff;

/// Takes the digits up to `end`: as the kernel writes them, in capitals, at least four, and zeros
/// in front only to make them four.
std::optional<std::uint32_t> takeNumber(std::string_view* text, std::string_view end) {
  constexpr std::size_t kDigits = 4;
  const auto length = end.empty() ? text->size() : text->find(end);
  if (length == std::string_view::npos || length < kDigits) return std::nullopt;
  const std::string_view digits = text->substr(0, length);
  if (length > kDigits && digits.front() == '0') return std::nullopt;
  if (digits.find_first_not_of("0123456789ABCDEF") != std::string_view::npos) return std::nullopt;
  std::uint32_t number = 0;
  constexpr int kHexadecimal = 16;
  const auto parsed =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, kHexadecimal);
  if (parsed.ec != std::errc()) return std::nullopt;
  text->remove_prefix(length + end.size());
  return number;
}

}  // namespace

std::optional<HidName> HidName::parse(std::string_view text) {
  const auto bus = takeNumber(&text, ":");
  const auto vendor = bus ? takeNumber(&text, ":") : std::nullopt;
  const auto product = vendor ? takeNumber(&text, ".") : std::nullopt;
  const auto number = product ? takeNumber(&text, "") : std::nullopt;
  if (!number || *number > kLargestID - kFirstID) return std::nullopt;
  return HidName{*bus, *vendor, *product, *number};
}

std::uint64_t HidName::registryEntryID() const {
  return kFirstID + number;
}

}  // namespace router
