// SPDX-License-Identifier: Apache-2.0

// What can be asked of a parsed report descriptor: usages and elements.
#include <algorithm>
#include <iterator>

#include "router/ReportDescriptor.h"

namespace router {

void UsageList::appendRange(std::uint32_t page, std::uint32_t first, std::uint32_t last) {
  ranges_.push_back({count_, page, first, last});
  count_ += std::uint64_t{last} - first + 1;
}

std::vector<UsageRange> UsageList::firstRanges(std::uint64_t count) const {
  std::vector<UsageRange> result;
  for (const Range& range : ranges_) {
    if (range.start >= count) break;
    const std::uint64_t last =
        std::min(std::uint64_t{range.last}, range.first + (count - range.start - 1));
    result.push_back(
        {range.page << 16U | range.first, range.page << 16U | static_cast<std::uint32_t>(last)});
  }
  return result;
}

std::optional<Usage> UsageList::at(std::uint64_t index) const {
  if (index >= count_) return std::nullopt;
  const auto next =
      std::upper_bound(ranges_.begin(), ranges_.end(), index,
                       [](std::uint64_t i, const Range& range) { return i < range.start; });
  const Range& range = *std::prev(next);
  return Usage{range.page, range.first + static_cast<std::uint32_t>(index - range.start)};
}

Usage UsageList::atOrLast(std::uint64_t index) const {
  if (index < count_) return *at(index);
  return {ranges_.back().page, ranges_.back().last};
}

Usage ReportField::usageOfField(std::uint32_t index) const {
  return usages.empty() ? Usage{usagePage, 0} : usages.atOrLast(index);
}

Usage ReportField::usageOfSelection(std::int64_t value) const {
  if (value >= logicalMinimum && value <= logicalMaximum) {
    // The range is at most 2^32 wide, so the difference cannot overflow.
    if (const auto usage = usages.at(static_cast<std::uint64_t>(value - logicalMinimum)))
      return *usage;
  }
  return noSelection();
}

Usage ReportField::noSelection() const {
  return {usages.empty() ? usagePage : usages.atOrLast(0).page, 0};
}

std::optional<Element> ReportDescriptor::elementWithCookie(std::uint64_t cookie) const {
  if (cookie == 0 || cookie > elementCount_) return std::nullopt;
  const auto next = std::upper_bound(
      fields_.begin(), fields_.end(), cookie,
      [](std::uint64_t c, const ReportField& field) { return c < field.firstCookie; });
  const ReportField& field = *std::prev(next);
  return Element{&field, static_cast<std::uint32_t>(cookie - field.firstCookie),
                 static_cast<std::uint32_t>(cookie)};
}

}  // namespace router
