// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/DescriptorFaults.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/Format.h"
#include "router/DescriptorItems.h"
#include "tool/descriptor/DescriptorTree.h"

namespace tool {

namespace {

using router::DescriptorItem;
using router::DescriptorItemType;
using router::ReportField;
using Faults = std::vector<DescriptorFault>;

/// Without the offset at its beginning.
std::string causeOf(const router::ReportDescriptorError& error) {
  const std::string text = error.what();
  return text.substr(text.find(": ") + 2);
}

void checkUsages(const ReportField& field, Faults* faults) {
  if (field.constant) return;
  if (field.usages.empty()) {
    faults->push_back({field.offset, "the item has no usage, so nobody can tell what it carries"});
  } else if (field.variable && field.usages.count() > field.count) {
    faults->push_back({field.offset, std::to_string(field.usages.count()) + " usages for " +
                                         std::to_string(field.count) +
                                         " fields: the others are not used"});
  }
}

void checkRanges(const ReportField& field, Faults* faults) {
  if (field.constant || field.bitSize >= 32) return;
  const std::int64_t values = std::int64_t{1} << field.bitSize;
  const bool isSigned = field.logicalMinimum < 0;
  const std::int64_t largest = isSigned ? values / 2 - 1 : values - 1;
  const std::int64_t smallest = isSigned ? -values / 2 : 0;
  if (field.logicalMaximum > largest || field.logicalMinimum < smallest) {
    faults->push_back(
        {field.offset,
         platform::stringWithFormat("the logical range %lld to %lld does not fit into %u bits",
                                    field.logicalMinimum, field.logicalMaximum, field.bitSize)});
  }
  if (field.physicalMaximum < field.physicalMinimum)
    faults->push_back({field.offset, "the physical maximum is below the minimum"});
}

void checkFields(const router::ReportDescriptor& descriptor, Faults* faults) {
  for (const ReportField& field : descriptor.fields()) {
    checkUsages(field, faults);
    checkRanges(field, faults);
    if (!field.collection) faults->push_back({field.offset, "the item lies in no collection"});
  }
}

void checkSizes(const router::ReportDescriptor& descriptor, Faults* faults) {
  for (const ReportSize& size : reportSizes(descriptor)) {
    if (size.bits % 8 == 0) continue;
    faults->push_back({size.lastItem, "the report ends inside a byte: it has " +
                                          std::to_string(size.bits) + " bits"});
  }
}

bool isKnown(const DescriptorItem& item) {
  constexpr std::uint8_t kFirstMain = 8;
  constexpr std::uint8_t kLastMain = 12;
  constexpr std::uint8_t kLastGlobal = 11;
  constexpr std::uint8_t kLastLocal = 10;
  switch (item.type) {
    case DescriptorItemType::Main:
      return item.tag >= kFirstMain && item.tag <= kLastMain;
    case DescriptorItemType::Global:
      return item.tag <= kLastGlobal;
    case DescriptorItemType::Local:
      return item.tag <= kLastLocal && item.tag != 6;
    case DescriptorItemType::Reserved:
      break;
  }
  return false;
}

/// Items that do nothing where they stand.
class ItemCheck {
 public:
  explicit ItemCheck(Faults* faults) : faults_(faults) {}

  void take(const DescriptorItem& item) {
    constexpr std::uint8_t kEndCollection = 12;
    if (!isKnown(item)) {
      faults_->push_back({item.offset, "an item of an unknown kind is skipped"});
    } else if (item.type == DescriptorItemType::Local) {
      if (!std::exchange(hasLocal_, true)) firstLocal_ = item.offset;
    } else if (item.type == DescriptorItemType::Main) {
      if (item.tag == kEndCollection) finish();
      hasLocal_ = false;
    }
  }
  void finish() {
    if (hasLocal_)
      faults_->push_back({firstLocal_, "no item follows to which this usage could belong"});
  }

 private:
  Faults* faults_;
  bool hasLocal_ = false;       // since the last main item
  std::size_t firstLocal_ = 0;  // where it begins
};

void checkItems(std::span<const std::uint8_t> bytes, Faults* faults) try {
  router::DescriptorItemReader reader(bytes);
  DescriptorItem item;
  ItemCheck check(faults);
  while (reader.next(&item)) check.take(item);
  check.finish();
} catch (const router::ReportDescriptorError&) {
  // That an item is cut off is the fault which the parser has found.
}

}  // namespace

std::vector<DescriptorFault> faultsOf(std::span<const std::uint8_t> bytes,
                                      const router::FaultyDescriptor& parsed) {
  Faults faults;
  checkFields(parsed.descriptor, &faults);
  if (parsed.fault) {
    checkItems(bytes.first(std::min(parsed.fault->offset(), bytes.size())), &faults);
    faults.push_back({parsed.fault->offset(), causeOf(*parsed.fault), true});
  } else {
    checkItems(bytes, &faults);
    checkSizes(parsed.descriptor, &faults);
  }
  std::ranges::stable_sort(faults, {}, &DescriptorFault::offset);
  return faults;
}

}  // namespace tool
