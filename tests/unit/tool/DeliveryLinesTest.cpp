// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/DeliveryLines.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/kit/KQHIDDeviceElementValue.h"

namespace tool {
namespace {

using platform::HIDElementValueRecord;
using platform::NSError;
using platform::str;

std::shared_ptr<platform::NSArray> values(const std::vector<HIDElementValueRecord>& records) {
  return platform::elementValueArray(records);
}

std::shared_ptr<NSError> errorSaying(std::string_view description) {
  return NSError::errorWithDomain_code_userInfo(
      str("HIDEventRouterDomain"), -536870208,
      platform::NSDictionary::dictionaryWithEntries(
          {{str("NSLocalizedDescription"), str(description)}}));
}

constexpr std::array<std::uint8_t, 1> kMinusFive{0xfb};
constexpr std::array<std::uint8_t, 9> kWide{1, 2, 3, 4, 5, 6, 7, 8, 9};

TEST(JsonDeliveryLines, PutsOneObjectOnALine) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendStatus(out, WLHIDEventRouterClientStatusRouting);
  lines->appendReport(out, std::array<std::uint8_t, 2>{0x01, 0xff}, 1);
  lines->appendElementValues(out, *values({{1, 1, 48, 3, -5, kMinusFive}}));
  EXPECT_EQ(out,
            "{\"status\":4}\n"
            "{\"report\":{\"id\":1,\"data\":\"01ff\"}}\n"
            "{\"elements\":[{\"reportID\":1,\"usagePage\":1,\"usage\":48,\"cookie\":3,"
            "\"integerValue\":-5,"
            "\"bytes\":\"fb\"}]}\n");
}

TEST(JsonDeliveryLines, KeepsNumbersAtTheirEnds) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendElementValues(
      out, *values({{0xffffffff, 0xffffffff, 0xffffffff, std::numeric_limits<std::uint64_t>::max(),
                     std::numeric_limits<std::int64_t>::min(), kMinusFive},
                    {0, 0, 0, 0, std::numeric_limits<std::int64_t>::max(), kWide}}));
  const auto parsed = nlohmann::json::parse(out)["elements"];
  EXPECT_EQ(parsed[0]["cookie"].get<std::uint64_t>(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parsed[0]["integerValue"].get<std::int64_t>(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parsed[0]["usagePage"].get<std::uint32_t>(), 0xffffffffU);
  EXPECT_EQ(parsed[1]["bytes"], "010203040506070809");
}

TEST(JsonDeliveryLines, EscapesWhatATerminalWouldObey) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  const std::string hostile = "\x1b[2J\x7f\u009b\u202e\u2066\u200b";
  const std::string escaped = R"("\u001b[2J\u007f\u009b\u202e\u2066\u200b")";
  lines->appendError(out, *errorSaying(hostile));
  EXPECT_NE(out.find(escaped), std::string::npos) << out;
  out.clear();
  lines->appendEnd(out, hostile);
  EXPECT_EQ(out, "{\"ended\":" + escaped + "}\n");
}

TEST(JsonDeliveryLines, EmptyReportsAndArraysAreLinesToo) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendReport(out, {}, 0);
  lines->appendElementValues(out, *values({}));
  EXPECT_EQ(out, "{\"report\":{\"id\":0,\"data\":\"\"}}\n{\"elements\":[]}\n");
}

TEST(JsonDeliveryLines, ErrorsCarryTheDescriptionWhereThereIsOne) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendError(out, *errorSaying("no \"such\"\ndevice"));
  lines->appendError(out, *NSError::errorWithDomain_code_userInfo(str("d"), -1, nullptr));
  EXPECT_EQ(out,
            "{\"error\":{\"domain\":\"HIDEventRouterDomain\",\"code\":-536870208,\"description\":"
            "\"no \\\"such\\\"\\ndevice\"}}\n"
            "{\"error\":{\"domain\":\"d\",\"code\":-1}}\n");
}

TEST(JsonDeliveryLines, AnEndHasItsReason) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendEnd(out, "it is \"over\"");
  EXPECT_EQ(out, "{\"ended\":\"it is \\\"over\\\"\"}\n");
}

