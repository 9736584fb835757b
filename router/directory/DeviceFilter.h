// SPDX-License-Identifier: Apache-2.0

// Which devices a watcher wants to know of.
//
// A criterion is a dictionary of integers: Device (registry entry ID), Vendor, Product, UsagePage,
// Usage. A device meets it if it has all of them; the last two are those of one of its outermost
// collections.
//
// Threading: immutable.
// Errors: std::invalid_argument for what is no array of such dictionaries.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "router/control/DeviceListing.h"

namespace router {

class DeviceFilter {
 public:
  /// Admits every device.
  DeviceFilter() = default;
  /// Null or empty `matching`: any device. At most `limit` criteria in all.
  DeviceFilter(const std::shared_ptr<platform::NSArray>& matching,
               const std::shared_ptr<platform::NSArray>& excluding, std::size_t limit);

  [[nodiscard]] bool admits(const ListedDevice& device) const;

 private:
  struct Criterion {
    std::optional<std::uint64_t> device, vendor, product, usagePage, usage;
    [[nodiscard]] bool isMetBy(const ListedDevice& listed) const;
  };
  using Criteria = std::vector<Criterion>;
  static Criteria criteriaIn(const std::shared_ptr<platform::NSArray>& array);
  static Criterion criterionIn(const platform::NSObject& object);

  Criteria matching_;
  Criteria excluding_;
};

}  // namespace router
