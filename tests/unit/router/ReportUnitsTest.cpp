// SPDX-License-Identifier: Apache-2.0

// What the parsed descriptor says for people who read it: physical ranges and units, where each
// item stands, and what comes before a fault.
#include <gtest/gtest.h>

#include "HexBytes.h"
#include "router/ReportDescriptor.h"
#include "router/RouterLimits.h"

namespace {

using router::FaultyDescriptor;
using router::ReportDescriptor;
using router::ReportField;

ReportField fieldOf(const std::string& hex) {
  return ReportDescriptor::parse(bytes(hex)).fields().at(0);
}

TEST(ReportUnits, AFieldHasThePhysicalRangeAndUnitInForce) {
  const ReportField field = fieldOf("15 00 26 00 10 35 00 46 e8 03 65 11 55 0e 75 10 95 01 81 02");
  EXPECT_EQ(field.physicalMinimum, 0);
  EXPECT_EQ(field.physicalMaximum, 1000);
  EXPECT_EQ(field.unit, 0x11U);
  EXPECT_EQ(field.unitExponent, -2);
}

TEST(ReportUnits, WithoutThemItHasNone) {
  const ReportField field = fieldOf("15 00 25 01 75 01 95 01 81 02");
  EXPECT_EQ(field.physicalMinimum, 0);
  EXPECT_EQ(field.physicalMaximum, 0);
  EXPECT_EQ(field.unit, 0U);
  EXPECT_EQ(field.unitExponent, 0);
}

TEST(ReportUnits, ThePhysicalMaximumIsSignedIfTheMinimumIs) {
  EXPECT_EQ(fieldOf("35 00 45 ff 75 08 95 01 81 02").physicalMaximum, 255);
  const ReportField field = fieldOf("35 a6 45 ff 75 08 95 01 81 02");
  EXPECT_EQ(field.physicalMinimum, -90);
  EXPECT_EQ(field.physicalMaximum, -1);
}

TEST(ReportUnits, AnExponentHasFourBitsUnlessItIsLarger) {
  const auto exponent = [](const std::string& item) {
    return fieldOf(item + " 75 08 95 01 81 02").unitExponent;
  };
  EXPECT_EQ(exponent("55 07"), 7);
  EXPECT_EQ(exponent("55 08"), -8);
  EXPECT_EQ(exponent("55 0f"), -1);
  EXPECT_EQ(exponent("55 fe"), -2);
  EXPECT_EQ(exponent("56 fd ff"), -3);
  EXPECT_EQ(exponent("55 10"), 16);
}

TEST(ReportUnits, PopBringsThemBack) {
  const auto fields =
      ReportDescriptor::parse(bytes("35 01 45 02 65 11 55 01 a4 35 03 45 04 65 12 55 02 "
                                    "75 08 95 01 81 02 b4 75 08 95 01 81 02"))
          .fields();
  ASSERT_EQ(fields.size(), 2U);
  EXPECT_EQ(fields[0].unit, 0x12U);
  EXPECT_EQ(fields[1].physicalMinimum, 1);
  EXPECT_EQ(fields[1].physicalMaximum, 2);
  EXPECT_EQ(fields[1].unit, 0x11U);
  EXPECT_EQ(fields[1].unitExponent, 1);
}

TEST(ReportUnits, TheFlagsOfAFieldAreItsOwn) {
  EXPECT_FALSE(fieldOf("75 08 95 01 81 02").relative);
  EXPECT_TRUE(fieldOf("75 08 95 01 81 06").relative);
  EXPECT_FALSE(fieldOf("75 08 95 01 81 06").hasNullState);
  EXPECT_TRUE(fieldOf("75 08 95 01 81 42").hasNullState);
}

TEST(ReportUnits, FieldsAndCollectionsKnowWhereTheyStand) {
  const auto descriptor =
      ReportDescriptor::parse(bytes("05 01 09 02 a1 01 a1 00 75 08 95 01 81 02 c0 c0"));
  EXPECT_EQ(descriptor.collections().at(0).offset, 4U);
  EXPECT_EQ(descriptor.collections().at(1).offset, 6U);
  EXPECT_EQ(descriptor.fields().at(0).offset, 12U);
}

TEST(ReportFault, WhatComesBeforeItIsThere) {
  const FaultyDescriptor faulty =
      ReportDescriptor::parseUpToFault(bytes("a1 01 85 01 75 08 95 01 81 02 85 00 81 02 c0"));
  ASSERT_TRUE(faulty.fault.has_value());
  EXPECT_EQ(faulty.fault->offset(), 10U);
  EXPECT_STREQ(faulty.fault->what(), "offset 10: a report ID must be 1 to 255");
  EXPECT_EQ(faulty.descriptor.collections().size(), 1U);
  ASSERT_EQ(faulty.descriptor.fields().size(), 1U);
  EXPECT_EQ(faulty.descriptor.fields()[0].bitOffset, 8U) << "its report has an ID";
  EXPECT_EQ(faulty.descriptor.elementCount(), 1U);
}

TEST(ReportFault, WithoutOneEverythingIsThere) {
  const FaultyDescriptor faulty =
      ReportDescriptor::parseUpToFault(bytes("a1 01 75 08 95 01 81 02 c0"));
  EXPECT_FALSE(faulty.fault.has_value());
  EXPECT_EQ(faulty.descriptor.fields().size(), 1U);
}

TEST(ReportFault, OfADescriptorThatIsTooLongNothingIsLookedAt) {
  const std::vector<std::uint8_t> tooLong(router::RouterLimits::kDescriptorBytes + 1);
  const FaultyDescriptor faulty = ReportDescriptor::parseUpToFault(tooLong);
  ASSERT_TRUE(faulty.fault.has_value());
  EXPECT_EQ(faulty.fault->offset(), router::RouterLimits::kDescriptorBytes);
}

}  // namespace
