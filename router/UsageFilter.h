// Which usages a client wants the values of.
//
// It comes from the tag dictionary of the start request, of which the router reads the keys only:
// each names one usage, as `usage page << 16 | usage`. A key is a number or, for dictionaries that
// come from a property list, which has no other keys than text, the same number as text: decimal,
// or hexadecimal behind "0x". No dictionary, or an empty one, wants everything. A slot of an array
// passes by the usage that its value selects; an empty slot (usage 0) passes only where `usage page
// << 16` is named too, so a client that wants to see such a key come up names that as well.
//
// Threading: immutable. Ownership: a value. Order: values keep theirs.
// Errors: std::invalid_argument, naming the key that is no usage, or the bound.
#pragma once

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
  /// Wants everything.
  UsageFilter() = default;
  /// Of at most `limit` usages.
  explicit UsageFilter(const std::shared_ptr<platform::NSDictionary>& tagDictionary,
                       std::size_t limit = RouterLimits().usagesOfFilter);

  [[nodiscard]] bool wantsEverything() const { return usages_.empty(); }
  [[nodiscard]] bool wants(const platform::HIDElementValueRecord& value) const;
  /// Those of `values` that are wanted; `values` itself where all are, else `buffer` filled with
  /// them.
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> select(
      std::span<const platform::HIDElementValueRecord> values,
      std::vector<platform::HIDElementValueRecord>* buffer) const;

 private:
  std::vector<std::uint32_t> usages_;  // sorted
};

}  // namespace router
