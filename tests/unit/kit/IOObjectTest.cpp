// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "platform/kit/KQIOObject.h"

namespace platform {
namespace {

std::shared_ptr<KQIOObject> object(std::uint64_t id, const char* name) {
  return KQIOObject::objectWithRegistryEntryID_name(id, NSString::stringWithUTF8String(name));
}

TEST(IOObject, SaysWhichEntryItMeans) {
  EXPECT_EQ(object(0x100000abc, "AppleHIDDevice")->description(),
            "<KQIOObject 0x100000abc AppleHIDDevice>");
  EXPECT_EQ(object(UINT64_MAX, nullptr)->description(), "<KQIOObject 0xffffffffffffffff>");
  EXPECT_EQ(object(0, nullptr)->description(), "<KQIOObject 0x0>");
  EXPECT_EQ(object(5, "n")->registryEntryID(), 5U);
  EXPECT_EQ(object(5, nullptr)->name(), nullptr);
  EXPECT_EQ(object(5, nullptr)->className(), "KQIOObject");
}

TEST(IOObject, ComparesEntryAndName) {
  EXPECT_TRUE(object(5, "n")->isEqual(object(5, "n")));
  EXPECT_TRUE(object(5, nullptr)->isEqual(object(5, nullptr)));
  EXPECT_FALSE(object(5, "n")->isEqual(object(6, "n")));
  EXPECT_FALSE(object(5, "n")->isEqual(object(5, "m")));
  EXPECT_FALSE(object(5, "n")->isEqual(object(5, nullptr)));
  EXPECT_FALSE(object(5, nullptr)->isEqual(object(5, "n")));
  EXPECT_FALSE(object(5, nullptr)->isEqual(nullptr));
}

TEST(IOObject, IsOrderedByEntryAndThenByName) {
  const auto isBefore = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get()) < 0 && NSObject::compare(b.get(), a.get()) > 0;
  };
  EXPECT_TRUE(isBefore(object(5, "z"), object(6, "a")));
  EXPECT_TRUE(isBefore(object(5, "a"), object(5, "b")));
  EXPECT_TRUE(isBefore(object(5, nullptr), object(5, "a")));
}

}  // namespace
}  // namespace platform
