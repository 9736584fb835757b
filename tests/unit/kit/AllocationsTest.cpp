// SPDX-License-Identifier: Apache-2.0

// How often the delivery path allocates memory.
#include <gtest/gtest.h>

#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "tests/support/CountedAllocations.h"

namespace platform {
namespace {

template <class Body>
std::size_t allocationsOf(const Body& body) {
  const std::size_t before = testsupport::allocationsOfThisThread();
  body();
  return testsupport::allocationsOfThisThread() - before;
}

TEST(Allocations, TheCounterCounts) {
  std::vector<int> numbers;
  EXPECT_EQ(allocationsOf([&] { numbers.reserve(100); }), 1U);
}

TEST(Allocations, DataIsOne) {
  const std::vector<std::uint8_t> bytes(64, 1);
  std::shared_ptr<NSData> data;
  EXPECT_EQ(allocationsOf([&] { data = NSData::dataWithBytes(bytes); }), 1U);
  EXPECT_EQ(data->length(), 64U);
}

TEST(Allocations, AnArrayOfElementValuesIsOne) {
  const std::vector<std::uint8_t> bytes(5, 1);
  for (const std::size_t count : {0, 1, 10, 1000}) {
    const std::vector<HIDElementValueRecord> records(count, HIDElementValueRecord{.bytes = bytes});
    std::shared_ptr<NSMutableArray> array;
    EXPECT_EQ(allocationsOf([&] { array = elementValueArray(records); }), 1U) << count;
    EXPECT_EQ(array->count(), count);
  }
}

TEST(Allocations, ASingleElementValueIsOne) {
  std::shared_ptr<KQHIDDeviceElementValue> value;
  EXPECT_EQ(allocationsOf([&] { value = KQHIDDeviceElementValue::elementValue({}); }), 1U);
}

TEST(Allocations, LookingAtValuesIsNone) {
  const std::vector<std::uint8_t> bytes(5, 1);
  const std::vector<HIDElementValueRecord> records(3, HIDElementValueRecord{.bytes = bytes});
  const auto array = elementValueArray(records);
  std::size_t length = 0;
  EXPECT_EQ(
      allocationsOf([&] {
        for (std::size_t i = 0; i < array->count(); ++i) {
          length +=
              objectCast<KQHIDDeviceElementValue>(array->objectAtIndex(i))->bytesValue()->length();
        }
      }),
      0U);
  EXPECT_EQ(length, 15U);
}

}  // namespace
}  // namespace platform
