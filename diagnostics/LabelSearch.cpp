// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/LabelSearch.h"

#include <cstdint>
#include <cstring>

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {
namespace {

/// A label that starts in a block may end this many bytes after it.
constexpr std::size_t kOverhang = kRouterLabel.size() - 1;

/// Fast if the label is near, since it needs no setup; slow if there are many periods.
std::size_t findByPeriod(std::string_view text) {
  constexpr std::size_t period = kRouterLabel.find('.');
  for (auto at = text.find('.', period); at != npos; at = text.find('.', at + 1))
    if (text.substr(at - period).starts_with(kRouterLabel)) return at - period;
  return npos;
}

/// Fast if the label is likely to be there: builds a table of the label first.
std::size_t findByTable(std::string_view text) {
  const void* const place =
      ::memmem(text.data(), text.size(), kRouterLabel.data(), kRouterLabel.size());
  return place == nullptr ? npos
                          : static_cast<std::size_t>(static_cast<const char*>(place) - text.data());
}

constexpr std::size_t kBlockBytes = 256;

/// Looks for two adjacent characters that rarely occur together elsewhere. The loop has no early
/// exit, and its result is a byte like its input, so that the compiler vectorizes it.
bool mayHoldLabel(const char* block) {
  constexpr std::size_t probed = kRouterLabel.find(".q");
  std::uint8_t any = 0;
  for (std::size_t i = 0; i < kBlockBytes; ++i)
    any |= static_cast<std::uint8_t>((block[i + probed] == '.') & (block[i + probed + 1] == 'q'));
  return any != 0;
}

/// Fast if the label is far away: nearly every block is skipped.
std::size_t findByBlocks(std::string_view text) {
  std::size_t at = 0;
  for (; text.size() - at >= kBlockBytes + kOverhang; at += kBlockBytes) {
    if (!mayHoldLabel(text.data() + at)) continue;
    const auto place = findByTable(text.substr(at, kBlockBytes + kOverhang));
    if (place != npos) return at + place;
  }
  const auto place = findByTable(text.substr(at));
  return place == npos ? npos : at + place;
}

std::size_t find(std::string_view text) {
  constexpr std::size_t near = 1024;
  const auto place = findByPeriod(text.substr(0, near + kOverhang));
  if (place != npos || text.size() < near) return place;
  const auto far = findByBlocks(text.substr(near));
  return far == npos ? npos : near + far;
}

}  // namespace

std::size_t findRouterLabel(std::string_view text, std::size_t start) {
  if (start >= text.size()) return npos;
  const auto place = find(text.substr(start));
  return place == npos ? npos : start + place;
}

}  // namespace diagnostics
