// SPDX-License-Identifier: Apache-2.0

// How often the delivery path allocates memory. The operators below count for the whole program.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/kit/KQHIDDeviceElementValue.h"

namespace {

std::atomic<std::size_t> allocations{0};

void* counted(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// Inlined, a pair of them looks mismatched to GCC.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return counted(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return counted(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace platform {
namespace {

template <class Body>
std::size_t allocationsOf(const Body& body) {
  const std::size_t before = allocations.load();
  body();
  return allocations.load() - before;
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
