// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <bit>
#include <limits>
#include <unordered_map>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PropertyListCoding.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerBytes = 32;

// The objects of a binary list refer to each other by number, in any direction and any number of
// times. Each is created once; the size of what it expands to (`objects`, `height`) is kept with
// it, so that sharing cannot get around the limits.
class BinaryReader {
 public:
  explicit BinaryReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::shared_ptr<NSObject> read() {
    readTrailer();
    return objectNumber(top_, 0).object;
  }

 private:
  struct Known {
    std::shared_ptr<NSObject> object;  // null while its members are being read
    std::size_t objects = 1;
    std::size_t height = 0;
  };

  [[noreturn]] static void fail(const char* why) { throw PropertyListFault(why); }

  std::uint64_t integerAt(std::size_t offset, std::size_t width) const {
    if (offset > bytes_.size() || width > bytes_.size() - offset) fail("a number outside the data");
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes_[offset + i];
    return value;
  }

  void readTrailer() {
    if (bytes_.size() < kMagic.size() + kTrailerBytes) fail("shorter than its trailer");
    const std::size_t trailer = bytes_.size() - kTrailerBytes;
    offsetWidth_ = bytes_[trailer + 6];
    referenceWidth_ = bytes_[trailer + 7];
    count_ = integerAt(trailer + 8, 8);
    top_ = integerAt(trailer + 16, 8);
    table_ = integerAt(trailer + 24, 8);
    const bool widths =
        offsetWidth_ >= 1 && offsetWidth_ <= 8 && referenceWidth_ >= 1 && referenceWidth_ <= 8;
    if (!widths || table_ < kMagic.size() || table_ > trailer ||
        count_ > (trailer - table_) / offsetWidth_) {
      fail("a trailer that does not fit the data");
    }
  }

  Known objectNumber(std::uint64_t number, std::size_t depth) {
    if (number >= count_) fail("a reference to a missing object");
    if (const auto known = known_.find(number); known != known_.end()) {
      if (!known->second.object) fail("an object that contains itself");
      if (depth + known->second.height > kPropertyListDepth) fail("nested too deeply");
      return known->second;
    }
    if (known_.size() >= kPropertyListObjects) fail("too many objects");
    known_.emplace(number, Known{});
    Known made = objectAt(offsetOf(number), depth);
    return known_[number] = std::move(made);
  }

  std::size_t offsetOf(std::uint64_t number) const {
    const std::uint64_t offset =
        integerAt(static_cast<std::size_t>(table_ + number * offsetWidth_), offsetWidth_);
    if (offset < kMagic.size() || offset >= table_) fail("an object outside the data");
    return static_cast<std::size_t>(offset);
  }

  Known objectAt(std::size_t offset, std::size_t depth) {
    const std::uint8_t low = bytes_[offset] & 0xF;
    switch (bytes_[offset] >> 4) {
      case 0x0:
        if (low != 0x8 && low != 0x9) fail("an object of an unknown kind");
        return {NSNumber::numberWithBool(low == 0x9)};
      case 0x1:
        return {integer(offset, low)};
      case 0x2:
        return {real(offset, low)};
      case 0x3:
        return {date(offset, low)};
      case 0x4:
        return {NSData::dataWithBytes(body(offset, 1))};
      case 0x5:
        return {asciiString(textOf(body(offset, 1)))};
      case 0x6:
        return {unicodeString(textOf(body(offset, 2)))};
      case 0xA:
        return array(body(offset, referenceWidth_), depth);
      case 0xD:
        return dictionary(body(offset, 2 * referenceWidth_), depth);
      default:
        fail("an object of an unknown kind");
    }
  }

  /// The bytes after the marker of an object that has a count of units.
  std::span<const std::uint8_t> body(std::size_t offset, std::size_t unit) const {
    std::uint64_t count = bytes_[offset] & 0xF;
    std::size_t begin = offset + 1;
    if (count == 0xF) {
      if (begin >= table_ || bytes_[begin] >> 4 != 0x1 || (bytes_[begin] & 0xF) > 3) {
        fail("a count that is not an integer");
      }
      const std::size_t width = std::size_t{1} << (bytes_[begin] & 0xF);
      count = integerAt(begin + 1, width);
      begin += 1 + width;
    }
    if (begin > table_ || count > (table_ - begin) / unit)
      fail("an object that runs past the data");
    return bytes_.subspan(begin, static_cast<std::size_t>(count) * unit);
  }

  std::uint64_t scalar(std::size_t offset, std::size_t width) const {
    if (width > table_ - offset - 1) fail("an object that runs past the data");
    return integerAt(offset + 1, width);
  }

