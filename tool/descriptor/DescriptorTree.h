// SPDX-License-Identifier: Apache-2.0

// A report descriptor as a tree that a person can read: collections, and in them the fields of the
// reports, each in one line.
//
// Threading: any thread.
// Order: that of the descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "router/ReportDescriptor.h"

namespace tool {

struct DescriptorNode {
  std::size_t offset = 0;  ///< of the item in the descriptor
  /// One of the two is set.
  const router::Collection* collection = nullptr;
  const router::ReportField* field = nullptr;
  std::vector<DescriptorNode> children;
};

/// The nodes point into the descriptor.
[[nodiscard]] std::vector<DescriptorNode> treeOf(const router::ReportDescriptor& descriptor);

/// "Application collection: Mouse"; "Input, report 1: X, Y; 2 × 16 bits from bit 8; 0 to 32767".
[[nodiscard]] std::string lineOf(const DescriptorNode& node);
/// Calls `visit` with each node and its depth.
void forEachNode(const std::vector<DescriptorNode>& nodes,
                 const std::function<void(const DescriptorNode&, std::size_t depth)>& visit);

/// "application", "vendor-defined 0x80".
[[nodiscard]] std::string collectionType(std::uint32_t type);
/// "Input", "Output", "Feature".
[[nodiscard]] std::string typeName(router::ReportType type);
/// "X, Y, Button 1 to Button 3": at most so many, then how many more there are.
[[nodiscard]] std::string usageNames(const std::vector<router::UsageRange>& ranges);
/// The usages of a field's values; empty if it names none.
[[nodiscard]] std::vector<router::UsageRange> usagesOf(const router::ReportField& field);

/// The size of one report.
struct ReportSize {
  router::ReportType type = router::ReportType::Input;
  std::uint8_t reportID = 0;
  std::uint32_t bits = 0;    ///< with the ID
  std::size_t lastItem = 0;  ///< offset of the one that ends it
  [[nodiscard]] std::uint32_t bytes() const { return (bits + 7) / 8; }
};
/// By type, then ID.
[[nodiscard]] std::vector<ReportSize> reportSizes(const router::ReportDescriptor& descriptor);
/// "input 1 (6 bytes), feature 2 (3 bytes)".
[[nodiscard]] std::string reportList(const router::ReportDescriptor& descriptor);

}  // namespace tool
