// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <thread>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSString.h"
#include "platform/kit/KQHIDDeviceElementValue.h"

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kOne{1};
const Bytes kTwo{2, 3};

HIDElementValueRecord record(std::uint64_t cookie, std::span<const std::uint8_t> bytes) {
  return {.reportID = 7,
          .usagePage = 1,
          .usage = 0x30,
          .cookie = cookie,
          .integerValue = -5,
          .bytes = bytes};
}

std::vector<HIDElementValueRecord> three() {
  return {record(1, kOne), record(2, {}), record(3, kTwo)};
}

std::shared_ptr<KQHIDDeviceElementValue> valueAt(const NSArray& array, std::size_t index) {
  return objectCast<KQHIDDeviceElementValue>(array.objectAtIndex(index));
}

TEST(ElementValue, SaysWhatItsRecordSays) {
  const auto value = KQHIDDeviceElementValue::elementValue(record(12, kTwo));
  EXPECT_EQ(value->hidReportID(), 7U);
  EXPECT_EQ(value->hidUsagePage(), 1U);
  EXPECT_EQ(value->hidUsage(), 0x30U);
  EXPECT_EQ(value->hidCookie(), 12U);
  EXPECT_EQ(value->integerValue(), -5);
  EXPECT_TRUE(value->bytesValue()->isEqual(NSData::dataWithBytes(kTwo)));
  EXPECT_EQ(value->className(), "KQHIDDeviceElementValue");
  EXPECT_EQ(value->description(),
            "<KQHIDDeviceElementValue report=7 usage=48 usagePage=1 cookie=12 value=-5>");
}

TEST(ElementValue, HoldsTheExtremesOfItsNumbers) {
  HIDElementValueRecord extreme;
  extreme.reportID = extreme.usagePage = extreme.usage = UINT32_MAX;
  extreme.cookie = UINT64_MAX;
  extreme.integerValue = INT64_MIN;
  EXPECT_EQ(KQHIDDeviceElementValue::elementValue(extreme)->description(),
            "<KQHIDDeviceElementValue report=4294967295 usage=4294967295 usagePage=4294967295 "
            "cookie=18446744073709551615 value=-9223372036854775808>");
}

TEST(ElementValue, CopiesItsBytes) {
  Bytes bytes{1, 2, 3};
  const auto value = KQHIDDeviceElementValue::elementValue(record(1, bytes));
  bytes.assign(3, 9);
  EXPECT_TRUE(value->bytesValue()->isEqual(NSData::dataWithBytes(Bytes{1, 2, 3})));
}

TEST(ElementValue, HasEmptyBytesForNone) {
  const auto value = KQHIDDeviceElementValue::elementValue(record(1, {}));
  ASSERT_NE(value->bytesValue(), nullptr);
  EXPECT_EQ(value->bytesValue()->length(), 0U);
}

TEST(ElementValue, ItsBytesOutliveIt) {
  auto value = KQHIDDeviceElementValue::elementValue(record(1, kTwo));
  const auto bytes = value->bytesValue();
  value.reset();
  EXPECT_TRUE(bytes->isEqual(NSData::dataWithBytes(kTwo)));
}

TEST(ElementValue, ComparesEveryField) {
  const auto base = KQHIDDeviceElementValue::elementValue(record(1, kTwo));
  EXPECT_TRUE(base->isEqual(KQHIDDeviceElementValue::elementValue(record(1, kTwo))));
  const auto differs = [&](auto change) {
    auto other = record(1, kTwo);
    change(other);
    return !base->isEqual(KQHIDDeviceElementValue::elementValue(other));
  };
  EXPECT_TRUE(differs([](auto& r) { r.reportID = 8; }));
  EXPECT_TRUE(differs([](auto& r) { r.usagePage = 8; }));
  EXPECT_TRUE(differs([](auto& r) { r.usage = 8; }));
  EXPECT_TRUE(differs([](auto& r) { r.cookie = 8; }));
  EXPECT_TRUE(differs([](auto& r) { r.integerValue = 8; }));
  EXPECT_TRUE(differs([](auto& r) { r.bytes = kOne; }));
  EXPECT_FALSE(base->isEqual(str("a")));
  EXPECT_FALSE(base->isEqual(nullptr));
}

