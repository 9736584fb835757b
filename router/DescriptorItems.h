// SPDX-License-Identifier: Apache-2.0

// The items of a report descriptor, one after the other.
//
// Threading: one thread at a time.
// Ownership: reads the bytes where they are.
// Errors: ReportDescriptorError for an item that is cut off.
// Order: that of the descriptor. Long items are skipped, as their definition requires.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace router {

enum class DescriptorItemType : std::uint8_t { Main = 0, Global = 1, Local = 2, Reserved = 3 };

// Tags, for the types of item that have them.
enum class MainTag : std::uint8_t {
  Input = 8,
  Output = 9,
  Collection = 10,
  Feature = 11,
  EndCollection = 12,
};

enum class GlobalTag : std::uint8_t {
  UsagePage = 0,
  LogicalMinimum = 1,
  LogicalMaximum = 2,
  PhysicalMinimum = 3,
  PhysicalMaximum = 4,
  UnitExponent = 5,
  Unit = 6,
  ReportSize = 7,
  ReportID = 8,
  ReportCount = 9,
  Push = 10,
  Pop = 11,
};

enum class LocalTag : std::uint8_t {
  Usage = 0,
  UsageMinimum = 1,
  UsageMaximum = 2,
  Delimiter = 10
};

struct DescriptorItem {
  std::size_t offset = 0;
  DescriptorItemType type = DescriptorItemType::Reserved;
  std::uint8_t tag = 0;
  std::uint8_t size = 0;    // of the data, in bytes
  std::uint32_t value = 0;  // the data, zero-extended
};

class DescriptorItemReader {
 public:
  explicit DescriptorItemReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// False at the end.
  bool next(DescriptorItem* returnItem);

 private:
  void require(std::size_t itemLength) const;
  void skipLongItem();
  DescriptorItem readShortItem();

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace router
