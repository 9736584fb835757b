// SPDX-License-Identifier: Apache-2.0

#include "router/policy/DeviceClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <map>

#include "DeviceClassCases.h"
#include "router/policy/ClassRules.h"
#include "tests/support/SensitiveReports.h"
#include "tests/support/WholeRecording.h"

namespace {

namespace fs = std::filesystem;
using router::Classification;
using router::ClassRule;
using router::DeviceClass;
using router::DeviceFacts;

DeviceFacts factsOf(const std::string& hex) {
  DeviceFacts facts;
  facts.reportDescriptor = bytes(hex);
  return facts;
}

Classification classOf(const std::string& hex) {
  return router::classify(factsOf(hex));
}

fs::path sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");  // NOLINT(concurrency-mt-unsafe)
  return directory != nullptr ? fs::path(directory) : fs::path(".");
}

fs::path collection() {
  return fs::weakly_canonical(sourceDirectory() / ".." / "shared");
}

std::vector<std::uint8_t> descriptorIn(const fs::path& file) {
  if (file.extension() == ".hid") return test::readRecording(file).header.reportDescriptor;
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
  return {text.begin(), text.end()};
}

/// That nothing is called ordinary which the plain walk finds sensitive.
void expectNoSensitiveReportIn(const Classification& found,
                               const std::vector<std::uint8_t>& descriptor) {
  const test::SensitiveReports sensitive = test::sensitiveReports(descriptor);
  if (found.deviceClass == DeviceClass::Ordinary) {
    EXPECT_FALSE(sensitive.isAnything);
  }
  for (const std::uint8_t report : sensitive.reports)
    EXPECT_FALSE(found.ordinaryReports.contains(report)) << "report " << int{report};
}

TEST(DeviceClass, OfEveryListedDeviceIsTheListedOne) {
  const std::vector<DeviceClassCase> cases = deviceClassCases();
  EXPECT_GT(cases.size(), 100U);
  for (const DeviceClassCase& listed : cases) {
    SCOPED_TRACE(listed.name);
    const Classification found = router::classify(listed.facts);
    EXPECT_EQ(found.deviceClass, listed.expected.deviceClass);
    EXPECT_EQ(found.reason, listed.expected.reason);
    EXPECT_EQ(found.ordinaryReports, listed.expected.ordinaryReports);
    if (!listed.facts.decided) expectNoSensitiveReportIn(found, listed.facts.reportDescriptor);
  }
}

bool decides(const ClassRule& rule, const std::string& reason) {
  return reason == rule.words || reason.starts_with(std::string(rule.words) + ": ");
}

TEST(ClassRules, EachDecidesTheClassOfAListedDevice) {
  const std::vector<DeviceClassCase> cases = deviceClassCases();
  for (const ClassRule& rule : router::classRules()) {
    EXPECT_TRUE(std::ranges::any_of(cases, [&](const DeviceClassCase& listed) {
      return decides(rule, router::classify(listed.facts).reason);
    })) << rule.words;
  }
}

TEST(ClassRules, StandInTheDocumentationInTheirOrder) {
  std::ifstream in(sourceDirectory() / "docs/security-model.md");
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t last = 0;
  for (const ClassRule& rule : router::classRules()) {
    const std::size_t at = text.find("\n| " + std::string(rule.words) + " | ");
    ASSERT_NE(at, std::string::npos) << rule.words;
    EXPECT_GT(at, last) << rule.words;
    last = at;
  }
}

TEST(ClassRules, HaveWordsOfTheirOwnAndUsagesInOrder) {
  std::set<std::string_view> words;
  for (const ClassRule& rule : router::classRules()) {
    EXPECT_TRUE(words.insert(rule.words).second) << rule.words;
    for (std::size_t i = 0; i < rule.usages.size(); ++i) {
      EXPECT_LE(rule.usages[i].first, rule.usages[i].last) << rule.words;
      if (i > 0) {
        EXPECT_LT(rule.usages[i - 1].last, rule.usages[i].first) << rule.words;
      }
    }
  }
}