TEST(ElementValue, IsOrderedByReportThenUsageThenCookieThenValueThenBytes) {
  const auto of = [](HIDElementValueRecord r) { return KQHIDDeviceElementValue::elementValue(r); };
  const std::vector<HIDElementValueRecord> ascending{
      {1, 1, 1, 1, 1, kOne}, {1, 1, 1, 1, 1, kTwo}, {1, 1, 1, 1, 2, {}}, {1, 1, 1, 2, 0, {}},
      {1, 1, 2, 0, 0, {}},   {1, 2, 0, 0, 0, {}},   {2, 0, 0, 0, 0, {}}};
  for (std::size_t i = 1; i < ascending.size(); ++i) {
    const auto before = of(ascending[i - 1]);
    const auto after = of(ascending[i]);
    EXPECT_TRUE(NSObject::compare(before.get(), after.get()) < 0) << i;
    EXPECT_TRUE(NSObject::compare(after.get(), before.get()) > 0) << i;
  }
}

TEST(ElementValueArray, SaysWhichIndexIsBeyondIt) {
  const auto array = elementValueArray(three());
  try {
    (void)array->objectAtIndex(7);
    FAIL() << "there are three";
  } catch (const NSRangeException& beyond) {
    EXPECT_STREQ(beyond.what(), "index 7 beyond an array of 3");
  }
}

TEST(ElementValueArray, BytesBeyondMemoryThrowBeforeAnythingIsCopied) {
  const std::span<const std::uint8_t> endless(kOne.data(), std::size_t{PTRDIFF_MAX});
  const std::vector<HIDElementValueRecord> twice(2, record(1, endless));
  EXPECT_THROW((void)elementValueArray(twice), std::bad_alloc);
}

