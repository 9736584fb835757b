// SPDX-License-Identifier: Apache-2.0

#include "router/DescriptorItems.h"

#include <string>

#include "router/ReportDescriptor.h"

namespace router {

namespace {

constexpr std::uint8_t kLongItemPrefix = 0xfe;

}  // namespace

bool DescriptorItemReader::next(DescriptorItem* returnItem) {
  while (position_ < bytes_.size()) {
    if (bytes_[position_] == kLongItemPrefix) {
      skipLongItem();
    } else {
      *returnItem = readShortItem();
      return true;
    }
  }
  return false;
}

void DescriptorItemReader::require(std::size_t itemLength) const {
  if (itemLength > bytes_.size() - position_) {
    throw ReportDescriptorError(
        position_, "the item is truncated: it needs " + std::to_string(itemLength) +
                       " bytes, but " + std::to_string(bytes_.size() - position_) + " are left");
  }
}

void DescriptorItemReader::skipLongItem() {
  constexpr std::size_t kHeader = 3;  // prefix, data size, tag
  require(kHeader);
  const std::size_t length = kHeader + bytes_[position_ + 1];
  require(length);
  position_ += length;
}

DescriptorItem DescriptorItemReader::readShortItem() {
  const std::uint8_t prefix = bytes_[position_];
  const std::uint8_t size = (prefix & 3U) == 3U ? 4 : (prefix & 3U);
  require(std::size_t{1} + size);
  DescriptorItem item{position_, static_cast<DescriptorItemType>((prefix >> 2U) & 3U),
                      static_cast<std::uint8_t>(prefix >> 4U), size, 0};
  for (std::uint8_t i = 0; i < size; ++i) {
    item.value |= static_cast<std::uint32_t>(bytes_[position_ + 1 + i]) << (8U * i);
  }
  position_ += std::size_t{1} + size;
  return item;
}

}  // namespace router
