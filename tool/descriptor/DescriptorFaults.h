// SPDX-License-Identifier: Apache-2.0

// What is wrong with a report descriptor, and where.
//
// Threading: any thread.
// Order: by offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "router/ReportDescriptor.h"

namespace tool {

struct DescriptorFault {
  std::size_t offset = 0;
  std::string text;
  /// The router cannot use the device. Otherwise it can, but the item does not do what its author
  /// probably meant.
  bool isFatal = false;
  friend bool operator==(const DescriptorFault&, const DescriptorFault&) = default;
};

/// `parsed` is what `bytes` were parsed to.
[[nodiscard]] std::vector<DescriptorFault> faultsOf(std::span<const std::uint8_t> bytes,
                                                    const router::FaultyDescriptor& parsed);

}  // namespace tool