std::string hex(std::uint32_t value) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), " %02x", value & 0xffU);
  return text.data();
}

/// A four-byte Usage item.
std::string extendedUsage(std::uint32_t usage) {
  return " 0b" + hex(usage) + hex(usage >> 8U) + hex(usage >> 16U) + hex(usage >> 24U);
}

DeviceClass classOfUsage(std::uint32_t usage) {
  return classOf("05 0c 09 01 a1 01 15 00 25 01 75 08 95 01" + extendedUsage(usage) + " 81 02 c0")
      .deviceClass;
}

TEST(ClassRules, ReachToTheFirstAndTheLastOfTheirUsages) {
  const std::map<std::uint32_t, bool> isSensitive = {
      {0x00010001, true},  {0x00010002, true},  {0x00010003, false}, {0x00010005, false},
      {0x00010006, true},  {0x00010007, true},  {0x00010008, false}, {0x0001007f, false},
      {0x00010080, true},  {0x00010081, true},  {0x0001008f, true},  {0x00010090, false},
      {0x00010096, false}, {0x00010097, true},  {0x000100b7, true},  {0x000100b8, false},
      {0x0006ffff, false}, {0x00070000, true},  {0x0007ffff, true},  {0x00080001, false},
      {0x00120001, false}, {0x00130001, true},  {0x00140001, false}, {0x00150001, true},
      {0x001f0001, true},  {0x00200001, false}, {0x00210001, true},  {0x003f0001, true},
      {0x00400001, false}, {0x00410001, false}, {0x00420001, true},  {0x00580001, true},
      {0x00590001, false}, {0x005a0001, true},  {0x007f0001, true},  {0x00800001, false},
      {0x00820001, false}, {0x00830001, true},  {0x00840001, false}, {0x00850001, false},
      {0x00860001, true},  {0x008b0001, true},  {0x008c0001, false}, {0x008e0001, false},
      {0x008f0001, true},  {0x00900001, false}, {0x00920001, false}, {0x00930001, true},
      {0xf1cf0001, true},  {0xf1d00000, true},  {0xf1d0ffff, true},  {0xf1d10001, true},
      {0xfeff0001, true},  {0xff000001, false}, {0xffff0001, false}};
  for (const auto& [usage, sensitive] : isSensitive)
    EXPECT_EQ(classOfUsage(usage) == DeviceClass::Sensitive, sensitive) << std::hex << usage;
}

TEST(DeviceClass, BesideAKeyboardEveryVendorPageIsSensitive) {
  for (const char* page : {"06 00 ff", "06 ff ff"}) {
    DeviceFacts facts = factsOf(std::string(page) +
                                " 09 01 a1 01 09 01 15 00 25 01 75 08 95 01"
                                " 81 02 c0");
    EXPECT_EQ(router::classify(facts).deviceClass, DeviceClass::Ordinary) << page;
    facts.isBesideKeyboard = true;
    EXPECT_EQ(router::classify(facts).deviceClass, DeviceClass::Sensitive) << page;
  }
  DeviceFacts facts = factsOf("05 0c 09 01 a1 01 09 e9 15 00 25 01 75 08 95 01 81 02 c0");
  facts.isBesideKeyboard = true;
  EXPECT_EQ(router::classify(facts).deviceClass, DeviceClass::Ordinary);
}

