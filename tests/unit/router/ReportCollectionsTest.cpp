// SPDX-License-Identifier: Apache-2.0

// What the parsed descriptor says beyond the layout of reports: collections, and every usage that
// an item names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HexBytes.h"
#include "router/ReportDescriptor.h"

namespace {

using router::Collection;
using router::ReportDescriptor;
using router::UsageList;
using router::UsageRange;
using testing::ElementsAre;

ReportDescriptor parse(const std::string& hex) {
  return ReportDescriptor::parse(bytes(hex));
}

/// Those of the only Input item.
std::vector<UsageRange> everyUsage(const std::string& hex) {
  return parse(hex + " 75 08 95 01 81 02").fields().at(0).everyUsage;
}

UsageRange only(std::uint32_t usage) {
  return {usage, usage};
}

TEST(ReportCollections, HaveTypeUsageAndPlace) {
  const auto descriptor = parse("05 01 09 05 a1 01 09 01 a1 00 c0 c0 05 0d 09 04 a1 02 c0");
  ASSERT_EQ(descriptor.collections().size(), 3U);
  const Collection& gamepad = descriptor.collections()[0];
  EXPECT_EQ(gamepad.type, Collection::kApplication);
  EXPECT_FALSE(gamepad.enclosing.has_value());
  EXPECT_THAT(gamepad.everyUsage, ElementsAre(only(0x00010005)));
  const Collection& pointer = descriptor.collections()[1];
  EXPECT_EQ(pointer.type, Collection::kPhysical);
  EXPECT_EQ(pointer.enclosing, 0U);
  EXPECT_THAT(pointer.everyUsage, ElementsAre(only(0x00010001)));
  const Collection& touch = descriptor.collections()[2];
  EXPECT_EQ(touch.type, Collection::kLogical);
  EXPECT_FALSE(touch.enclosing.has_value());
  EXPECT_THAT(touch.everyUsage, ElementsAre(only(0x000d0004)));
}

TEST(ReportCollections, MayHaveAnyTypeAndNoUsage) {
  const auto descriptor = parse("a1 80 a2 01 01 a0 c0 c0 c0");
  ASSERT_EQ(descriptor.collections().size(), 3U);
  EXPECT_EQ(descriptor.collections()[0].type, 0x80U);
  EXPECT_EQ(descriptor.collections()[1].type, 0x0101U);
  EXPECT_EQ(descriptor.collections()[2].type, 0U);
  EXPECT_EQ(descriptor.collections()[2].enclosing, 1U);
  for (const Collection& collection : descriptor.collections())
    EXPECT_TRUE(collection.everyUsage.empty());
}

TEST(ReportCollections, AFieldLiesInTheInnermost) {
  const auto descriptor =
      parse("75 08 95 01 81 02 a1 01 81 02 a1 00 81 02 91 02 c0 81 02 c0 b1 02 a1 01 81 02 c0");
  std::vector<std::optional<std::size_t>> places;
  for (const auto& field : descriptor.fields()) places.push_back(field.collection);
  EXPECT_THAT(places, ElementsAre(std::nullopt, 0U, 1U, 1U, 0U, std::nullopt,
                                  std::optional<std::size_t>(2)));
}

TEST(ReportCollections, ManyAreNoBurden) {
  std::string hex;
  for (int i = 0; i < 20000; ++i) hex += "a1 01 c0 ";
  const auto descriptor = parse(hex);
  EXPECT_EQ(descriptor.collections().size(), 20000U);
  EXPECT_FALSE(descriptor.collections().back().enclosing.has_value());
}

TEST(EveryUsage, AreTheUsagesThatCountAndThoseThatDoNot) {
  EXPECT_THAT(everyUsage("05 09 09 01 19 03 29 05"),
              ElementsAre(only(0x00090001), UsageRange{0x00090003, 0x00090005}));
  EXPECT_THAT(everyUsage("05 09 a9 01 09 01 19 03 29 05 a9 00 09 07"),
              ElementsAre(only(0x00090001), only(0x00090007), UsageRange{0x00090003, 0x00090005}));
  EXPECT_THAT(everyUsage("05 09"), ElementsAre());
}

TEST(EveryUsage, IncludesEndsOfARangeThatIsNone) {
  EXPECT_THAT(everyUsage("05 09 19 03"), ElementsAre(only(0x00090003)));
  EXPECT_THAT(everyUsage("05 09 29 05"), ElementsAre(only(0x00090005)));
  EXPECT_THAT(everyUsage("05 09 19 03 19 04 29 05"),
              ElementsAre(UsageRange{0x00090004, 0x00090005}, only(0x00090003)));
  EXPECT_THAT(everyUsage("05 09 29 08 29 05 19 04"),
              ElementsAre(UsageRange{0x00090004, 0x00090005}, only(0x00090008)));
}

TEST(EveryUsage, IsOnEachPageThatItCanBeOn) {
  EXPECT_THAT(everyUsage("05 07 09 04 05 09"), ElementsAre(only(0x00090004), only(0x00070004)));
  EXPECT_THAT(everyUsage("05 07 0b 04 00 0c 00 05 09"), ElementsAre(only(0x000c0004)));
  EXPECT_THAT(everyUsage("05 07 19 01 05 0c 29 02 05 09"),
              ElementsAre(UsageRange{0x00090001, 0x00090002}, UsageRange{0x00070001, 0x000c0002}));
  // Only one end gives the page: the other end's may also be the one in force.
  EXPECT_THAT(everyUsage("05 01 1b 02 00 09 00 29 03"),
              ElementsAre(UsageRange{0x00090002, 0x00090003}, UsageRange{0x00010003, 0x00090002}));
  EXPECT_THAT(everyUsage("05 01 19 02 2b 03 00 09 00"),
              ElementsAre(UsageRange{0x00090002, 0x00090003}, UsageRange{0x00010002, 0x00090003}));
}

TEST(EveryUsage, IsForTheNextMainItemOnly) {
  const auto descriptor =
      parse("05 09 75 08 95 01 a9 01 09 01 09 02 a9 00 19 03 81 02 29 04 a1 01 09 05 c0 81 02");
  EXPECT_THAT(descriptor.fields()[0].everyUsage,
              ElementsAre(only(0x00090001), only(0x00090002), only(0x00090003)));
  EXPECT_THAT(descriptor.collections()[0].everyUsage, ElementsAre(only(0x00090004)));
  EXPECT_TRUE(descriptor.fields()[1].everyUsage.empty());
}

TEST(UsageRange, OverlapsAtItsEnds) {
  const UsageRange range{10, 20};
  EXPECT_TRUE(range.overlaps({20, 30}));
  EXPECT_TRUE(range.overlaps({0, 10}));
  EXPECT_TRUE(range.overlaps({12, 13}));
  EXPECT_TRUE(range.overlaps({0, 30}));
  EXPECT_FALSE(range.overlaps({21, 30}));
  EXPECT_FALSE(range.overlaps({0, 9}));
}

TEST(UsageListRanges, AreCutToTheFirstUsages) {
  UsageList usages;
  usages.appendRange(9, 1, 4);
  usages.appendRange(7, 8, 8);
  EXPECT_THAT(usages.firstRanges(0), ElementsAre());
  EXPECT_THAT(usages.firstRanges(3), ElementsAre(UsageRange{0x00090001, 0x00090003}));
  EXPECT_THAT(usages.firstRanges(4), ElementsAre(UsageRange{0x00090001, 0x00090004}));
  EXPECT_THAT(usages.firstRanges(5),
              ElementsAre(UsageRange{0x00090001, 0x00090004}, only(0x00070008)));
  EXPECT_THAT(usages.firstRanges(1ULL << 40),
              ElementsAre(UsageRange{0x00090001, 0x00090004}, only(0x00070008)));
}

}  // namespace