TEST(JsonDeliveryLines, SeparatesValuesAndPassesOverWhatIsNone) {
  const auto lines = jsonDeliveryLines();
  const auto two = values({{1, 2, 3, 4, 5, kMinusFive}, {6, 7, 8, 9, 10, kMinusFive}});
  std::string out;
  lines->appendElementValues(out,
                             *platform::NSArray::arrayWithObjects(
                                 {two->objectAtIndex(0), str("no value"), two->objectAtIndex(1)}));
  EXPECT_EQ(out,
            "{\"elements\":[{\"reportID\":1,\"usagePage\":2,\"usage\":3,\"cookie\":4,"
            "\"integerValue\":5,\"bytes\":\"fb\"},"
            "{\"reportID\":6,\"usagePage\":7,\"usage\":8,\"cookie\":9,\"integerValue\":10,"
            "\"bytes\":\"fb\"}]}\n");
}

TEST(JsonDeliveryLines, AnErrorNeedHaveNoDomain) {
  const auto lines = jsonDeliveryLines();
  std::string out;
  lines->appendError(out, *NSError::errorWithDomain_code_userInfo(nullptr, 2, nullptr));
  EXPECT_EQ(out, "{\"error\":{\"domain\":\"(null)\",\"code\":2}}\n");
}

class TextDeliveryLinesTest : public testing::Test {
 protected:
  std::string out;
  std::chrono::microseconds now{1000};
  std::size_t columns = 0;
  const std::unique_ptr<DeliveryLines> lines =
      textDeliveryLines([this] { return now; }, [this] { return columns; });
};

TEST_F(TextDeliveryLinesTest, KeepsToTheTerminalsWidthAsItIsNow) {
  columns = 34;
  lines->appendReport(out, std::array<std::uint8_t, 6>{1, 2, 3, 4, 5, 6}, 1);
  lines->appendElementValues(
      out, *values({{1, 1, 48, 3, 5, kMinusFive}, {1, 1, 49, 1, -100, kMinusFive}}));
  columns = 3;
  lines->appendReport(out, std::array<std::uint8_t, 2>{1, 2}, 1);
  EXPECT_EQ(out,
            "    0.000  report    1  01 02 03\n"
            "                        04 05 06\n"
            "    0.000  values       X=5 Y=-100\n"
            "    0.000  report    1  01\n"
            "                        02\n");
}

TEST_F(TextDeliveryLinesTest, NeverBreaksAValue) {
  columns = 33;
  lines->appendElementValues(
      out, *values({{0, 7, 0xe1, 2, 1, kMinusFive}, {0, 7, 4, 9, 4, kMinusFive}}));
  EXPECT_EQ(out,
            "    0.000  values       Left Shift=1\n"
            "                        A=4\n");
}

TEST_F(TextDeliveryLinesTest, CountsRunsOfVendorDefinedValues) {
  lines->appendElementValues(out, *values({{1, 1, 48, 3, 5, kMinusFive},
                                           {1, 0xff00, 1, 3, 1, kMinusFive},
                                           {1, 0xff00, 2, 3, 2, kMinusFive},
                                           {1, 0xff00, 3, 3, 0, kMinusFive},
                                           {1, 0xff00, 4, 3, 0, kMinusFive},
                                           {1, 0xff01, 1, 3, 7, kMinusFive},
                                           {1, 0xff01, 2, 3, 8, kMinusFive},
                                           {1, 1, 49, 3, 6, kMinusFive}}));
  EXPECT_EQ(
      out,
      "    0.000  values       X=5 ff00=(4 vendor-defined values) ff01/0001=7 ff01/0002=8 Y=6\n");
}

TEST_F(TextDeliveryLinesTest, FillsTheTerminalToItsLastColumn) {
  columns = 32;
  lines->appendReport(out, std::array<std::uint8_t, 4>{1, 2, 3, 4}, 1);
  columns = 31;
  lines->appendReport(out, std::array<std::uint8_t, 4>{1, 2, 3, 4}, 1);
  EXPECT_EQ(out,
            "    0.000  report    1  01 02 03\n"
            "                        04\n"
            "    0.000  report    1  01 02\n"
            "                        03 04\n");
}

TEST_F(TextDeliveryLinesTest, VendorDefinedPagesAreTheLastOf16Bits) {
  const auto four = [](std::uint32_t page) {
    std::vector<HIDElementValueRecord> records;
    for (std::uint32_t usage = 1; usage <= 4; ++usage)
      records.push_back({1, page, usage, 3, 1, kMinusFive});
    return values(records);
  };
  for (const std::uint32_t page : {0xfeffU, 0xff00U, 0xffffU, 0x10000U})
    lines->appendElementValues(out, *four(page));
  EXPECT_EQ(out,
            "    0.000  values       feff/0001=1 feff/0002=1 feff/0003=1 feff/0004=1\n"
            "    0.000  values       ff00=(4 vendor-defined values)\n"
            "    0.000  values       ffff=(4 vendor-defined values)\n"
            "    0.000  values       00010000/0001=1 00010000/0002=1 00010000/0003=1 "
            "00010000/0004=1\n");
}

