// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/KQHIDDeviceElementValue.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <tuple>
#include <vector>

#include "platform/foundation/Format.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/TrailingStorage.h"

namespace platform {
namespace {

class PackedElementValues;

// A value inside an array's block. Pointers to it alias the array, which owns the block.
class PackedElementValue final : public KQHIDDeviceElementValue {
 public:
  PackedElementValue(const HIDElementValueRecord& record, const PackedElementValues& owner)
      : KQHIDDeviceElementValue(record), owner_(owner), bytes_(record.bytes) {}
  std::shared_ptr<NSData> bytesValue() const override;

 private:
  const PackedElementValues& owner_;
  mutable NSData bytes_;  // itself immutable; returned through pointers to non-const
};

// One block: the array, its values, then their bytes. A mutation (the delivery path makes none)
// switches to a list of places that refers to the block's own values by index: a pointer to them
// would keep the block alive forever.
class PackedElementValues final : public NSMutableArray,
                                  public std::enable_shared_from_this<PackedElementValues> {
 public:
  struct Place {
    std::size_t own = 0;
    std::shared_ptr<NSObject> other;  // if set, used instead of `own`
  };

  PackedElementValues(std::span<const HIDElementValueRecord> records,
                      const TrailingStorage& storage)
      : values_(reinterpret_cast<PackedElementValue*>(storage.begin)) {
    auto* bytes = reinterpret_cast<std::uint8_t*>(storage.begin +
                                                  records.size() * sizeof(PackedElementValue));
    for (const HIDElementValueRecord& record : records) {
      HIDElementValueRecord own = record;
      own.bytes = {bytes, record.bytes.size()};
      if (!record.bytes.empty()) std::memcpy(bytes, record.bytes.data(), record.bytes.size());
      bytes += record.bytes.size();
      ::new (static_cast<void*>(values_ + count_)) PackedElementValue(own, *this);
      ++count_;
    }
  }
  ~PackedElementValues() override { std::destroy_n(values_, count_); }

  std::size_t count() const override { return places_ ? places_->size() : count_; }

  std::shared_ptr<NSObject> objectAtIndex(std::size_t index) const override {
    if (index >= count()) {
      throw NSRangeException("index " + std::to_string(index) + " beyond an array of " +
                             std::to_string(count()));
    }
    if (!places_) return own(index);
    const Place& place = (*places_)[index];
    return place.other ? place.other : own(place.own);
  }

  void addObject(const std::shared_ptr<NSObject>& object) override {
    if (!object) throw std::invalid_argument("an array cannot hold null");
    places().push_back(placeOf(object));
    ++mutations_;
  }

  void removeObjectAtIndex(std::size_t index) override {
    const auto removed = objectAtIndex(index);
    places().erase(places().begin() + static_cast<std::ptrdiff_t>(index));
    ++mutations_;
  }

  std::shared_ptr<KQHIDDeviceElementValue> own(std::size_t index) const {
    return {shared_from_this(), values_ + index};
  }

 protected:
  std::size_t mutations() const override { return mutations_; }

 private:
  Place placeOf(const std::shared_ptr<NSObject>& object) const {
    const auto self = shared_from_this();
    if (self.owner_before(object) || object.owner_before(self)) return {.other = object};
    if (const auto* value = dynamic_cast<const PackedElementValue*>(object.get())) {
      return {.own = static_cast<std::size_t>(value - values_), .other = nullptr};
    }
    const auto* data = dynamic_cast<const NSData*>(object.get());
    if (data == nullptr) throw std::invalid_argument("an array cannot hold itself");
    return {.other = NSData::dataWithBytes(data->span())};
  }

  std::vector<Place>& places() {
    if (!places_) {
      places_ = std::make_unique<std::vector<Place>>(count_);
      for (std::size_t i = 0; i < count_; ++i) (*places_)[i].own = i;
    }
    return *places_;
  }

  PackedElementValue* const values_;
  std::size_t count_ = 0;
  std::size_t mutations_ = 0;
  std::unique_ptr<std::vector<Place>> places_;
};

std::shared_ptr<NSData> PackedElementValue::bytesValue() const {
  return {owner_.shared_from_this(), &bytes_};
}

std::shared_ptr<PackedElementValues> packedElementValues(
    std::span<const HIDElementValueRecord> records) {
  static_assert(alignof(PackedElementValue) <= alignof(PackedElementValues));
  static_assert(sizeof(PackedElementValues) % alignof(PackedElementValue) == 0);
  TrailingStorage storage{records.size() * sizeof(PackedElementValue)};
  for (const auto& record : records) {
    if (record.bytes.size() > std::numeric_limits<std::ptrdiff_t>::max() - storage.size)
      throw std::bad_alloc();
    storage.size += record.bytes.size();
  }
  return std::allocate_shared<PackedElementValues>(TrailingAllocator<PackedElementValues>(storage),
                                                   records, storage);
}

}  // namespace

const NSClass& KQHIDDeviceElementValue::classObject() {
  static const NSClass object{"KQHIDDeviceElementValue", &NSObject::classObject()};
  return object;
}

std::shared_ptr<KQHIDDeviceElementValue> KQHIDDeviceElementValue::elementValue(
    const HIDElementValueRecord& record) {
  return packedElementValues({&record, 1})->own(0);
}

std::strong_ordering KQHIDDeviceElementValue::compareValue(const NSObject& other) const {
  const auto numbers = [](const HIDElementValueRecord& r) {
    return std::tuple(r.reportID, r.usagePage, r.usage, r.cookie, r.integerValue);
  };
  const HIDElementValueRecord& theirs = static_cast<const KQHIDDeviceElementValue&>(other).record_;
  const auto order = numbers(record_) <=> numbers(theirs);
  if (order != 0) return order;
  return std::lexicographical_compare_three_way(record_.bytes.begin(), record_.bytes.end(),
                                                theirs.bytes.begin(), theirs.bytes.end());
}

std::string KQHIDDeviceElementValue::description() const {
  return stringWithFormat(
      "<KQHIDDeviceElementValue report=%u usage=%u usagePage=%u cookie=%lu value=%ld>",
      record_.reportID, record_.usage, record_.usagePage, record_.cookie, record_.integerValue);
}

std::shared_ptr<NSMutableArray> elementValueArray(std::span<const HIDElementValueRecord> records) {
  return packedElementValues(records);
}

}  // namespace platform
