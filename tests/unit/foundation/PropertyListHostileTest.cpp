// SPDX-License-Identifier: Apache-2.0

// Property lists designed to crash, hang or bloat their reader.
#include <gtest/gtest.h>

#include "tests/unit/foundation/PropertyListSamples.h"

namespace platform {
namespace {

using namespace samples;

/// Reads the bytes and walks the result in every possible way.
void survive(const std::string& bytes) {
  const auto reading = read(bytes);
  ASSERT_EQ(reading.object == nullptr, !reading.error.empty());
  if (!reading.object) return;
  ASSERT_TRUE(reading.object->isEqual(reading.object));
  (void)reading.object->description();
}

Object sample() {
  return dictionary(
      {{str("CFBundleVersion"), str("1.0.17")},
       {str("list"),
        array({integer(-5), natural(std::uint64_t{1} << 63), real(0.5), str("ä😀"), array({})})},
       {str("more"), dictionary({{str("data"), dataOf("\1\2\3")}, {str("date"), date(5)}})},
       {str("flag"), NSNumber::numberWithBool(true)}});
}

class Hostile : public testing::TestWithParam<NSPropertyListFormat> {
 protected:
  const std::string good_ = written(sample(), GetParam());
};

TEST_P(Hostile, CutOffAtEveryByteItIsRefused) {
  const std::size_t end = GetParam() == NSPropertyListFormat::XML
                              ? good_.size() - 1
                              : good_.size();  // less its line feed
  for (std::size_t length = 0; length < end; ++length) {
    const auto reading = read(good_.substr(0, length));
    ASSERT_EQ(reading.object, nullptr) << length;
    ASSERT_NE(reading.error, "");
  }
  EXPECT_NE(read(good_).object, nullptr);
}

TEST_P(Hostile, WithAnyBitFlippedItIsReadOrRefused) {
  for (std::size_t bit = 0; bit < good_.size() * 8; ++bit) {
    std::string bytes = good_;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
    survive(bytes);
  }
}

TEST_P(Hostile, WithAnyByteReplacedByAnExtremeItIsReadOrRefused) {
  for (std::size_t place = 0; place < good_.size(); ++place) {
    for (const char byte : {'\0', '\x7F', '\xFF', '<', '>', '&', '\xA1', '\xD1', '\x4F'}) {
      std::string bytes = good_;
      bytes[place] = byte;
      survive(bytes);
    }
  }
}

TEST_P(Hostile, WithAnyByteMissingOrDoubledItIsReadOrRefused) {
  for (std::size_t place = 0; place < good_.size(); ++place) {
    survive(std::string(good_).erase(place, 1));
    survive(std::string(good_).insert(place, 1, good_[place]));
  }
}

INSTANTIATE_TEST_SUITE_P(PropertyLists, Hostile,
                         testing::Values(NSPropertyListFormat::XML, NSPropertyListFormat::Binary),
                         [](const auto& name) {
                           return name.param == NSPropertyListFormat::XML ? "XML" : "Binary";
                         });

std::string repeated(std::string_view text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

TEST(HostileXML, NestingHasABound) {
  const auto nestedText = [](std::size_t depth) {
    return repeated("<array>", depth) + repeated("</array>", depth);
  };
  EXPECT_NE(readXML(nestedText(512)).object, nullptr);
  EXPECT_EQ(readXML(nestedText(513)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
  EXPECT_EQ(readXML(nestedText(1'000'000)).object, nullptr);
  EXPECT_EQ(readXML(repeated("<dict><key/>", 1'000'000)).object, nullptr);
}

TEST(HostileXML, NestingOfDictionariesHasTheSameBound) {
  const auto nestedText = [](std::size_t depth) {
    return repeated("<dict><key/>", depth - 1) + "<dict/>" + repeated("</dict>", depth - 1);
  };
  EXPECT_NE(readXML(nestedText(512)).object, nullptr);
  EXPECT_EQ(readXML(nestedText(513)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
}

TEST(HostileXML, SiblingsAreNoNesting) {
  const auto reading = readXML("<array>" + repeated("<dict /><array />", 5000) + "</array>");
  ASSERT_NE(reading.object, nullptr) << reading.error;
  EXPECT_EQ(objectCast<NSArray>(reading.object)->count(), 10000U);
}

// Something that only looks like an end tag must not permit deeper nesting.
TEST(HostileXML, DeclarationsAmongElementsHideNoNesting) {
  for (const char* const hidden : {"<!DOCTYPE x [</array>]>", "<!DOCTYPE \"</array>\">",
                                   "<!-- </array> -->", "<?x </array>?>"}) {
    const auto reading =
        readXML(repeated("<array>" + std::string(hidden), 200'000) + repeated("</array>", 200'000));
    EXPECT_EQ(reading.object, nullptr) << hidden;
  }
}

TEST(HostileXML, ManyUnfinishedReferencesAreRefusedInLinearTime) {
  EXPECT_EQ(readXML("<string>" + repeated("&", 1'000'000) + ";</string>").object, nullptr);
  EXPECT_EQ(readXML("<array>" + repeated("<!--", 1'000'000)).object, nullptr);
}

/// A binary list of object bodies, with two-byte references and offsets; the first object is the
/// top.
std::string binaryOf(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string table;
  for (const auto& object : objects) {
    table += static_cast<char>(bytes.size() >> 8);
    table += static_cast<char>(bytes.size() & 0xFF);
    bytes += object;
  }
  const auto number = [](std::size_t value) {
    std::string text;
    for (int shift = 56; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xFF);
    return text;
  };
  const std::size_t start = bytes.size();
  return bytes + table + std::string(6, '\0') + "\x02\x02" + number(objects.size()) + number(0) +
         number(start);
}

std::string reference(std::size_t object) {
  return {static_cast<char>(object >> 8), static_cast<char>(object & 0xFF)};
}

TEST(HostileBinary, CyclesAreRefused) {
  EXPECT_EQ(read(binaryOf({"\xA1" + reference(1), "\xA1" + reference(0)})).error,
            "NSCocoaErrorDomain 3840: Not a property list: an object that contains itself");
  EXPECT_EQ(
      read(binaryOf({"\xA2" + reference(2) + reference(1), "\xD1" + reference(2) + reference(0),
                     "\x51"
                     "k"}))
          .error,
      "NSCocoaErrorDomain 3840: Not a property list: an object that contains itself");
}

std::string chain(std::size_t length) {
  std::vector<std::string> objects;
  for (std::size_t i = 1; i < length; ++i) objects.push_back("\xA1" + reference(i));
  objects.emplace_back("\xA0");
  return binaryOf(objects);
}

TEST(HostileBinary, NestingHasABound) {
  EXPECT_NE(read(chain(512)).object, nullptr);
  EXPECT_EQ(read(chain(513)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
  EXPECT_EQ(read(chain(10'000)).object, nullptr);
}

TEST(HostileBinary, NestingOfDictionariesHasTheSameBound) {
  const auto chainOfDictionaries = [](std::size_t length) {
    std::vector<std::string> objects;
    for (std::size_t i = 1; i < length; ++i)
      objects.push_back("\xD1" + reference(length) + reference(i));
    objects.emplace_back("\xD0");
    objects.emplace_back("\x50");
    return binaryOf(objects);
  };
  EXPECT_NE(read(chainOfDictionaries(512)).object, nullptr);
  EXPECT_EQ(read(chainOfDictionaries(513)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
}

// 256 containers around a value of height 256, or 257 around it.
TEST(HostileBinary, WhatIsSharedMayReachTheBoundAndNoFurther) {
  const auto list = [](std::size_t above) {
    std::vector<std::string> objects{"\xA2" + reference(1000) + reference(1)};
    for (std::size_t i = 1; i < above - 1; ++i) objects.push_back("\xA1" + reference(i + 1));
    objects.push_back("\xA1" + reference(1000));
    while (objects.size() < 1000) objects.emplace_back("\x09");
    for (std::size_t i = 1000; i < 1255; ++i) objects.push_back("\xA1" + reference(i + 1));
    objects.emplace_back("\xA0");
    return binaryOf(objects);
  };
  EXPECT_NE(read(list(256)).object, nullptr);
  EXPECT_EQ(read(list(257)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
}

// The chain is first referenced near the top, where it fits, and then again from deeper down, where
// it does not.
TEST(HostileBinary, SharingDoesNotGetAroundTheBoundOnNesting) {
  std::vector<std::string> objects{"\xA2" + reference(301) + reference(1)};
  for (std::size_t i = 1; i <= 600; ++i)
    objects.push_back(i == 600 ? "\xA0" : "\xA1" + reference(i + 1));
  EXPECT_EQ(read(binaryOf(objects)).error,
            "NSCocoaErrorDomain 3840: Not a property list: nested too deeply");
}

std::string doubling(std::size_t levels) {
  std::vector<std::string> objects;
  for (std::size_t i = 1; i <= levels; ++i) objects.push_back("\xA2" + reference(i) + reference(i));
  objects.emplace_back("\x09");
  return binaryOf(objects);
}

TEST(HostileBinary, SharedReferencesCountAsOftenAsTheyAreMade) {
  EXPECT_NE(read(doubling(18)).object, nullptr);
  EXPECT_EQ(read(doubling(20)).error,
            "NSCocoaErrorDomain 3840: Not a property list: too many objects");
  EXPECT_EQ(read(doubling(64)).error,
            "NSCocoaErrorDomain 3840: Not a property list: too many objects");
  EXPECT_EQ(read(doubling(400)).error,
            "NSCocoaErrorDomain 3840: Not a property list: too many objects");
}

// Nineteen doublings represent 2^20 − 1 objects.
TEST(HostileBinary, TheLastObjectThatFitsIsRead) {
  const auto list = [](const std::string& root) {
    std::vector<std::string> objects{root};
    for (std::size_t i = 2; i <= 20; ++i) objects.push_back("\xA2" + reference(i) + reference(i));
    objects.emplace_back("\x09");
    return binaryOf(objects);
  };
  EXPECT_NE(read(list("\xA1" + reference(1))).object, nullptr);
  EXPECT_EQ(read(list("\xA2" + reference(1) + reference(20))).error,
            "NSCocoaErrorDomain 3840: Not a property list: too many objects");
}

TEST(HostileBinary, ACountBeyondTheDataAllocatesNothing) {
  EXPECT_EQ(read(binaryOf({"\xAF\x13\x7F" + std::string(7, '\xFF')})).object, nullptr);
  EXPECT_EQ(read(binaryOf({"\xDF\x13\x40" + std::string(7, '\0')})).object, nullptr);
}

TEST(HostileBinary, FiftyThousandKeysAreReadInTime) {
  std::vector<NSDictionary::Entry> entries;
  for (int i = 0; i < 50'000; ++i) entries.emplace_back(str(std::to_string(i)), integer(i));
  const auto object = dictionary(std::move(entries));
  EXPECT_TRUE(read(written(object, NSPropertyListFormat::Binary)).object->isEqual(object));
}

}  // namespace
}  // namespace platform