TEST(DeviceClass, AVendorsReportIsSensitiveBesideAKeyboardOfAnyKind) {
  const std::string keyboard = "05 01 09 06 a1 01 85 01 05 07 19 e0 29 e7 15 00 25 01 75 01 95 08";
  const std::string rest =
      " 81 02 c0 06 00 ff 09 01 a1 01 85 02 09 01 75 08 95 08 81 02 c0"
      " 05 0c 09 01 a1 01 85 03 09 e9 95 01 81 02 c0";
  EXPECT_EQ(classOf(keyboard + rest).ordinaryReports, std::set<std::uint8_t>{3});
  // Keys alone, a keypad alone and a system that sees a keyboard say the same.
  const std::string keys = "05 0c 09 01 a1 01 85 01 05 07 09 04 15 00 25 01 75 01 95 08";
  EXPECT_EQ(classOf(keys + rest).ordinaryReports, std::set<std::uint8_t>{3});
  const std::string keypad = "05 01 09 07 a1 01 85 01 05 09 09 01 15 00 25 01 75 01 95 08";
  EXPECT_EQ(classOf(keypad + rest).ordinaryReports, std::set<std::uint8_t>{3});
  // A mouse is no keyboard.
  const std::string mouse = "05 01 09 02 a1 01 85 01 05 09 09 01 15 00 25 01 75 01 95 08";
  EXPECT_EQ(classOf(mouse + rest).ordinaryReports, (std::set<std::uint8_t>{2, 3}));
  for (bool DeviceFacts::*fact : {&DeviceFacts::isBesideKeyboard, &DeviceFacts::hasKeyboardNode}) {
    DeviceFacts facts = factsOf(keys + rest);
    facts.*fact = true;
    EXPECT_EQ(router::classify(facts).ordinaryReports, std::set<std::uint8_t>{3});
  }
  DeviceFacts facts = factsOf(mouse + rest);
  facts.isBesideKeyboard = true;
  EXPECT_EQ(router::classify(facts).ordinaryReports, std::set<std::uint8_t>{3});
}

TEST(DeviceClass, ASensitiveCollectionCountsAtTheDeepestPlace) {
  std::string hex = "05 01 09 05 a1 01";
  for (int i = 0; i < 62; ++i) hex += " a1 02";
  hex += " 09 06 a1 01 05 09 09 01 15 00 25 01 75 08 95 01 81 02";
  for (int i = 0; i < 64; ++i) hex += " c0";
  EXPECT_EQ(classOf(hex).reason, "a keyboard: collection Keyboard (01:06)");
}

TEST(DeviceClass, EverythingInASensitiveCollectionIsSensitive) {
  // Two ordinary collections in a keyboard, then one beside it.
  const Classification found = classOf(
      "05 01 09 06 a1 01 05 0d 09 02 a1 01 09 20 a1 00 85 05 09 42 15 00 25 01 75 08 95 01 81 02"
      " c0 c0 c0 05 01 09 05 a1 01 85 06 05 09 09 01 81 02 c0");
  EXPECT_EQ(found.ordinaryReports, std::set<std::uint8_t>{6});
}

TEST(DeviceClass, TooMuchToReadIsSensitive) {
  DeviceFacts facts;
  facts.reportDescriptor.assign(65536, 0xc4);
  EXPECT_EQ(router::classify(facts).reason,
            "its report descriptor cannot be read: offset 65535: the descriptor is longer than "
            "65535 bytes");
  std::string nested = "05 01";
  for (int i = 0; i < 65; ++i) nested += " a1 01";
  EXPECT_THAT(classOf(nested).reason, testing::EndsWith("collections are nested too deeply"));
}

TEST(DeviceClass, OfManyUsagesTheSensitiveOneIsFound) {
  std::string hex = "05 01 09 05 a1 01 05 09";
  for (int i = 0; i < 5000; ++i) hex += " 09 01";
  EXPECT_EQ(classOf(hex + " 15 00 25 01 75 08 95 01 81 02 c0").deviceClass, DeviceClass::Ordinary);
  EXPECT_EQ(classOf(hex + " 0b 04 00 07 00 15 00 25 01 75 08 95 01 81 02 c0").reason,
            "keys: usage 07:04");
}