TEST(ElementValueArray, IsAMutableArrayOfItsRecords) {
  const auto array = elementValueArray(three());
  EXPECT_EQ(&array->isa(), &NSMutableArray::classObject());
  ASSERT_EQ(array->count(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(valueAt(*array, i)->hidCookie(), i + 1);
  }
  EXPECT_TRUE(valueAt(*array, 2)->bytesValue()->isEqual(NSData::dataWithBytes(kTwo)));
  EXPECT_EQ(valueAt(*array, 1)->bytesValue()->length(), 0U);
  EXPECT_THROW((void)array->objectAtIndex(3), NSRangeException);
}

TEST(ElementValueArray, MayBeEmpty) {
  const auto array = elementValueArray({});
  EXPECT_EQ(array->count(), 0U);
  EXPECT_THROW((void)array->objectAtIndex(0), NSRangeException);
  array->addObject(str("a"));
  EXPECT_EQ(array->count(), 1U);
}

TEST(ElementValueArray, HandsOutTheSameValueEachTime) {
  const auto array = elementValueArray(three());
  EXPECT_EQ(array->objectAtIndex(1), array->objectAtIndex(1));
  EXPECT_EQ(valueAt(*array, 1)->bytesValue(), valueAt(*array, 1)->bytesValue());
}

TEST(ElementValueArray, AMemberAndItsBytesKeepTheBlockAlive) {
  auto array = elementValueArray(three());
  const std::weak_ptr<NSMutableArray> watched = array;
  auto value = valueAt(*array, 2);
  array.reset();
  EXPECT_FALSE(watched.expired());
  EXPECT_EQ(value->hidCookie(), 3U);
  auto bytes = value->bytesValue();
  value.reset();
  EXPECT_FALSE(watched.expired());
  EXPECT_TRUE(bytes->isEqual(NSData::dataWithBytes(kTwo)));
  bytes.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(ElementValueArray, ChangesAsAnyMutableArray) {
  const auto array = elementValueArray(three());
  array->addObject(str("new"));
  array->removeObjectAtIndex(0);
  ASSERT_EQ(array->count(), 3U);
  EXPECT_EQ(valueAt(*array, 0)->hidCookie(), 2U);
  EXPECT_EQ(valueAt(*array, 1)->hidCookie(), 3U);
  EXPECT_TRUE(array->objectAtIndex(2)->isEqual(str("new")));
  EXPECT_THROW(array->removeObjectAtIndex(3), NSRangeException);
  EXPECT_THROW((void)array->objectAtIndex(3), NSRangeException);
  EXPECT_THROW(array->addObject(nullptr), std::invalid_argument);
  for (int i = 0; i < 3; ++i) array->removeObjectAtIndex(0);
  EXPECT_EQ(array->count(), 0U);
}

TEST(ElementValueArray, AMemberThatWasTakenOutLivesOn) {
  const auto array = elementValueArray(three());
  const auto value = valueAt(*array, 0);
  array->removeObjectAtIndex(0);
  EXPECT_EQ(value->hidCookie(), 1U);
  EXPECT_TRUE(value->bytesValue()->isEqual(NSData::dataWithBytes(kOne)));
}

TEST(ElementValueArray, ItsOwnMembersCanBeAddedAgainWithoutKeepingItAlive) {
  auto array = elementValueArray(three());
  const std::weak_ptr<NSMutableArray> watched = array;
  const auto* const second = array->objectAtIndex(1).get();
  array->addObject(array->objectAtIndex(1));
  array->addObject(valueAt(*array, 2)->bytesValue());
  EXPECT_EQ(array->objectAtIndex(3).get(), second);
  EXPECT_TRUE(array->objectAtIndex(4)->isEqual(NSData::dataWithBytes(kTwo)));
  EXPECT_THROW(array->addObject(array), std::invalid_argument);
  EXPECT_EQ(array->count(), 5U);
  array.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(ElementValueArray, MembersOfAnotherBlockKeepThatOne) {
  const auto array = elementValueArray(three());
  auto other = elementValueArray(three());
  const std::weak_ptr<NSMutableArray> watched = other;
  array->addObject(other->objectAtIndex(0));
  other.reset();
  EXPECT_FALSE(watched.expired());
  array->removeObjectAtIndex(3);
  EXPECT_TRUE(watched.expired());
}

TEST(ElementValueArray, AChangeWhileItIsWalkedThrows) {
  const auto array = elementValueArray(three());
  int calls = 0;
  const auto body = [&](const auto&) {
    ++calls;
    array->removeObjectAtIndex(2);
  };
  EXPECT_THROW(array->enumerateObjects(body), NSGenericException);
  EXPECT_EQ(calls, 1);
}

TEST(ElementValueArray, ComparesWithAnArrayOfSingleValues) {
  std::vector<std::shared_ptr<NSObject>> values;
  for (const auto& each : three()) values.push_back(KQHIDDeviceElementValue::elementValue(each));
  const auto plain = NSArray::arrayWithObjects(std::move(values));
  EXPECT_TRUE(plain->isEqual(elementValueArray(three())));
  EXPECT_TRUE(elementValueArray(three())->isEqual(plain));
}

TEST(ElementValueArray, ValuesMayGoOnSeveralThreads) {
  std::vector<std::thread> threads;
  {
    const auto array = elementValueArray(three());
    for (std::size_t i = 0; i < 3; ++i) {
      threads.emplace_back([value = valueAt(*array, i), i] {
        for (int round = 0; round < 1000; ++round) {
          EXPECT_EQ(value->bytesValue()->length(), i == 1 ? 0U : i == 0 ? 1U : 2U);
        }
      });
    }
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace platform
