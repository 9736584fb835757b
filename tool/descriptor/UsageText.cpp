// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/UsageText.h"

#include "input/UsageNames.h"
#include "platform/foundation/Format.h"

namespace tool {

using platform::stringWithFormat;

bool hasUsageName(std::uint32_t page, std::uint32_t usage) {
  return wlhid::usageName(page, usage) != stringWithFormat("%04x/%04x", page, usage);
}

std::string usageText(const router::UsageRange& range) {
  const std::uint32_t page = range.first >> 16U;
  const std::uint32_t first = range.first & 0xffffU;
  const std::uint32_t last = range.last & 0xffffU;
  if (range.first == range.last) return wlhid::usageName(page, first);
  if (hasUsageName(page, first) && hasUsageName(page, last))
    return wlhid::usageName(page, first) + " to " + wlhid::usageName(page, last);
  return stringWithFormat("%s 0x%02x to 0x%02x", wlhid::usagePageName(page), first, last);
}

}  // namespace tool
