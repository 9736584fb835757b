// SPDX-License-Identifier: Apache-2.0

// How a report descriptor is read, shown and checked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "tool/command/Command.h"
#include "tool/descriptor/DescriptorFaults.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/descriptor/DescriptorTree.h"
#include "tool/descriptor/UnitNames.h"

namespace tool {
namespace {

using router::ReportDescriptor;
using testing::ElementsAre;

std::vector<std::uint8_t> bytes(const std::string& hex) {
  return descriptorBytes(hex, "test");
}

/// Each line with its offset, indented as in the tree.
std::vector<std::string> treeLines(const std::string& hex) {
  const auto parsed = ReportDescriptor::parseUpToFault(bytes(hex));
  const auto tree = treeOf(parsed.descriptor);
  std::vector<std::string> lines;
  forEachNode(tree, [&](const DescriptorNode& node, std::size_t depth) {
    lines.push_back(std::to_string(node.offset) + std::string(1 + depth, ' ') + lineOf(node));
  });
  return lines;
}

std::vector<std::string> faultLines(const std::string& hex) {
  const auto content = bytes(hex);
  std::vector<std::string> lines;
  for (const auto& fault : faultsOf(content, ReportDescriptor::parseUpToFault(content)))
    lines.push_back(std::to_string(fault.offset) + (fault.isFatal ? "! " : " ") + fault.text);
  return lines;
}

std::string refusalOf(const std::string& text) {
  try {
    static_cast<void>(descriptorBytes(text, "file"));
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "accepted";
}

const std::string kMouse =
    "05 01 09 02 a1 01 09 01 a1 00 05 09 19 01 29 03 15 00 25 01 75 01 95 03 81 02 75 05 95 01 81 "
    "01 05 01 09 30 09 31 15 81 25 7f 75 08 95 02 81 06 c0 c0";

TEST(DescriptorBytes, ComeInEveryNotation) {
  const std::vector<std::uint8_t> expected{0x05, 0x01, 0xa1, 0x01};
  for (const char* text :
       {"05 01 a1 01", "0501A101", "0x05, 0x01, 0xA1, 0x01\n", "{0x5,0x1,\t0xa1,0x1};",
        "\\x05\\x01\\xa1\\x01", "\"\\x05\\x01\" \"\\xa1\\x01\"", "5 1 a1 1",
        "05 01 // 77\na1 /* 66 \n 55 */ 01 # 44", "# é\n05 01 a1 01 //"}) {
    EXPECT_EQ(bytes(text), expected) << text;
  }
  EXPECT_EQ(bytes(std::string("\x05\x01\xa1\x01", 4)), expected) << "raw";
}

TEST(DescriptorBytes, AWordThatIsNotAByteIsNamedWithItsLine) {
  const std::string advice =
      " is not a byte (a descriptor is raw bytes, hexadecimal text or a "
      "recording)";
  EXPECT_EQ(refusalOf("05 01\na1 0g"), "file:2: '0g'" + advice);
  EXPECT_EQ(refusalOf("/* \n\n */ hello"), "file:3: 'hello'" + advice);
  EXPECT_EQ(refusalOf("0x051"), "file:1: '0x051'" + advice);
  EXPECT_EQ(refusalOf("051"), "file:1: '051'" + advice);
  EXPECT_EQ(refusalOf("0x"), "file:1: '0x'" + advice);
}

TEST(DescriptorTree, HasALineForEachCollectionAndField) {
  EXPECT_THAT(treeLines(kMouse),
              ElementsAre("4 Application collection: Mouse", "8  Physical collection: Pointer",
                          "24   Input: Button 1 to Button 3; 3 × 1 bit from bit 0; 0 to 1",
                          "30   Input: padding; 5 bits from bit 3",
                          "46   Input: X, Y; 2 × 8 bits from bit 8; -127 to 127; relative"));
}

TEST(DescriptorTree, KeepsTheOrderOfFieldsAndCollections) {
  EXPECT_THAT(treeLines("a1 01 75 08 95 01 81 01 a1 02 81 01 c0 81 01 c0 a1 01 c0"),
              ElementsAre("0 Application collection", "6  Input: padding; 8 bits from bit 0",
                          "8  Logical collection", "10   Input: padding; 8 bits from bit 8",
                          "13  Input: padding; 8 bits from bit 16", "16 Application collection"));
}

TEST(DescriptorTree, NamesReportsArraysAndPagesWithoutUsages) {
  EXPECT_THAT(
      treeLines("85 02 05 07 19 04 29 65 15 00 25 65 75 08 95 06 81 00"
                "06 00 ff 95 01 b1 02 05 08 09 01 91 43"),
      ElementsAre("16 Input, report 2: any of A to Application; 6 × 8 bits from bit 8; 0 to 101",
                  "23 Feature, report 2: without usage on the page vendor-defined ff00; 8 bits "
                  "from bit 8; 0 to 101",
                  "29 Output, report 2: constant Num Lock LED; 8 bits from bit 8"));
}

TEST(DescriptorTree, ShowsUnitsAndNullStates) {
  EXPECT_THAT(treeLines("05 0d 09 30 15 00 26 00 08 35 00 46 d8 00 65 11 55 0e 75 10 95 01 81 42"),
              ElementsAre("22 Input: Tip Pressure; 16 bits from bit 0; 0 to 2048; stands for 0 to "
                          "2.16 cm (SI linear, exponent -2), 948.1 per cm; outside: none"));
}

TEST(DescriptorTree, OfARangeWithoutNamesThePageIsNamed) {
  EXPECT_THAT(
      treeLines("05 07 19 00 2a 91 00 15 00 25 65 75 08 95 06 81 00"),
      ElementsAre("15 Input: any of Keyboard 0x00 to 0x91; 6 × 8 bits from bit 0; 0 to 101"));
  EXPECT_THAT(treeLines("06 00 ff 19 01 29 03 15 00 25 65 75 08 95 03 81 02"),
              ElementsAre("15 Input: vendor-defined ff00 0x01 to 0x03; 3 × 8 bits from bit 0; 0 to "
                          "101"));
}

TEST(DescriptorTree, ShowsNoUnitOfSwitchesAndNoRangeWithoutAUnit) {
  EXPECT_THAT(treeLines("05 09 09 01 15 00 25 01 35 00 46 3b 01 65 14 75 01 95 01 81 02"),
              ElementsAre("19 Input: Button 1; 1 bit from bit 0; 0 to 1"));
  EXPECT_THAT(treeLines("05 01 09 30 15 00 25 7f 35 00 46 3b 01 75 08 95 01 81 02"),
              ElementsAre("17 Input: X; 8 bits from bit 0; 0 to 127"));
}

TEST(DescriptorTree, CountsUsagesThatAreTooMany) {
  EXPECT_THAT(treeLines("05 01 09 30 09 32 09 34 09 36 09 38 09 31 09 33 09 35 09 37 09 39 15 00 "
                        "25 01 75 01 95 0a 81 02"),
              ElementsAre("30 Input: X, Z, Ry, Slider, Wheel, Y, Rx, Rz and 2 more; 10 × 1 bit "
                          "from bit 0; 0 to 1"));
}

TEST(DescriptorTree, NamesCollectionTypes) {
  EXPECT_EQ(collectionType(0), "physical");
  EXPECT_EQ(collectionType(6), "usage modifier");
  EXPECT_EQ(collectionType(7), "reserved 0x07");
  EXPECT_EQ(collectionType(0x80), "vendor-defined 0x80");
}

TEST(DescriptorTree, ListsTheReports) {
  EXPECT_EQ(reportList(ReportDescriptor::parse(bytes(kMouse))), "input (3 bytes)");
  EXPECT_EQ(reportList(ReportDescriptor::parse(
                bytes("85 02 75 08 95 01 81 02 b1 02 85 01 95 02 81 02 75 01 91 02"))),
            "input 1 (3 bytes), input 2 (2 bytes), output 1 (2 bytes), feature 2 (2 bytes)");
  EXPECT_EQ(reportList(ReportDescriptor::parse({})), "none");
}

TEST(DescriptorFaults, OfASoundDescriptorThereAreNone) {
  EXPECT_THAT(faultLines(kMouse), ElementsAre());
}

TEST(DescriptorFaults, TheOneThatStopsTheRouterIsNamedAtItsByte) {
  EXPECT_THAT(faultLines("a1 01 85 00 c0"), ElementsAre("2! a report ID must be 1 to 255"));
  EXPECT_THAT(faultLines("a1 01 26 ff"),
              ElementsAre("2! the item is truncated: it needs 3 bytes, but 2 are left"));
  EXPECT_THAT(faultLines("a1 01 c0 c0"),
              ElementsAre("3! a collection is closed that was not opened"));
}

TEST(DescriptorFaults, WhatTheMakerProbablyDidNotMeanIsNoted) {
  const std::string field = "75 08 95 01 81 02 c0";
  EXPECT_THAT(faultLines("a1 01 05 01 25 7f " + field),
              ElementsAre("10 the item has no usage, so nobody can tell what it carries"));
  EXPECT_THAT(faultLines("a1 01 05 01 25 7f 09 30 09 31 " + field),
              ElementsAre("14 2 usages for 1 fields: the others are not used"));
  EXPECT_THAT(faultLines("a1 01 05 01 26 00 01 09 30 " + field),
              ElementsAre("13 the logical range 0 to 256 does not fit into 8 bits"));
  EXPECT_THAT(faultLines("a1 01 05 01 16 7f ff 25 7f 09 30 " + field),
              ElementsAre("15 the logical range -129 to 127 does not fit into 8 bits"));
  EXPECT_THAT(faultLines("a1 01 05 01 25 7f 35 05 45 04 09 30 " + field),
              ElementsAre("16 the physical maximum is below the minimum"));
  EXPECT_THAT(faultLines("05 01 09 30 25 7f 75 08 95 01 81 02"),
              ElementsAre("10 the item lies in no collection"));
  EXPECT_THAT(faultLines("a1 01 05 09 09 01 25 01 75 01 95 01 81 02 c0"),
              ElementsAre("12 the report ends inside a byte: it has 1 bits"));
  EXPECT_THAT(faultLines("a1 01 09 30 c0"),
              ElementsAre("2 no item follows to which this usage could belong"));
  EXPECT_THAT(faultLines("a1 01 c0 09 30"),
              ElementsAre("3 no item follows to which this usage could belong"));
  EXPECT_THAT(faultLines("a1 01 c4 f1 01 d4 69 01 0c c0"),
              ElementsAre("2 an item of an unknown kind is skipped",
                          "3 an item of an unknown kind is skipped",
                          "5 an item of an unknown kind is skipped",
                          "6 an item of an unknown kind is skipped",
                          "8 an item of an unknown kind is skipped"));
}

TEST(DescriptorFaults, AReportIsNotUnfinishedBecauseOfALaterFault) {
  EXPECT_THAT(faultLines("a1 01 05 09 09 01 25 01 75 01 95 01 81 02 85 00"),
              ElementsAre("14! a report ID must be 1 to 255"));
}

/// Real items with random numbers, cut off anywhere.
std::vector<std::uint8_t> randomDescriptor(std::mt19937& random) {
  constexpr std::array<std::uint8_t, 24> kPrefixes = {
      0x05, 0x06, 0x09, 0x0b, 0x15, 0x26, 0x17, 0x19, 0x29, 0x35, 0x47, 0x55,
      0x57, 0x67, 0x75, 0x85, 0x95, 0xa1, 0xa4, 0xb4, 0x81, 0x91, 0xb1, 0xc0};
  std::vector<std::uint8_t> bytes;
  for (std::size_t length = random() % 120; bytes.size() < length;) {
    const std::uint8_t prefix = random() % 16 == 0 ? static_cast<std::uint8_t>(random())
                                                   : kPrefixes[random() % kPrefixes.size()];
    bytes.push_back(prefix);
    for (unsigned i = (prefix & 3U) == 3 ? 4 : prefix & 3U; i > 0; --i)
      bytes.push_back(static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 16));
  }
  return bytes;
}

TEST(DescriptorTree, EveryDescriptorCanBeShown) {
  std::mt19937 random(11);
  std::size_t lines = 0;
  for (int i = 0; i < 3000; ++i) {
    const auto content = randomDescriptor(random);
    const auto parsed = ReportDescriptor::parseUpToFault(content);
    const auto tree = treeOf(parsed.descriptor);
    forEachNode(tree, [&](const DescriptorNode& node, std::size_t) {
      lines += lineOf(node).empty() ? 0 : 1;
    });
    for (const auto& fault : faultsOf(content, parsed))
      EXPECT_LE(fault.offset, content.size()) << fault.text;
  }
  EXPECT_GT(lines, 1000U) << "hardly anything was shown";
}

TEST(Units, HaveANameAndASystem) {
  EXPECT_EQ(unitName(0), "");
  EXPECT_EQ(unitSystem(0), "");
  EXPECT_EQ(unitName(0x11), "cm");
  EXPECT_EQ(unitSystem(0x11), "SI linear");
  EXPECT_EQ(unitName(0x12), "rad");
  EXPECT_EQ(unitSystem(0x12), "SI rotation");
  EXPECT_EQ(unitName(0x13), "in");
  EXPECT_EQ(unitName(0x14), "deg");
  EXPECT_EQ(unitSystem(0x14), "English rotation");
  EXPECT_EQ(unitName(0x1001), "s");
  EXPECT_EQ(unitName(0xe111), "cm·g·s^-2");
  EXPECT_EQ(unitName(0x1f0001), "K^-1·A") << "the nibbles above";
  EXPECT_EQ(unitName(0x1f), "");
  EXPECT_EQ(unitSystem(0x1f), "vendor-defined");
  EXPECT_EQ(unitSystem(0x15), "reserved");
}

TEST(Units, NumbersAreScaledExactly) {
  EXPECT_EQ(scaled(216, -1), "21.6");
  EXPECT_EQ(scaled(2160, -2), "21.6");
  EXPECT_EQ(scaled(-5, -2), "-0.05");
  EXPECT_EQ(scaled(5, -1), "0.5");
  EXPECT_EQ(scaled(100, -2), "1");
  EXPECT_EQ(scaled(7, 3), "7000");
  EXPECT_EQ(scaled(0, 3), "0");
  EXPECT_EQ(scaled(3, -12), "3e-12");
  EXPECT_EQ(scaled(3, 12), "3e12");
}

TEST(Units, ARangeWithoutAPhysicalOneStandsForItself) {
  router::ReportField field;
  field.logicalMaximum = 100;
  EXPECT_EQ(physicalRange(field), "");
  EXPECT_EQ(valuesPerUnit(field), std::nullopt);
  field.physicalMaximum = 100;
  EXPECT_EQ(physicalRange(field), "") << "it says nothing new";
  field.physicalMaximum = 0;
  field.unit = 0x14;
  EXPECT_EQ(physicalRange(field), "0 to 100 deg");
  EXPECT_EQ(valuesPerUnit(field), 1.0);
  field.physicalMinimum = -5;
  field.unitExponent = 1;
  field.unit = 0;
  EXPECT_EQ(physicalRange(field), "-50 to 0");
}

}  // namespace
}  // namespace tool
