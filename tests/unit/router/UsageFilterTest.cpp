// SPDX-License-Identifier: Apache-2.0

#include "router/UsageFilter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"

namespace {

using platform::HIDElementValueRecord;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::str;
using router::UsageFilter;

UsageFilter filterFor(const std::vector<std::shared_ptr<NSObject>>& keys) {
  std::vector<NSDictionary::Entry> entries;
  for (const auto& key : keys) entries.emplace_back(key, str("tag"));
  return UsageFilter(NSDictionary::dictionaryWithEntries(std::move(entries)));
}

std::shared_ptr<NSObject> usage(std::uint64_t page, std::uint64_t id) {
  return NSNumber::numberWithUnsignedLongLong(page << 16 | id);
}

HIDElementValueRecord value(std::uint32_t page, std::uint32_t id) {
  HIDElementValueRecord record;
  record.usagePage = page;
  record.usage = id;
  return record;
}

TEST(UsageFilter, NoDictionaryOrAnEmptyOneWantsEverything) {
  EXPECT_TRUE(UsageFilter(nullptr).wants(value(1, 2)));
  EXPECT_TRUE(UsageFilter(NSDictionary::dictionary()).wantsEverything());
}

TEST(UsageFilter, WantsTheUsagesThatItNames) {
  const UsageFilter filter = filterFor({usage(9, 2), usage(1, 0x30)});
  EXPECT_FALSE(filter.wantsEverything());
  EXPECT_TRUE(filter.wants(value(9, 2)));
  EXPECT_TRUE(filter.wants(value(1, 0x30)));
  EXPECT_FALSE(filter.wants(value(9, 1)));
  EXPECT_FALSE(filter.wants(value(2, 9)));
}

TEST(UsageFilter, KeysMayBeText) {
  const UsageFilter filter = filterFor({str("589826"), str("0x00010030"), str("0XFF000020")});
  EXPECT_TRUE(filter.wants(value(9, 2)));
  EXPECT_TRUE(filter.wants(value(1, 0x30)));
  EXPECT_TRUE(filter.wants(value(0xff00, 0x20)));
  EXPECT_FALSE(filter.wants(value(1, 0x31)));
}

TEST(UsageFilter, OtherKeysAreRefusedByName) {
  const std::vector<std::shared_ptr<NSObject>> wrong = {
      str(""),
      str("button"),
      str("0x"),
      str("-1"),
      str("4294967296"),
      str("1 "),
      NSNumber::numberWithLongLong(-1),
      NSNumber::numberWithUnsignedLongLong(0x100000000),
      NSNumber::numberWithDouble(1.0),
      NSNumber::numberWithBool(true),
      NSDictionary::dictionary()};
  for (const auto& key : wrong) {
    try {
      filterFor({usage(1, 1), key});
      FAIL() << key->description();
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(error.what(), "the tag dictionary's key " +
                                  platform::printableLine(key->description()) + " is not a usage");
    }
  }
}

TEST(UsageFilter, OfALongKeyTheBeginningIsNamed) {
  std::string letters;
  for (int i = 0; i < 64; ++i) letters += "ä";  // two bytes each
  const auto refusal = [](const std::string& key) {
    try {
      filterFor({platform::NSString::stringWithUTF8(key)});
    } catch (const std::invalid_argument& error) {
      return std::string(error.what());
    }
    return std::string("none");
  };
  EXPECT_EQ(refusal(letters), "the tag dictionary's key " + letters + " is not a usage");
  EXPECT_EQ(refusal("x" + letters),
            "the tag dictionary's key x" + letters.substr(0, 124) + "… is not a usage");
}

TEST(UsageFilter, AnEmptySlotPassesOnlyWhereItIsNamed) {
  EXPECT_FALSE(filterFor({usage(7, 4)}).wants(value(7, 0)));
  EXPECT_TRUE(filterFor({usage(7, 4), usage(7, 0)}).wants(value(7, 0)));
  EXPECT_FALSE(filterFor({usage(7, 0)}).wants(value(8, 0)));
}

TEST(UsageFilter, TheLargestUsageIsOne) {
  EXPECT_TRUE(filterFor({str("4294967295")}).wants(value(0xffff, 0xffff)));
  EXPECT_TRUE(filterFor({NSNumber::numberWithLongLong(65537)}).wants(value(1, 1)));
}

TEST(UsageFilter, NamesSoManyUsagesAtMost) {
  const auto tags = NSDictionary::dictionaryWithEntries(
      {{usage(1, 1), str("a")}, {usage(1, 2), str("b")}, {usage(1, 3), str("c")}});
  EXPECT_TRUE(UsageFilter(tags, 3).wants(value(1, 3)));
  try {
    const UsageFilter filter(tags, 2);
    FAIL();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "the tag dictionary names more than 2 usages");
  }
}

TEST(UsageFilter, SelectsInOrder) {
  const std::vector<HIDElementValueRecord> values = {value(9, 1), value(9, 2), value(1, 0x30),
                                                     value(9, 2)};
  std::vector<HIDElementValueRecord> buffer;
  const auto selected = filterFor({usage(9, 2), usage(1, 0x30)}).select(values, &buffer);
  ASSERT_EQ(selected.size(), 3U);
  EXPECT_EQ(selected[0].usage, 2U);
  EXPECT_EQ(selected[1].usage, 0x30U);
  EXPECT_EQ(selected[2].usage, 2U);
  EXPECT_TRUE(filterFor({usage(5, 5)}).select(values, &buffer).empty());
  EXPECT_EQ(UsageFilter().select(values, &buffer).data(), values.data());
}

TEST(UsageFilter, TheSmallestUsageIsOne) {
  for (const std::shared_ptr<NSObject>& zero : std::vector<std::shared_ptr<NSObject>>{
           str("0"), str("0x0"), NSNumber::numberWithLongLong(0)}) {
    EXPECT_TRUE(filterFor({zero}).wants(value(0, 0)));
    EXPECT_FALSE(filterFor({zero}).wants(value(0, 1)));
  }
}

TEST(UsageFilter, AsManyUsagesAsItsBoundUnlessToldOtherwise) {
  std::vector<NSDictionary::Entry> entries;
  for (std::uint64_t i = 0; i < 65536; ++i) entries.emplace_back(usage(1, i), str("x"));
  EXPECT_TRUE(UsageFilter(NSDictionary::dictionaryWithEntries(entries)).wants(value(1, 0xffff)));
  entries.emplace_back(usage(2, 0), str("x"));
  EXPECT_THROW(UsageFilter(NSDictionary::dictionaryWithEntries(std::move(entries))),
               std::invalid_argument);
}

}  // namespace
