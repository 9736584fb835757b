// SPDX-License-Identifier: Apache-2.0

#include "router/ReportDescriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HexBytes.h"

namespace {

using router::ReportDescriptor;
using router::ReportDescriptorError;
using router::ReportField;
using router::ReportType;
using router::Usage;

ReportDescriptor parse(const std::string& hex) {
  return ReportDescriptor::parse(bytes(hex));
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

/// Checks the offset and cause of the error.
void expectError(const std::string& hex, std::size_t offset, const std::string& cause) {
  try {
    parse(hex);
    FAIL() << "accepted: " << hex;
  } catch (const ReportDescriptorError& error) {
    EXPECT_EQ(error.offset(), offset) << error.what();
    EXPECT_THAT(error.what(), testing::HasSubstr(cause));
    EXPECT_THAT(error.what(), testing::StartsWith("offset " + std::to_string(offset) + ": "));
  }
}

TEST(ReportDescriptor, LaysFieldsOneAfterTheOther) {
  // Three buttons, five bits of padding, X and Y of eight bits each.
  const auto descriptor = parse(
      "05 01 09 02 a1 01 05 09 19 01 29 03 15 00 25 01 75 01 95 03 81 02 75 05 95 01 81 01"
      "  05 01 09 30 09 31 15 81 25 7f 75 08 95 02 81 06 c0");
  ASSERT_EQ(descriptor.fields().size(), 3U);
  EXPECT_EQ(descriptor.elementCount(), 6U);
  EXPECT_FALSE(descriptor.usesReportIDs());

  const ReportField& buttons = descriptor.fields()[0];
  EXPECT_TRUE(buttons.variable);
  EXPECT_FALSE(buttons.constant);
  EXPECT_EQ(buttons.bitOffset, 0U);
  EXPECT_EQ(buttons.bitSize, 1U);
  EXPECT_EQ(buttons.count, 3U);
  EXPECT_EQ(buttons.firstCookie, 1U);
  EXPECT_EQ(buttons.usageOfField(2), (Usage{9, 3}));

  EXPECT_TRUE(descriptor.fields()[1].constant);
  EXPECT_EQ(descriptor.fields()[1].firstCookie, 4U);

  const ReportField& axes = descriptor.fields()[2];
  EXPECT_EQ(axes.bitOffset, 8U);
  EXPECT_EQ(axes.firstCookie, 5U);
  EXPECT_EQ(axes.logicalMinimum, -127);
  EXPECT_EQ(axes.logicalMaximum, 127);
  EXPECT_EQ(axes.usageOfField(1), (Usage{1, 0x31}));
}

TEST(ReportDescriptor, FindsElementsByCookie) {
  // Input 2 × 4 bits, Output 3 × 8, Feature 1 × 16: cookies are shared between them.
  const auto descriptor = parse("75 04 95 02 81 02 75 08 95 03 91 02 75 10 95 01 b1 02");
  ASSERT_EQ(descriptor.elementCount(), 6U);
  EXPECT_FALSE(descriptor.elementWithCookie(0).has_value());
  EXPECT_FALSE(descriptor.elementWithCookie(7).has_value());
  const auto second = descriptor.elementWithCookie(2);
  ASSERT_TRUE(second.has_value());
  EXPECT_EQ(second->field->type, ReportType::Input);
  EXPECT_EQ(second->bitOffset(), 4U);
  const auto fifth = descriptor.elementWithCookie(5);
  ASSERT_TRUE(fifth.has_value());
  EXPECT_EQ(fifth->field->type, ReportType::Output);
  EXPECT_EQ(fifth->index, 2U);
  EXPECT_EQ(fifth->bitOffset(), 16U);
  const auto sixth = descriptor.elementWithCookie(6);
  ASSERT_TRUE(sixth.has_value());
  EXPECT_EQ(sixth->field->type, ReportType::Feature);
  EXPECT_EQ(sixth->bitOffset(), 0U);
}

TEST(ReportDescriptor, EveryReportOfEachTypeHasItsOwnBits) {
  const auto descriptor =
      parse("75 08 95 01 85 01 81 02 85 02 81 02 85 01 81 02 91 02 85 02 81 02");
  ASSERT_EQ(descriptor.fields().size(), 5U);
  EXPECT_TRUE(descriptor.usesReportIDs());
  EXPECT_EQ(descriptor.fields()[0].bitOffset, 8U);   // input 1, after the ID
  EXPECT_EQ(descriptor.fields()[1].bitOffset, 8U);   // input 2
  EXPECT_EQ(descriptor.fields()[2].bitOffset, 16U);  // input 1 again
  EXPECT_EQ(descriptor.fields()[3].bitOffset, 8U);   // output 1
  EXPECT_EQ(descriptor.fields()[4].bitOffset, 16U);  // input 2 again
  EXPECT_EQ(descriptor.fields()[2].reportID, 1U);
  EXPECT_EQ(descriptor.fields()[4].reportID, 2U);
}

TEST(ReportDescriptor, AMaximumIsSignedOnlyBesideANegativeMinimum) {
  EXPECT_EQ(parse("15 00 25 ff 75 08 95 01 81 02").fields()[0].logicalMaximum, 255);
  EXPECT_EQ(parse("15 80 25 ff 75 08 95 01 81 02").fields()[0].logicalMaximum, -1);
  // The order of the two items does not matter.
  EXPECT_EQ(parse("25 ff 15 80 75 08 95 01 81 02").fields()[0].logicalMaximum, -1);
  EXPECT_EQ(parse("27 ff ff ff ff 75 20 95 01 81 02").fields()[0].logicalMaximum, 4294967295);
  EXPECT_EQ(parse("16 00 80 26 ff 7f 75 10 95 01 81 02").fields()[0].logicalMinimum, -32768);
  EXPECT_EQ(parse("17 00 00 00 80 27 ff ff ff 7f 75 20 95 01 81 02").fields()[0].logicalMinimum,
            -2147483648LL);
}

TEST(ReportDescriptor, AUsageTakesThePageInForceAtTheMainItem) {
  const auto field = parse("05 01 09 30 05 0c 75 08 95 01 81 02").fields()[0];
  EXPECT_EQ(field.usageOfField(0), (Usage{0x0c, 0x30}));
}

TEST(ReportDescriptor, AnExtendedUsageKeepsItsOwnPage) {
  const auto field = parse("05 01 0b 22 00 0d 00 09 30 75 08 95 02 81 02").fields()[0];
  EXPECT_EQ(field.usageOfField(0), (Usage{0x0d, 0x22}));
  EXPECT_EQ(field.usageOfField(1), (Usage{0x01, 0x30}));
}

TEST(ReportDescriptor, AnExtendedRangeMayNameItsPageAtOneEnd) {
  const auto both = parse("05 01 1b 01 00 09 00 2b 03 00 09 00 75 01 95 03 81 02").fields()[0];
  EXPECT_EQ(both.usageOfField(2), (Usage{9, 3}));
  const auto first = parse("05 01 1b 01 00 09 00 29 03 75 01 95 03 81 02").fields()[0];
  EXPECT_EQ(first.usageOfField(2), (Usage{9, 3}));
  const auto last = parse("05 01 19 01 2b 03 00 09 00 75 01 95 03 81 02").fields()[0];
  EXPECT_EQ(last.usageOfField(0), (Usage{9, 1}));
}

TEST(ReportDescriptor, TheLastUsageServesSurplusFields) {
  const auto field = parse("05 09 09 10 29 02 19 01 09 20 75 01 95 06 81 02").fields()[0];
  EXPECT_EQ(field.usages.count(), 4U);
  std::vector<std::uint32_t> usages;
  for (std::uint32_t i = 0; i < field.count; ++i) usages.push_back(field.usageOfField(i).id);
  EXPECT_THAT(usages, testing::ElementsAre(0x10, 1, 2, 0x20, 0x20, 0x20));
}

TEST(ReportDescriptor, AFieldWithoutUsagesHasUsageZeroOfThePageInForce) {
  EXPECT_EQ(parse("05 0c 75 08 95 01 81 02").fields()[0].usageOfField(0), (Usage{0x0c, 0}));
}

TEST(ReportDescriptor, UsagesAreForTheNextMainItemOnly) {
  // Usage 9 belongs to the collection; a minimum without its maximum belongs to nothing.
  const auto descriptor = parse("05 01 09 02 a1 01 75 08 95 01 19 07 81 02 29 09 81 02 c0");
  EXPECT_TRUE(descriptor.fields()[0].usages.empty());
  EXPECT_TRUE(descriptor.fields()[1].usages.empty());
}

TEST(ReportDescriptor, OfDelimitedUsagesTheFirstIsTaken) {
  const auto field =
      parse("05 0c a9 01 09 e9 09 ea 1a 00 02 2a 10 02 a9 00 09 cd 75 01 95 02 81 02").fields()[0];
  EXPECT_EQ(field.usages.count(), 2U);
  EXPECT_EQ(field.usageOfField(0), (Usage{0x0c, 0xe9}));
  EXPECT_EQ(field.usageOfField(1), (Usage{0x0c, 0xcd}));
}

TEST(ReportDescriptor, PopRestoresWhatPushSaved) {
  const auto descriptor = parse(
      "05 01 15 81 25 7f 75 08 95 02 85 03 a4"
      "  05 09 15 00 25 01 75 01 95 04 85 04 81 02 b4 81 02");
  const ReportField& inner = descriptor.fields()[0];
  EXPECT_EQ(inner.reportID, 4U);
  EXPECT_EQ(inner.count, 4U);
  const ReportField& outer = descriptor.fields()[1];
  EXPECT_EQ(outer.usagePage, 1U);
  EXPECT_EQ(outer.logicalMinimum, -127);
  EXPECT_EQ(outer.logicalMaximum, 127);
  EXPECT_EQ(outer.bitSize, 8U);
  EXPECT_EQ(outer.count, 2U);
  EXPECT_EQ(outer.reportID, 3U);
}

TEST(ReportDescriptor, SeveralRangesAreUsedOneAfterTheOther) {
  // 4…6 and e0…e1 of the keyboard page, then one of another page; each range has its own two ends.
  const auto field = parse(
                         "05 07 19 04 29 06 19 e0 29 e1 1b 30 00 01 00 2b 31 00 01 00"
                         "  75 01 95 07 81 02")
                         .fields()[0];
  EXPECT_EQ(field.usages.count(), 7U);
  std::vector<Usage> usages;
  for (std::uint32_t i = 0; i < field.count; ++i) usages.push_back(field.usageOfField(i));
  EXPECT_THAT(usages, testing::ElementsAre(Usage{7, 4}, Usage{7, 5}, Usage{7, 6}, Usage{7, 0xe0},
                                           Usage{7, 0xe1}, Usage{1, 0x30}, Usage{1, 0x31}));
  EXPECT_FALSE(field.usages.at(7).has_value());
}

TEST(ReportDescriptor, AnArraySelectsFromSeveralRanges) {
  const auto field =
      parse("05 07 15 01 25 05 19 04 29 06 19 e0 29 e1 75 08 95 01 81 00").fields()[0];
  EXPECT_EQ(field.usageOfSelection(3), (Usage{7, 6}));
  EXPECT_EQ(field.usageOfSelection(4), (Usage{7, 0xe0}));
  EXPECT_EQ(field.usageOfSelection(5), (Usage{7, 0xe1}));
}

TEST(ReportDescriptor, EveryPopRestoresWhatItsOwnPushSaved) {
  const auto descriptor = parse(
      "05 01 75 08 95 01 a4"         // page 1, eight bits
      "  05 09 75 04 95 02 a4"       // page 9, four bits
      "    05 0c 75 02 95 04 81 02"  // page 12, two bits
      "  b4 81 02 b4 81 02");
  ASSERT_EQ(descriptor.fields().size(), 3U);
  const std::vector<std::array<std::uint32_t, 3>> expected = {{0x0c, 2, 4}, {9, 4, 2}, {1, 8, 1}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const ReportField& field = descriptor.fields()[i];
    EXPECT_EQ((std::array<std::uint32_t, 3>{field.usagePage, field.bitSize, field.count}),
              expected[i]);
  }
}

TEST(ReportDescriptor, WhatWasPoppedIsNotThereAnyMore) {
  expectError("a4 b4 b4", 2, "not pushed");
  expectError("a4 a4 b4 b4 b4", 4, "not pushed");
  EXPECT_NO_THROW(parse("a4 b4 a4 b4"));
  // Popping makes room.
  EXPECT_NO_THROW(parse(repeated("a4 ", 64) + "b4 a4"));
  expectError(repeated("a4 ", 64) + "b4 a4 a4", 66, "too many values are pushed");
}

TEST(ReportDescriptor, PushAndPopLeaveUsagesAlone) {
  const auto field = parse("05 09 75 08 95 01 a4 09 05 b4 81 02").fields()[0];
  EXPECT_EQ(field.usageOfField(0), (Usage{9, 5}));
}

TEST(ReportDescriptor, ACollectionThatEndsMakesRoomAndTakesItsUsagesAlong) {
  EXPECT_NO_THROW(parse(repeated("a1 01 ", 64) + "c0 a1 01" + repeated(" c0", 64)));
  const auto field = parse("05 01 a1 01 09 07 c0 75 08 95 01 81 02").fields()[0];
  EXPECT_TRUE(field.usages.empty());
}

TEST(ReportDescriptor, ADelimiterSetGivesOneUsageAndTheNextSetAnother) {
  const auto field =
      parse("05 0c a9 01 09 e9 09 ea a9 00 a9 01 09 cd 09 ce a9 00 75 01 95 02 81 02").fields()[0];
  EXPECT_EQ(field.usages.count(), 2U);
  EXPECT_EQ(field.usageOfField(1), (Usage{0x0c, 0xcd}));
}

TEST(ReportDescriptor, ARangeMayHoldOneUsageAndEndAtTheLast) {
  EXPECT_EQ(parse("05 09 19 05 29 05 75 01 95 01 81 02").fields()[0].usages.count(), 1U);
  const auto whole = parse("05 09 19 00 2a ff ff 75 01 95 01 81 02").fields()[0];
  EXPECT_EQ(whole.usages.count(), 65536U);
  EXPECT_EQ(whole.usages.at(65535), (Usage{9, 0xffff}));
  EXPECT_EQ(whole.usages.atOrLast(65536), (Usage{9, 0xffff}));
}

TEST(ReportDescriptor, NumbersAreSignedByTheirOwnLength) {
  // A minimum of two bytes, and one of no bytes, which is 0.
  EXPECT_EQ(parse("16 ff 00 26 ff 00 75 10 95 01 81 02").fields()[0].logicalMinimum, 255);
  EXPECT_EQ(parse("15 81 14 25 7f 75 08 95 01 81 02").fields()[0].logicalMinimum, 0);
  EXPECT_EQ(parse("17 80 00 00 00 26 ff 00 75 10 95 01 81 02").fields()[0].logicalMinimum, 128);
  // A maximum of four bytes with a negative minimum, and one of two bytes.
  EXPECT_EQ(parse("15 ff 27 fe ff ff ff 75 20 95 01 81 03").fields()[0].logicalMaximum, -2);
  EXPECT_EQ(parse("15 ff 26 fe ff 75 20 95 01 81 03").fields()[0].logicalMaximum, -2);
}

TEST(ReportDescriptor, EveryBitOfAnItemMeansItsOwn) {
  // Absolute, relative, with wrap and null: variable. Both constant and array: constant.
  const auto field = parse("75 08 95 01 82 46 01").fields()[0];
  EXPECT_TRUE(field.variable);
  EXPECT_FALSE(field.constant);
  const auto padding = parse("75 08 95 01 81 01").fields()[0];
  EXPECT_TRUE(padding.constant);
  EXPECT_FALSE(padding.variable);
}

TEST(ReportDescriptor, ReportIDsMakeRoomInEveryReportOfEveryType) {
  // The first field comes before the first ID.
  const auto descriptor = parse("75 08 95 01 81 02 85 ff 81 02 91 02 b1 02");
  for (const ReportField& field : descriptor.fields()) EXPECT_EQ(field.bitOffset, 8U);
  EXPECT_EQ(descriptor.fields()[0].reportID, 0U);
  EXPECT_EQ(descriptor.fields()[1].reportID, 255U);
}

TEST(ReportDescriptor, LongAndReservedItemsAreSkipped) {
  // A long item of two bytes whose data looks like an end of collection; reserved main, global and
  // local items, and a reserved type.
  const auto descriptor = parse("fe 02 10 c0 c0 f1 00 f5 00 f9 00 fd 00 75 08 95 01 81 02");
  EXPECT_EQ(descriptor.elementCount(), 1U);
}

TEST(ReportDescriptor, NothingIsLaidForZeroFieldsOrZeroBits) {
  const auto descriptor = parse("75 08 95 00 81 02 75 00 95 07 81 02 75 08 95 01 81 02");
  ASSERT_EQ(descriptor.fields().size(), 1U);
  EXPECT_EQ(descriptor.fields()[0].firstCookie, 1U);
  EXPECT_EQ(descriptor.fields()[0].bitOffset, 0U);
}

TEST(ReportDescriptor, AnEmptyDescriptorHasNoElements) {
  const auto descriptor = parse("");
  EXPECT_EQ(descriptor.elementCount(), 0U);
  EXPECT_FALSE(descriptor.elementWithCookie(1).has_value());
}

TEST(ReportDescriptor, AnArrayValueSelectsAUsage) {
  // Logical values 1…3 select usages 4…6.
  const auto field = parse("05 07 15 01 25 03 19 04 29 06 75 08 95 01 81 00").fields()[0];
  EXPECT_FALSE(field.variable);
  EXPECT_EQ(field.usageOfSelection(0), (Usage{7, 0}));
  EXPECT_EQ(field.usageOfSelection(1), (Usage{7, 4}));
  EXPECT_EQ(field.usageOfSelection(3), (Usage{7, 6}));
  EXPECT_EQ(field.usageOfSelection(4), (Usage{7, 0}));
}

TEST(ReportDescriptor, AnArrayValueBeyondTheUsagesSelectsNone) {
  // Two usages of the consumer page, while another page is in force: a value that selects nothing
  // stays on their page.
  const auto field =
      parse("05 01 0b e9 00 0c 00 0b ea 00 0c 00 15 00 25 7f 75 08 95 01 81 00").fields()[0];
  EXPECT_EQ(field.usageOfSelection(1), (Usage{0x0c, 0xea}));
  EXPECT_EQ(field.usageOfSelection(2), (Usage{0x0c, 0}));
  const auto nameless = parse("05 07 15 00 25 7f 75 08 95 01 81 00").fields()[0];
  EXPECT_EQ(nameless.usageOfSelection(5), (Usage{7, 0}));
}

TEST(ReportDescriptor, ANegativeLogicalMinimumShiftsTheSelection) {
  const auto field = parse("05 07 15 fe 25 02 19 10 29 14 75 08 95 01 81 00").fields()[0];
  EXPECT_EQ(field.usageOfSelection(-3).id, 0U);
  EXPECT_EQ(field.usageOfSelection(-2).id, 0x10U);
  EXPECT_EQ(field.usageOfSelection(2).id, 0x14U);
}

TEST(ReportDescriptor, WholePagesAreRanges) {
  const auto field =
      parse("06 00 ff" + repeated(" 1a 00 00 2a ff ff", 5000) + " 75 08 95 01 81 02").fields()[0];
  EXPECT_EQ(field.usages.count(), 5000U * 65536U);
  EXPECT_EQ(field.usages.at(65536U * 4999U + 7), (Usage{0xff00, 7}));
  EXPECT_FALSE(field.usages.at(5000U * 65536U).has_value());
}

TEST(ReportDescriptor, AcceptsWhatIsJustWithinItsBounds) {
  EXPECT_NO_THROW(parse(repeated("a1 01 ", 64) + repeated("c0 ", 64)));
  EXPECT_NO_THROW(parse(repeated("a4 ", 64)));
  EXPECT_EQ(parse("75 01 97 00 00 01 00 91 02").elementCount(), 65536U);
  // 65,535 bytes after the ID.
  EXPECT_NO_THROW(parse("85 01 75 08 96 ff ff 91 02"));
  EXPECT_EQ(ReportDescriptor::parse(std::vector<std::uint8_t>(65535, 0xc4)).elementCount(), 0U);
}

TEST(ReportDescriptor, AReportYieldsSoManyValuesAtMost) {
  // 4,096 values in two items, along with any amount of padding; then one more.
  const std::string just = "75 01 96 ff 0f 81 02 95 01 81 02 96 00 20 81 03 91 02 b1 02";
  EXPECT_EQ(parse(just).elementCount(), 4096U + 3 * 8192);
  expectError(just + " 95 01 81 02", 22, "more than 4096 element values");
  expectError("75 01 96 01 10 81 02", 5, "more than 4096 element values");
  expectError("75 01 96 01 10 81 00", 5, "more than 4096 element values");
  // Each report has its own limit; all reports together have one, too.
  const std::string two = "75 01 96 00 10 85 01 81 02 85 02 81 02";
  EXPECT_EQ(parse(two).elementCount(), 8192U);
  expectError(two + " 95 01 85 03 81 02", 17, "more than 8192 element values");
}

TEST(ReportDescriptor, RefusesWhatExceedsItsBounds) {
  expectError(repeated("a1 01 ", 65), 128, "nested too deep");
  expectError(repeated("a4 ", 65), 64, "too many values are pushed");
  expectError("75 01 97 01 00 01 00 91 02", 7, "more than 65536 elements");
  expectError("75 01 97 ff ff ff ff 81 02", 7, "more than 65536 elements");
  expectError("75 01 96 00 ff 91 02 b1 02", 7, "more than 65536 elements");
  expectError("75 08 97 00 00 01 00 91 02", 7, "larger than 65536 bytes");
  expectError("77 ff ff ff ff 97 00 00 01 00 91 02", 10, "larger than 65536 bytes");
  expectError("75 20 96 00 30 91 02 96 00 20 91 02", 10, "larger than 65536 bytes");
  const std::vector<std::uint8_t> tooLong(65536, 0x75 - 1);
  EXPECT_THROW(ReportDescriptor::parse(tooLong), ReportDescriptorError);
}

TEST(ReportDescriptor, RefusesItemsThatAreCutOff) {
  expectError("75 08 95", 2, "truncated");
  expectError("75 08 26 ff", 2, "truncated");
  expectError("27 ff ff ff", 0, "truncated");
  expectError("fe", 0, "truncated");
  expectError("75 08 fe 03 10 01 02", 2, "truncated");
}

TEST(ReportDescriptor, RefusesUnbalancedStructure) {
  expectError("a1 01 c0 c0", 3, "not opened");
  expectError("a1 01 a1 00 c0", 5, "left open");
  expectError("75 08 b4", 2, "not pushed");
  expectError("a9 01 a9 01", 2, "nested");
  expectError("a9 00", 0, "a set that is not open");
  expectError("a9 02", 0, "must open");
  expectError("a9 01 09 30 75 08 95 01 81 02", 8, "left open at a main item");
}

TEST(ReportDescriptor, RefusesImpossibleValues) {
  expectError("85 00", 0, "1 to 255");
  expectError("86 00 01", 0, "1 to 255");
  expectError("07 00 00 01 00", 0, "16 bits");
  expectError("19 05 29 04", 2, "ends before it begins");
  expectError("1b 01 00 09 00 2b 02 00 0a 00", 5, "two usage pages");
  expectError("15 05 25 04 75 08 95 01 81 02", 8, "below the minimum");
}

TEST(ReportDescriptor, PaddingNeedsNoLogicalRange) {
  EXPECT_NO_THROW(parse("15 05 25 04 75 08 95 01 81 03"));
}

/// The whole text of an error.
std::string refusal(const std::string& hex) {
  try {
    parse(hex);
  } catch (const ReportDescriptorError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(ReportDescriptor, ARefusalNamesTheNumbers) {
  EXPECT_EQ(refusal("75 08 26 ff"),
            "offset 2: the item is truncated: it needs 3 bytes, but 2 are left");
  EXPECT_EQ(refusal("75 08 fe 03 10 01 02"),
            "offset 2: the item is truncated: it needs 6 bytes, but 5 are left");
  EXPECT_EQ(refusal("fe 00"), "offset 0: the item is truncated: it needs 3 bytes, but 2 are left");
  EXPECT_EQ(refusal("a1 01 a1 00"), "offset 4: 2 collections are left open");
  EXPECT_EQ(refusal("15 05 25 04 75 08 95 01 81 02"),
            "offset 8: the logical maximum 4 is below the minimum 5");
  EXPECT_EQ(refusal("15 ff 25 fe 75 08 95 01 81 02"),
            "offset 8: the logical maximum -2 is below the minimum -1");
  EXPECT_EQ(refusal("a9 01 a9 01"), "offset 2: delimiters are nested");
  EXPECT_EQ(refusal("a9 01 a9 00 a9 00"), "offset 4: a delimiter closes a set that is not open");
}

TEST(ReportDescriptor, ATooLongDescriptorIsRefusedAfterItsLastByte) {
  try {
    ReportDescriptor::parse(std::vector<std::uint8_t>(65536, 0xc4));
    FAIL() << "accepted";
  } catch (const ReportDescriptorError& error) {
    EXPECT_EQ(error.offset(), 65535U);
    EXPECT_STREQ(error.what(), "offset 65535: the descriptor is longer than 65535 bytes");
  }
}

TEST(ReportDescriptor, ALongItemMayHoldNothingOrEndTheDescriptor) {
  EXPECT_EQ(parse("fe 00 10 75 08 95 01 81 02").elementCount(), 1U);
  EXPECT_EQ(parse("75 08 95 01 81 02 fe 01 10 c0").elementCount(), 1U);
}

TEST(ReportDescriptor, UsagesAndPagesMayBeTheLargestOfTheirSixteenBits) {
  EXPECT_EQ(parse("06 ff ff 0a ff ff 75 08 95 01 81 02").fields()[0].usageOfField(0),
            (Usage{0xffff, 0xffff}));
  EXPECT_EQ(parse("05 01 0b ff ff fe ff 75 08 95 01 81 02").fields()[0].usageOfField(0),
            (Usage{0xfffe, 0xffff}));
  expectError("07 00 00 01 00", 0, "the usage page does not fit in 16 bits");
}

TEST(ReportDescriptor, OfAThreeByteNumberEveryBitCounts) {
  // Reports of 0x0102 fields, and of 0x01020304 usages.
  EXPECT_EQ(parse("75 01 96 02 01 81 02").fields()[0].count, 0x0102U);
  EXPECT_EQ(parse("77 04 03 00 00 95 01 81 02").fields()[0].bitSize, 0x0304U);
  EXPECT_EQ(parse("17 01 02 03 84 27 01 02 03 04 75 20 95 01 81 02").fields()[0].logicalMaximum,
            0x04030201);
}

TEST(ReportDescriptor, AReportHasRoomForItsLastBitAndNoMore) {
  EXPECT_NO_THROW(parse("75 01 97 00 ff 00 00 91 02 77 f8 00 07 00 95 01 91 02"));
  expectError("75 01 97 00 ff 00 00 91 02 77 f9 00 07 00 95 01 91 02", 16,
              "a report is larger than 65536 bytes");
}

TEST(ReportDescriptor, TheHighestReportIDsBitsAreItsOwn) {
  // Fields of every type before the first ID, then those of report 255.
  const auto descriptor = parse("75 08 95 01 81 02 91 02 b1 02 85 ff 81 02 91 02 b1 02");
  ASSERT_EQ(descriptor.fields().size(), 6U);
  for (const ReportField& field : descriptor.fields()) EXPECT_EQ(field.bitOffset, 8U);
}

TEST(ReportDescriptor, TheHighestReportIDsValuesAreCountedForIt) {
  EXPECT_EQ(parse("75 01 96 00 10 85 ff 81 02 85 01 81 02").elementCount(), 8192U);
  expectError("75 01 96 00 10 85 ff 81 02 95 01 81 02", 11, "more than 4096 element values");
}

TEST(ReportDescriptor, WhatSelectsNothingStaysOnThePageOfTheFirstUsage) {
  const auto field =
      parse("05 01 0b e9 00 0c 00 0b 30 00 0d 00 15 00 25 01 75 08 95 01 81 00").fields()[0];
  EXPECT_EQ(field.noSelection(), (Usage{0x0c, 0}));
  EXPECT_EQ(field.usageOfSelection(1), (Usage{0x0d, 0x30}));
}

TEST(ReportDescriptor, ElementsNameTheirFieldAndCookie) {
  const auto descriptor = parse("75 04 95 02 81 02 75 08 95 03 91 02");
  for (std::uint32_t cookie = 1; cookie <= 5; ++cookie) {
    const auto element = descriptor.elementWithCookie(cookie);
    ASSERT_TRUE(element.has_value());
    EXPECT_EQ(element->cookie, cookie);
    EXPECT_EQ(element->field, &descriptor.fields()[cookie <= 2 ? 0 : 1]);
    EXPECT_EQ(element->index, cookie <= 2 ? cookie - 1 : cookie - 3);
  }
}

}  // namespace