  // Up to four bytes are unsigned, eight are signed; sixteen are for values that don't fit in
  // eight.
  std::shared_ptr<NSObject> integer(std::size_t offset, std::uint8_t low) const {
    if (low > 4) fail("an integer of an unknown width");
    if (low < 4) {
      return NSNumber::numberWithLongLong(
          static_cast<std::int64_t>(scalar(offset, std::size_t{1} << low)));
    }
    const std::uint64_t high = scalar(offset, 8);
    const std::uint64_t value = scalar(offset + 8, 8);
    const bool negative = value >> 63 != 0;
    if (high == 0 && negative) return NSNumber::numberWithUnsignedLongLong(value);
    if (high != (negative ? ~std::uint64_t{0} : 0)) fail("an integer of more than 64 bits");
    return NSNumber::numberWithLongLong(static_cast<std::int64_t>(value));
  }

  std::shared_ptr<NSObject> real(std::size_t offset, std::uint8_t low) const {
    if (low == 2) {
      const auto bits = static_cast<std::uint32_t>(scalar(offset, 4));
      return NSNumber::numberWithDouble(static_cast<double>(std::bit_cast<float>(bits)));
    }
    if (low != 3) fail("a real of an unknown width");
    return NSNumber::numberWithDouble(std::bit_cast<double>(scalar(offset, 8)));
  }

  std::shared_ptr<NSObject> date(std::size_t offset, std::uint8_t low) const {
    if (low != 3) fail("a date of an unknown width");
    const auto seconds = std::bit_cast<double>(scalar(offset, 8));
    if (!isPropertyListDate(seconds)) fail("a date out of range");
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
  }

  static std::string_view textOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  static std::shared_ptr<NSObject> asciiString(std::string_view text) {
    const auto beyond = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    if (std::ranges::any_of(text, beyond)) fail("a string that is invalid in its encoding");
    return str(text);
  }

  static std::shared_ptr<NSObject> unicodeString(std::string_view text) {
    const auto converted = UTF8FromUTF16BigEndian(text);
    if (!converted) fail("a string that is invalid in its encoding");
    return str(*converted);
  }

  Known member(std::span<const std::uint8_t> references, std::size_t index, std::size_t depth) {
    const auto offset = static_cast<std::size_t>(references.data() - bytes_.data());
    return objectNumber(integerAt(offset + index * referenceWidth_, referenceWidth_), depth + 1);
  }

  static void checkRoom(std::size_t members, std::size_t depth) {
    if (depth >= kPropertyListDepth) fail("nested too deeply");
    if (members >= kPropertyListObjects) fail("too many objects");
  }

  static void count(Known& container, const Known& added) {
    container.objects += added.objects;
    container.height = std::max(container.height, added.height + 1);
    if (container.objects > kPropertyListObjects) fail("too many objects");
  }

  Known array(std::span<const std::uint8_t> references, std::size_t depth) {
    const std::size_t members = references.size() / referenceWidth_;
    checkRoom(members, depth);
    Known made{nullptr, 1, 1};
    std::vector<std::shared_ptr<NSObject>> objects;
    objects.reserve(members);
    for (std::size_t i = 0; i < members; ++i) {
      const Known added = member(references, i, depth);
      count(made, added);
      objects.push_back(added.object);
    }
    made.object = NSArray::arrayWithObjects(std::move(objects));
    return made;
  }

  // All keys come first, then all values.
  Known dictionary(std::span<const std::uint8_t> references, std::size_t depth) {
    const std::size_t members = references.size() / (2 * referenceWidth_);
    checkRoom(2 * members, depth);
    Known made{nullptr, 1, 1};
    std::vector<NSDictionary::Entry> entries;
    entries.reserve(members);
    for (std::size_t i = 0; i < members; ++i) {
      const Known key = member(references, i, depth);
      if (!objectCast<NSString>(key.object)) fail("a dictionary key that is not a string");
      const Known value = member(references, members + i, depth);
      count(made, key);
      count(made, value);
      entries.emplace_back(key.object, value.object);
    }
    made.object = NSDictionary::dictionaryWithEntries(std::move(entries));
    return made;
  }

  const std::span<const std::uint8_t> bytes_;
  std::size_t offsetWidth_ = 0;
  std::size_t referenceWidth_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  std::unordered_map<std::uint64_t, Known> known_;
};

}  // namespace

bool isBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= kMagic.size() &&
         std::string_view(reinterpret_cast<const char*>(bytes.data()), kMagic.size()) == kMagic;
}

std::shared_ptr<NSObject> objectFromBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  return BinaryReader(bytes).read();
}

}  // namespace platform
