// SPDX-License-Identifier: Apache-2.0

#include "router/ApplicationCollections.h"

#include <algorithm>

#include "router/DescriptorItems.h"
#include "router/RouterLimits.h"

namespace router {

namespace {

constexpr std::uint8_t kWithPage = 4;  // bytes
constexpr std::uint32_t kLargestPart = 0xffff;

/// The type of the usage while there is none.
constexpr DescriptorItemType kNone = DescriptorItem().type;

class Outline {
 public:
  void take(const DescriptorItem& item) {
    switch (item.type) {
      case DescriptorItemType::Main:
        return takeMain(item);
      case DescriptorItemType::Global:
        return takeGlobal(item);
      case DescriptorItemType::Local:
        return takeLocal(item);
      case DescriptorItemType::Reserved:
        return;
    }
  }
  [[nodiscard]] bool isFull() const { return found_.size() >= RouterLimits::kListedCollections; }
  [[nodiscard]] std::vector<Usage> found() && { return std::move(found_); }

 private:
  void takeMain(const DescriptorItem& item) {
    const auto tag = static_cast<MainTag>(item.tag);
    if (tag == MainTag::Collection && depth_++ == 0) note();
    if (tag == MainTag::EndCollection && depth_ > 0) --depth_;
    usage_ = {};
  }
  void takeGlobal(const DescriptorItem& item) {
    const auto tag = static_cast<GlobalTag>(item.tag);
    if (tag == GlobalTag::UsagePage) page_ = item.value & kLargestPart;
    if (tag == GlobalTag::Push && pushed_.size() < RouterLimits::kGlobalStackDepth)
      pushed_.push_back(page_);
    if (tag == GlobalTag::Pop && !pushed_.empty()) {
      page_ = pushed_.back();
      pushed_.pop_back();
    }
  }
  void takeLocal(const DescriptorItem& item) {
    const auto tag = static_cast<LocalTag>(item.tag);
    const bool isUsage = tag == LocalTag::Usage || tag == LocalTag::UsageMinimum;
    if (isUsage && usage_.type == kNone) usage_ = item;
  }
  /// A usage without a page has the one that is in force at the collection.
  void note() {
    const std::uint32_t page = usage_.size == kWithPage ? usage_.value >> 16U : page_;
    const Usage usage{page, usage_.value & kLargestPart};
    if (!isFull() && std::find(found_.begin(), found_.end(), usage) == found_.end())
      found_.push_back(usage);
  }

  std::vector<Usage> found_;
  std::size_t depth_ = 0;
  std::uint32_t page_ = 0;
  std::vector<std::uint32_t> pushed_;
  DescriptorItem usage_;  // the first since the last main item, or kNone
};

}  // namespace

std::vector<Usage> applicationCollections(std::span<const std::uint8_t> reportDescriptor) {
  Outline outline;
  DescriptorItemReader reader(reportDescriptor);
  try {
    for (DescriptorItem item; !outline.isFull() && reader.next(&item);) outline.take(item);
  } catch (const ReportDescriptorError&) {
  }
  return std::move(outline).found();
}

}  // namespace router
