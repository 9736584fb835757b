// SPDX-License-Identifier: Apache-2.0

// Which usages a client wants values of.
//
// It comes from the tag dictionary of the start request, of which the router reads only the keys:
// each names one usage, as `usage page << 16 | usage`. A key is a number or, for dictionaries from
// a property list, whose keys can only be strings, the same number as text: decimal, or hexadecimal
// after "0x". No dictionary, or an empty one, selects everything. A slot of an array passes if the
// usage that its value selects is named; an empty slot (usage 0) passes only if `usage page << 16`
// is named too, so a client that wants to see such a key released must name that as well.
//
// Threading: immutable.
// Order: values keep theirs.
// Errors: std::invalid_argument, naming the key that is not a usage, or the limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/RouterLimits.h"

namespace router {

class UsageFilter {
 public:
  /// Selects everything.
  UsageFilter() = default;
  /// With at most `limit` usages.
  explicit UsageFilter(const std::shared_ptr<platform::NSDictionary>& tagDictionary,
                       std::size_t limit = RouterLimits().usagesPerFilter);

  [[nodiscard]] bool wantsEverything() const { return usages_.empty(); }
  [[nodiscard]] bool wants(const platform::HIDElementValueRecord& value) const;
  /// Whether a usage from `first` to `last` passes, both included, each `page << 16 | usage`.
  [[nodiscard]] bool wantsAnyOf(std::uint32_t first, std::uint32_t last) const;
  /// The wanted ones of `values`: `values` itself if all are, otherwise `buffer` filled with them.
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> select(
      std::span<const platform::HIDElementValueRecord> values,
      std::vector<platform::HIDElementValueRecord>* buffer) const;

 private:
  std::vector<std::uint32_t> usages_;  // sorted
};

}  // namespace router