TEST(DeviceClass, TheAdministratorHasTheLastWord) {
  for (const DeviceClassCase& listed : deviceClassCases()) {
    SCOPED_TRACE(listed.name);
    for (const DeviceClass decided : {DeviceClass::Ordinary, DeviceClass::Sensitive}) {
      DeviceFacts facts = listed.facts;
      facts.decided = decided;
      const Classification found = router::classify(facts);
      EXPECT_EQ(found.deviceClass, decided);
      EXPECT_EQ(found.reason, "decided by the administrator");
      EXPECT_TRUE(found.ordinaryReports.empty());
    }
  }
}

TEST(DeviceClass, NothingBecomesOrdinaryByWhatElseIsKnown) {
  for (const DeviceClassCase& listed : deviceClassCases()) {
    SCOPED_TRACE(listed.name);
    const Classification before = router::classify(listed.facts);
    for (bool DeviceFacts::*fact : {&DeviceFacts::isBootKeyboard, &DeviceFacts::hasKeyboardNode,
                                    &DeviceFacts::isBesideKeyboard}) {
      DeviceFacts facts = listed.facts;
      facts.*fact = true;
      const Classification after = router::classify(facts);
      if (before.deviceClass == DeviceClass::Sensitive) {
        EXPECT_EQ(after.deviceClass, DeviceClass::Sensitive);
        EXPECT_TRUE(std::ranges::includes(before.ordinaryReports, after.ordinaryReports));
      }
    }
  }
}

TEST(DeviceClass, OfEveryDeviceThatBootsAsAKeyboardNothingIsOrdinary) {
  for (const DeviceClassCase& listed : deviceClassCases()) {
    SCOPED_TRACE(listed.name);
    DeviceFacts facts = listed.facts;
    facts.decided.reset();
    facts.isBootKeyboard = true;
    const Classification found = router::classify(facts);
    EXPECT_EQ(found.deviceClass, DeviceClass::Sensitive);
    EXPECT_TRUE(found.ordinaryReports.empty());
  }
}

TEST(DeviceClass, OfTheRepositorysRecordingsIsSensitive) {
  const std::map<std::string, std::string> reasons = {
      {"qemu-usb-kbd.hid", "a keyboard: collection Keyboard (01:06)"},
      {"qemu-usb-mouse.hid", "a mouse: collection Mouse (01:02)"},
      {"qemu-usb-tablet.hid", "a mouse: collection Mouse (01:02)"}};
  for (const auto& [file, reason] : reasons) {
    DeviceFacts facts;
    facts.reportDescriptor = descriptorIn(sourceDirectory() / "recordings" / file);
    EXPECT_EQ(router::classify(facts).reason, reason) << file;
    EXPECT_TRUE(router::classify(facts).ordinaryReports.empty()) << file;
  }
}

/// The collection's index gives the features of each device in words, in the last column.
TEST(DeviceClass, OfTheCollectionsDevicesIsWhatItsIndexSuggests) {
  std::ifstream index(collection() / "recordings" / "INDEX.tsv");
  if (!index) GTEST_SKIP() << "no collection of recordings next to the checkout";
  std::map<bool, std::size_t> devices;
  std::string line;
  std::getline(index, line);  // titles
  while (std::getline(index, line)) {
    const std::string file = line.substr(0, line.find('\t'));
    const std::string features = line.substr(line.rfind('\t'));
    if (!fs::is_regular_file(collection() / file)) continue;
    SCOPED_TRACE(file);
    DeviceFacts facts;
    facts.reportDescriptor = descriptorIn(collection() / file);
    const Classification found = router::classify(facts);
    const bool isSensitive = std::ranges::any_of(
        std::array{"keyboard", "mouse", "pointer"},
        [&](const char* word) { return features.find(word) != std::string::npos; });
    EXPECT_EQ(found.deviceClass == DeviceClass::Sensitive, isSensitive) << found.reason;
    expectNoSensitiveReportIn(found, facts.reportDescriptor);
    ++devices[isSensitive];
  }
  EXPECT_GT(devices[true], 0U);
  EXPECT_GT(devices[false], 0U);
  std::cout << devices[true] << " sensitive and " << devices[false] << " ordinary devices\n";
}

}  // namespace
