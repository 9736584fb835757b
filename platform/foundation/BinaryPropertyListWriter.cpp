// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <bit>
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

// Two passes: the width of references depends on the number of objects, so they can only be written
// once that is known.
class BinaryWriter {
 public:
  std::string write(const NSObject& root) {
    number(root, 0);
    referenceWidth_ = widthOf(items_.size() - 1);
    text_ = "bplist00";
    std::vector<std::size_t> offsets;
    for (const Item& item : items_) {
      offsets.push_back(text_.size());
      append(item);
      checkPropertyListSize(text_);
    }
    appendTable(offsets);
    checkPropertyListSize(text_);
    return std::move(text_);
  }

 private:
  struct Item {
    const NSObject* object;
    std::vector<std::size_t> references;
  };

  /// Assigns the object its index in the list; equal strings share one.
  std::size_t number(const NSObject& object, std::size_t depth) {
    if (++numbered_ > kPropertyListObjects) throw PropertyListFault("too many objects");
    const auto* string = dynamic_cast<const NSString*>(&object);
    if (string != nullptr) {
      const auto [known, isNew] = strings_.try_emplace(string->UTF8String(), items_.size());
      if (!isNew) return known->second;
    }
    const std::size_t place = items_.size();
    items_.push_back({&object, {}});
    auto references = numberMembers(object, depth);
    items_[place].references = std::move(references);
    return place;
  }

  std::vector<std::size_t> numberMembers(const NSObject& object, std::size_t depth) {
    std::vector<std::size_t> references;
    const auto* array = dynamic_cast<const NSArray*>(&object);
    const auto* dictionary = dynamic_cast<const NSDictionary*>(&object);
    if (array == nullptr && dictionary == nullptr) return references;
    if (depth >= kPropertyListDepth) throw PropertyListFault("nested too deeply");
    if (array != nullptr) {
      for (std::size_t i = 0; i < array->count(); ++i) {
        references.push_back(number(*array->objectAtIndex(i), depth + 1));
      }
      return references;
    }
    for (const auto& [key, value] : dictionary->entries()) {
      if (dynamic_cast<const NSString*>(key.get()) == nullptr) {
        throw PropertyListFault("a dictionary key that is not a string");
      }
      references.push_back(number(*key, depth + 1));
    }
    for (const auto& [key, value] : dictionary->entries()) {
      references.push_back(number(*value, depth + 1));
    }
    return references;
  }

  static std::size_t widthOf(std::uint64_t largest) {
    if (largest > 0xFFFFFFFF) return 8;
    if (largest > 0xFFFF) return 4;
    return largest > 0xFF ? 2 : 1;
  }

  void appendInteger(std::uint64_t value, std::size_t width) {
    for (std::size_t i = width; i-- > 0;) text_ += static_cast<char>(value >> (8 * i) & 0xFF);
  }

  /// An integer object; a count of 15 or more is written as one after the marker.
  void appendUnsigned(std::uint64_t value) {
    const std::size_t width = widthOf(value);
    text_ += static_cast<char>(0x10 | std::countr_zero(width));
    appendInteger(value, width);
  }

  void appendMarker(unsigned kind, std::size_t count) {
    text_ += static_cast<char>(kind << 4 | std::min<std::size_t>(count, 0xF));
    if (count >= 0xF) appendUnsigned(count);
  }

  void append(const Item& item) {
    if (const auto* string = dynamic_cast<const NSString*>(item.object))
      return appendString(*string);
    if (const auto* value = dynamic_cast<const NSNumber*>(item.object)) return appendNumber(*value);
    if (const auto* date = dynamic_cast<const NSDate*>(item.object)) return appendDate(*date);
    if (const auto* data = dynamic_cast<const NSData*>(item.object)) {
      appendMarker(0x4, data->length());
      for (const std::uint8_t byte : data->span()) text_ += static_cast<char>(byte);
    } else if (dynamic_cast<const NSArray*>(item.object) != nullptr) {
      appendMarker(0xA, item.references.size());
    } else if (dynamic_cast<const NSDictionary*>(item.object) != nullptr) {
      appendMarker(0xD, item.references.size() / 2);
    } else {
      throw PropertyListFault("an object of class " + std::string(item.object->className()));
    }
    for (const std::size_t reference : item.references) appendInteger(reference, referenceWidth_);
  }

  void appendString(const NSString& string) {
    const std::string& text = string.UTF8String();
    const auto beyond = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    if (std::ranges::none_of(text, beyond)) {
      appendMarker(0x5, text.size());
      text_ += text;
      return;
    }
    const std::string units = UTF16BigEndianFromUTF8(text);
    appendMarker(0x6, units.size() / 2);
    text_ += units;
  }

  void appendNumber(const NSNumber& number) {
    if (const auto* truth = std::get_if<bool>(&number.value())) {
      text_ += static_cast<char>(*truth ? 0x09 : 0x08);
    } else if (const auto* real = std::get_if<double>(&number.value())) {
      text_ += static_cast<char>(0x23);
      appendInteger(std::bit_cast<std::uint64_t>(*real), 8);
    } else if (const auto* integer = std::get_if<std::int64_t>(&number.value())) {
      appendSigned(*integer);
    } else {
      appendNatural(std::get<std::uint64_t>(number.value()));
    }
  }

  void appendSigned(std::int64_t value) {
    if (value >= 0) return appendUnsigned(static_cast<std::uint64_t>(value));
    text_ += static_cast<char>(0x13);
    appendInteger(static_cast<std::uint64_t>(value), 8);
  }

  // Eight bytes are read as signed, so the upper half of the range needs sixteen.
  void appendNatural(std::uint64_t value) {
    if (value >> 63 == 0) return appendUnsigned(value);
    text_ += static_cast<char>(0x14);
    appendInteger(0, 8);
    appendInteger(value, 8);
  }

  void appendDate(const NSDate& date) {
    const double seconds = date.timeIntervalSinceReferenceDate();
    if (!isPropertyListDate(seconds)) throw PropertyListFault("a date out of range");
    text_ += static_cast<char>(0x33);
    appendInteger(std::bit_cast<std::uint64_t>(seconds), 8);
  }

  void appendTable(const std::vector<std::size_t>& offsets) {
    const std::size_t table = text_.size();
    const std::size_t offsetWidth = widthOf(table);
    for (const std::size_t offset : offsets) appendInteger(offset, offsetWidth);
    appendInteger(0, 6);
    appendInteger(offsetWidth, 1);
    appendInteger(referenceWidth_, 1);
    appendInteger(offsets.size(), 8);
    appendInteger(0, 8);  // the top object is the first
    appendInteger(table, 8);
  }

  std::vector<Item> items_;
  std::unordered_map<std::string_view, std::size_t> strings_;
  std::size_t numbered_ = 0;
  std::size_t referenceWidth_ = 1;
  std::string text_;
};

}  // namespace

std::string binaryPropertyList(const NSObject& root) {
  return BinaryWriter().write(root);
}

}  // namespace platform
