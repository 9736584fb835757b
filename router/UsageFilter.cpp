// SPDX-License-Identifier: Apache-2.0

#include "router/UsageFilter.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"

namespace router {

namespace {

using platform::NSNumber;
using platform::NSObject;
using platform::NSString;

std::optional<std::uint64_t> integerIn(const NSNumber& number) {
  if (const auto* value = std::get_if<std::uint64_t>(&number.value())) return *value;
  if (const auto* value = std::get_if<std::int64_t>(&number.value())) {
    return *value < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(*value));
  }
  return std::nullopt;
}

std::optional<std::uint64_t> integerIn(std::string_view text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, isHexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::uint32_t usageIn(const std::shared_ptr<NSObject>& key) {
  std::optional<std::uint64_t> value;
  if (const auto number = platform::objectCast<NSNumber>(key)) value = integerIn(*number);
  if (const auto text = platform::objectCast<NSString>(key)) value = integerIn(text->UTF8String());
  if (!value || *value > std::numeric_limits<std::uint32_t>::max()) {
    constexpr std::size_t kShown = 64;
    throw std::invalid_argument("the tag dictionary's key " +
                                platform::printableLine(key->description(), kShown) +
                                " is not a usage");
  }
  return static_cast<std::uint32_t>(*value);
}

}  // namespace

UsageFilter::UsageFilter(const std::shared_ptr<platform::NSDictionary>& tagDictionary,
                         std::size_t limit) {
  if (tagDictionary == nullptr) return;
  if (tagDictionary->entries().size() > limit) {
    throw std::invalid_argument("the tag dictionary names more than " + std::to_string(limit) +
                                " usages");
  }
  for (const auto& [key, tags] : tagDictionary->entries()) usages_.push_back(usageIn(key));
  std::sort(usages_.begin(), usages_.end());
}

bool UsageFilter::wants(const platform::HIDElementValueRecord& value) const {
  return wantsEverything() ||
         std::binary_search(usages_.begin(), usages_.end(), value.usagePage << 16U | value.usage);
}

bool UsageFilter::wantsAnyOf(std::uint32_t first, std::uint32_t last) const {
  if (wantsEverything()) return true;
  const auto next = std::lower_bound(usages_.begin(), usages_.end(), first);
  return next != usages_.end() && *next <= last;
}

std::span<const platform::HIDElementValueRecord> UsageFilter::select(
    std::span<const platform::HIDElementValueRecord> values,
    std::vector<platform::HIDElementValueRecord>* buffer) const {
  if (wantsEverything()) return values;
  buffer->clear();
  std::copy_if(values.begin(), values.end(), std::back_inserter(*buffer),
               [this](const auto& value) { return wants(value); });
  return *buffer;
}

}  // namespace router
