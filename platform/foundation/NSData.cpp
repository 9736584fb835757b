// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSData.h"

#include <algorithm>
#include <cstring>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSString.h"

namespace platform {
namespace {

constexpr std::size_t kShownWhole = 24;
constexpr std::size_t kShownAtStart = 16;
constexpr std::size_t kShownAtEnd = 8;

void appendHexadecimal(std::string& text, std::span<const std::uint8_t> bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
}

void appendGroups(std::string& text, std::span<const std::uint8_t> bytes) {
  for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(4, bytes.size()))) {
    appendHexadecimal(text, bytes.first(std::min<std::size_t>(4, bytes.size())));
    text += ' ';
  }
}

}  // namespace

const NSClass& NSData::classObject() {
  static const NSClass object{"NSData", &NSObject::classObject()};
  return object;
}

std::shared_ptr<NSData> NSData::dataWithBytes(std::span<const std::uint8_t> bytes) {
  return dataWithLength(bytes.size(), [&](std::span<std::uint8_t> room) {
    if (!bytes.empty()) std::memcpy(room.data(), bytes.data(), bytes.size());
  });
}

std::shared_ptr<NSData> NSData::dataWithContentsOfFile(const std::shared_ptr<NSString>& path) {
  return path ? foundationProvider().load()->dataWithContentsOfFile(path) : nullptr;
}

std::shared_ptr<NSData> NSData::subdataWithRange(std::size_t location, std::size_t length) const {
  if (location > length_ || length > length_ - location) {
    throw NSRangeException("range {" + std::to_string(location) + ", " + std::to_string(length) +
                           "} exceeds data of length " + std::to_string(length_));
  }
  return dataWithBytes(span().subspan(location, length));
}

std::strong_ordering NSData::compareValue(const NSObject& other) const {
  const auto& data = static_cast<const NSData&>(other);
  if (length_ != data.length_) return length_ <=> data.length_;
  return length_ == 0 ? std::strong_ordering::equal
                      : std::memcmp(bytes_, data.bytes_, length_) <=> 0;
}

std::string NSData::description() const {
  std::string text = "{length = " + std::to_string(length_) + ", bytes = 0x";
  if (length_ <= kShownWhole) {
    appendHexadecimal(text, span());
  } else {
    appendGroups(text, span().first(kShownAtStart));
    text += "... ";
    appendGroups(text, span().last(kShownAtEnd));
  }
  return text + '}';
}

std::string NSData::descriptionWithIndent(std::size_t) const {
  return description();
}

}  // namespace platform
