// SPDX-License-Identifier: Apache-2.0

// A parsed HID report descriptor: which bits of which report belong to which element.
//
// A descriptor is a list of short items. Global items set values that persist, local items set
// values for the next main item, and each Input, Output or Feature item then appends `report count`
// fields of `report size` bits to its report. One such item is a ReportField here; each of its
// fields is one element.
//
// Elements and cookies: every field of every Input, Output and Feature item is an element,
// including constant ones, in the order of the descriptor; a field of a variable item is one
// element, a slot of an array item is one element. An element's cookie is its 1-based index in that
// order, so it depends on the descriptor alone. An item with no fields, or with fields of no bits,
// adds nothing and counts nothing.
//
// Usages: a usage given without a page gets the usage page in force at the main item. If a variable
// item has more fields than usages, the last usage applies to the rest. Of a delimited set of
// alternative usages the first is used. Who must not miss a usage has everyUsage: what the item
// names in any reading, whether or not a value can have it.
//
// Threading: immutable after parsing.
// Ownership: a value; elements point into it.
// Order: that of the descriptor.
// Errors: parse() throws ReportDescriptorError, which gives the offset of the item and the cause;
//   parseUpToFault() returns it with what came before. Long items and items with a reserved tag are
//   skipped, as their definition requires.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace router {

class ReportDescriptorError : public std::runtime_error {
 public:
  ReportDescriptorError(std::size_t offset, const std::string& cause);
  /// Of the first byte of the offending item, or the descriptor's length if something is missing at
  /// its end.
  [[nodiscard]] std::size_t offset() const { return offset_; }

 private:
  std::size_t offset_;
};

enum class ReportType : std::uint8_t { Input, Output, Feature };

struct Usage {
  std::uint32_t page = 0;
  std::uint32_t id = 0;
  friend bool operator==(const Usage&, const Usage&) = default;
};

/// Usages from the first to the last, both included, each as `page << 16 | usage`. The two may lie
/// on different pages.
struct UsageRange {
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  [[nodiscard]] bool overlaps(const UsageRange& other) const {
    return first <= other.last && other.first <= last;
  }
  friend bool operator==(const UsageRange&, const UsageRange&) = default;
};

/// One Collection item.
struct Collection {
  static constexpr std::uint32_t kPhysical = 0;
  static constexpr std::uint32_t kApplication = 1;
  static constexpr std::uint32_t kLogical = 2;

  std::uint32_t type = kPhysical;
  std::optional<std::size_t> enclosing;  ///< index of the collection that it lies in
  std::vector<UsageRange> everyUsage;    ///< that the item names, in any reading
  std::size_t offset = 0;                ///< of the item in the descriptor
};

/// The usages of one main item, in order. Ranges are kept as ranges.
class UsageList {
 public:
  /// The range includes both ends.
  void appendRange(std::uint32_t page, std::uint32_t first, std::uint32_t last);

  [[nodiscard]] bool empty() const { return ranges_.empty(); }
  [[nodiscard]] std::uint64_t count() const { return count_; }
  /// Empty if `index` is not below count().
  [[nodiscard]] std::optional<Usage> at(std::uint64_t index) const;
  /// The last usage for indexes from count() on. The list must not be empty.
  [[nodiscard]] Usage atOrLast(std::uint64_t index) const;
  /// The usages at the indexes below `count`.
  [[nodiscard]] std::vector<UsageRange> firstRanges(std::uint64_t count) const;

 private:
  struct Range {
    std::uint64_t start = 0;  // index of the first usage in the list
    std::uint32_t page = 0;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
  };
  std::vector<Range> ranges_;
  std::uint64_t count_ = 0;
};

/// One Input, Output or Feature item: `count` fields of `bitSize` bits each.
struct ReportField {
  ReportType type = ReportType::Input;
  std::uint8_t reportID = 0;  ///< 0 if the descriptor uses no report IDs
  bool constant = false;
  bool variable = false;        ///< otherwise an array
  bool relative = false;        ///< values are changes
  bool hasNullState = false;    ///< a value out of the logical range means: none
  std::uint32_t bitOffset = 0;  ///< of field 0, from the report's first bit, including the ID byte
  std::uint32_t bitSize = 0;
  std::uint32_t count = 0;
  std::uint32_t firstCookie = 0;
  std::int64_t logicalMinimum = 0;
  std::int64_t logicalMaximum = 0;
  std::int64_t physicalMinimum = 0;  ///< what the logical minimum stands for, in units
  std::int64_t physicalMaximum = 0;  ///< both 0: the logical range
  std::uint32_t unit = 0;         ///< as in the item: four bits for the system, for each dimension
  std::int32_t unitExponent = 0;  ///< of ten
  std::uint32_t usagePage = 0;    ///< in force at the item
  UsageList usages;
  std::vector<UsageRange> everyUsage;     ///< that the item names, in any reading
  std::optional<std::size_t> collection;  ///< index of the innermost one that it lies in
  std::size_t offset = 0;                 ///< of the item in the descriptor

  /// The usage of field `index` of a variable item; usage 0 of the page in force if the item names
  /// no usage.
  [[nodiscard]] Usage usageOfField(std::uint32_t index) const;
  /// The usage that `value` selects in a slot of an array item: the one at index `value` − logical
  /// minimum. If the value is out of the logical range or beyond the usages: usage 0 of the page of
  /// the item's first usage.
  [[nodiscard]] Usage usageOfSelection(std::int64_t value) const;
  /// The usage of an array slot that selects nothing.
  [[nodiscard]] Usage noSelection() const;
};

/// One field of a main item.
struct Element {
  const ReportField* field = nullptr;
  std::uint32_t index = 0;  ///< of this field in the item
  std::uint32_t cookie = 0;

  [[nodiscard]] std::uint32_t bitOffset() const {
    return field->bitOffset + index * field->bitSize;
  }
};

struct FaultyDescriptor;

class ReportDescriptor {
 public:
  static ReportDescriptor parse(std::span<const std::uint8_t> bytes);
  /// For people who look for the fault: never throws ReportDescriptorError.
  static FaultyDescriptor parseUpToFault(std::span<const std::uint8_t> bytes);

  [[nodiscard]] const std::vector<ReportField>& fields() const { return fields_; }
  /// Each comes after the one that it lies in.
  [[nodiscard]] const std::vector<Collection>& collections() const { return collections_; }
  /// Whether every report begins with its ID.
  [[nodiscard]] bool usesReportIDs() const { return usesReportIDs_; }
  /// Cookies run from 1 to this.
  [[nodiscard]] std::uint32_t elementCount() const { return elementCount_; }
  /// Points into this descriptor. Empty if no element has the cookie.
  [[nodiscard]] std::optional<Element> elementWithCookie(std::uint64_t cookie) const;

 private:
  ReportDescriptor(std::vector<ReportField> fields, std::vector<Collection> collections,
                   bool usesReportIDs, std::uint32_t elementCount);

  std::vector<ReportField> fields_;
  std::vector<Collection> collections_;
  bool usesReportIDs_ = false;
  std::uint32_t elementCount_ = 0;
};

struct FaultyDescriptor {
  ReportDescriptor descriptor;                 ///< what the items before the fault say
  std::optional<ReportDescriptorError> fault;  ///< the first one, if any
};

}  // namespace router