TEST_F(TextDeliveryLinesTest, ThreeVendorDefinedValuesAreShown) {
  lines->appendElementValues(out, *values({{1, 0xff00, 1, 3, 1, kMinusFive},
                                           {1, 0xff00, 2, 3, 0, kMinusFive},
                                           {1, 0xff00, 3, 3, 2, kMinusFive}}));
  EXPECT_EQ(out, "    0.000  values       ff00/0001=1 ff00/0002=0 ff00/0003=2\n");
}

TEST_F(TextDeliveryLinesTest, WhatIsUpIsAKeyOrAButton) {
  lines->appendElementValues(out, *values({{0, 7, 0, 10, 4, kMinusFive},
                                           {0, 9, 0, 4, 1, kMinusFive},
                                           {0, 1, 48, 4, 0, kMinusFive}}));
  EXPECT_EQ(out, "    0.000  values       Button 0=1 X=0\n");
}

TEST_F(TextDeliveryLinesTest, AnEndHasItsReasonAndAnErrorNeedHaveNone) {
  lines->appendEnd(out, "over\n");
  lines->appendError(out, *NSError::errorWithDomain_code_userInfo(str("d"), -1, nullptr));
  EXPECT_EQ(out, "    0.000  ended   over\\x0a\n    0.000  error   d -1\n");
}

TEST_F(TextDeliveryLinesTest, MakesAnErrorsWordsPrintable) {
  lines->appendError(out, *errorSaying("\x1b[2Jgone\u202e\u009b31m"));
  EXPECT_EQ(out,
            "    0.000  error   \\x1b[2Jgone\\u202e\\x9b31m  HIDEventRouterDomain -536870208\n");
}

TEST_F(TextDeliveryLinesTest, AlignsWhatComes) {
  lines->appendStatus(out, WLHIDEventRouterClientStatusOpening);
  now += std::chrono::microseconds(1'500'000);
  lines->appendReport(out, std::array<std::uint8_t, 3>{0x01, 0xff, 0x00}, 1);
  lines->appendElementValues(out,
                             *values({{1, 1, 48, 3, -5, kMinusFive}, {1, 9, 2, 1, 1, kMinusFive}}));
  EXPECT_EQ(out,
            "    0.000  status  opening\n"
            "    1.500  report    1  01 ff 00\n"
            "    1.500  values       X=-5 Button 2=1\n");
}

TEST_F(TextDeliveryLinesTest, LeavesKeysAndButtonsOutThatAreUp) {
  lines->appendElementValues(out, *values({{0, 7, 0xe1, 2, 1, kMinusFive},
                                           {0, 7, 0xe2, 3, 0, kMinusFive},
                                           {0, 7, 0x04, 9, 4, kMinusFive},
                                           {0, 9, 1, 4, 0, kMinusFive},
                                           {0, 7, 0, 10, 0, kMinusFive}}));
  EXPECT_EQ(out, "    0.000  values       Left Shift=1 A=4\n");
}

TEST_F(TextDeliveryLinesTest, SaysWhenNothingIsPressed) {
  lines->appendElementValues(out, *values({{0, 7, 0xe1, 2, 0, kMinusFive}}));
  EXPECT_EQ(out, "    0.000  values       nothing pressed\n");
}

TEST_F(TextDeliveryLinesTest, ShowsTheBytesOfWideFields) {
  lines->appendElementValues(out, *values({{0, 0xff00, 1, 1, 0, kWide}}));
  EXPECT_EQ(out, "    0.000  values       ff00/0001=010203040506070809\n");
}

TEST_F(TextDeliveryLinesTest, OfAFieldThatFitsANumberTheNumberIsShown) {
  static constexpr std::uint8_t kEight[] = {0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  lines->appendElementValues(out, *values({{0, 0xff00, 1, 1, -2, kEight}}));
  EXPECT_EQ(out, "    0.000  values       ff00/0001=-2\n");
}

TEST_F(TextDeliveryLinesTest, KeepsAnErrorOnItsLine) {
  lines->appendError(out, *errorSaying("gone\nfor good"));
  EXPECT_EQ(out, "    0.000  error   gone\\x0afor good  HIDEventRouterDomain -536870208\n");
}

}  // namespace
}  // namespace tool
