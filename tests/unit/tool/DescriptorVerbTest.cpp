// SPDX-License-Identifier: Apache-2.0

// wlhid descriptor, on files and devices.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

const std::string kTiny = "a1 01 05 01 09 30 15 81 25 7f 75 08 95 01 81 06 c0";

class DescriptorVerbTest : public VerbTest {
 protected:
  static Outcome describe(std::vector<std::string> more) {
    more.insert(more.begin(), "descriptor");
    return run(addDescriptorVerb, more);
  }
  [[nodiscard]] std::string file(const std::string& content) const {
    const auto path = directory_.path() / "file";
    testsupport::writeFile(path, content);
    return path;
  }
};

TEST_F(DescriptorVerbTest, ShowsAFileOfHexadecimalText) {
  const std::string path = file(kTiny);
  const Outcome outcome = describe({path});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, path +
                             ": 17 bytes, 1 element\n"
                             "Class: ordinary (no rule applies)\n"
                             "Reports: input (1 byte)\n"
                             "\n"
                             "  BYTE\n"
                             "     0  Application collection\n"
                             "    14    Input: X; 8 bits from bit 0; -127 to 127; relative\n");
}

TEST_F(DescriptorVerbTest, ShowsEachDeviceOfARecording) {
  const std::string path = file("R: 17 " + kTiny + "\nN: Wheel\nD: 1\nN: Other\nR: 2 05 01\n");
  EXPECT_TRUE(describe({path}).out.starts_with("Wheel: 17 bytes, 1 element\n"));
  EXPECT_TRUE(describe({path, "--device", "1"}).out.starts_with("Other: 2 bytes, 0 elements\n"));
  const Outcome missing = describe({path, "--device", "2"});
  EXPECT_TRUE(isRefusal(missing, 1, path + ": has no report descriptor for device 2"));
}

TEST_F(DescriptorVerbTest, ShowsADeviceByItsName) {
  testsupport::writeFile(directory_.path() / "w.hid", "R: 17 " + kTiny + "\nN: Wheel\n");
  ASSERT_EQ(run(addDevicesVerb, {"devices", "add", directory_.path() / "w.hid"}).err, "");
  EXPECT_TRUE(describe({"Wheel"}).out.starts_with("Wheel: 17 bytes, 1 element\n"));
  EXPECT_TRUE(isRefusal(describe({"Whale"}), 1,
                        "no device is called \"Whale\" (wlhid devices lists them)"));
  EXPECT_TRUE(
      isRefusal(describe({"17"}), 1, "there is no device \"17\" (wlhid devices lists them)"));
}

TEST_F(DescriptorVerbTest, AFaultIsNamedAtItsByteAndIsAFailure) {
  const Outcome outcome = describe({file("a1 01 05 01 09 30 75 08 95 01 81 02 85 00 c0")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(
      outcome.out.ends_with("    10    Input: X; 8 bits from bit 0; 0 to 0\n\n"
                            "FAULT at byte 12: a report ID must be 1 to 255\n"))
      << outcome.out;
  EXPECT_NE(outcome.out.find("Class: sensitive ("), std::string::npos) << outcome.out;
}

TEST_F(DescriptorVerbTest, AKeyboardIsSensitiveAndSaysWhy) {
  const Outcome outcome =
      describe({file("05 01 09 06 a1 01 85 01 05 07 19 e0 29 e7 25 01 75 01 95 08 81 02 c0"
                     "05 01 09 04 a1 01 85 02 09 30 25 7f 75 08 95 01 81 06 c0")});
  EXPECT_NE(outcome.out.find("Class: sensitive (a keyboard: collection Keyboard (01:06)); harmless "
                             "reports: 2\n"),
            std::string::npos)
      << outcome.out;
}

TEST_F(DescriptorVerbTest, AProgramGetsTheSameAsJson) {
  const Outcome outcome = describe({file(kTiny + " 09 31"), "--json"});
  const auto document = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(document["bytes"], 19);
  EXPECT_EQ(document["class"], "ordinary");
  EXPECT_EQ(document["reports"][0]["bytes"], 1);
  EXPECT_EQ(document["faults"][0]["offset"], 17);
  EXPECT_EQ(document["faults"][0]["fatal"], false);
  const auto& collection = document["items"][0];
  EXPECT_EQ(collection["collection"], "application");
  const auto& field = collection["items"][0];
  EXPECT_EQ(field["offset"], 14);
  EXPECT_EQ(field["logicalMinimum"], -127);
  EXPECT_EQ(field["usages"][0]["name"], "X");
  EXPECT_TRUE(field["unit"].is_null());
  EXPECT_TRUE(field["relative"]);
}

TEST_F(DescriptorVerbTest, UnitsAreInTheJsonToo) {
  const Outcome outcome =
      describe({file("a1 01 05 01 09 30 25 64 45 0a 65 11 55 0f 75 08 95 01 81 02 c0"), "--json"});
  const auto field = nlohmann::json::parse(outcome.out)["items"][0]["items"][0];
  EXPECT_EQ(field["unit"]["name"], "cm");
  EXPECT_EQ(field["unit"]["system"], "SI linear");
  EXPECT_EQ(field["unit"]["exponent"], -1);
  EXPECT_EQ(field["valuesPerUnit"], 100.0);
}

TEST_F(DescriptorVerbTest, WhatHoldsNoDescriptorIsRefused) {
  const std::string empty = file("");
  EXPECT_TRUE(isRefusal(describe({empty}), 1, empty + ": holds no descriptor"));
  const std::string missing = directory_.path() / "missing";
  EXPECT_TRUE(
      isRefusal(describe({missing}), 1, missing + ": cannot be read: No such file or directory"));
}

}  // namespace
}  // namespace tool
