// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "platform/foundation/NSURL.h"
#include "tests/unit/foundation/PropertyListSamples.h"

namespace platform {
namespace {

using namespace samples;

constexpr auto kFormats = {NSPropertyListFormat::XML, NSPropertyListFormat::Binary};
constexpr std::string_view kRefusal = "NSCocoaErrorDomain 3851: Cannot write the property list: ";

void expectRoundTrip(const Object& object) {
  for (const auto format : kFormats) {
    const auto reading = read(written(object, format));
    ASSERT_NE(reading.object, nullptr)
        << reading.error << " of " << object->description().substr(0, 200);
    EXPECT_EQ(reading.format, format);
    EXPECT_TRUE(reading.object->isEqual(object)) << object->description().substr(0, 200);
  }
}

TEST(WritingPropertyLists, EveryEdgeValueComesBackFromBothEncodings) {
  for (const auto& value : edgeValues()) expectRoundTrip(value);
}

TEST(WritingPropertyLists, EverythingAtOnceComesBack) {
  expectRoundTrip(nestedCopies(edgeValues()));
}

TEST(WritingPropertyLists, KeepsTheKindOfANumber) {
  for (const auto format : kFormats) {
    const auto kindOf = [&](const Object& object) {
      return objectCast<NSNumber>(read(written(object, format)).object)->value().index();
    };
    EXPECT_EQ(kindOf(NSNumber::numberWithBool(true)), 0U);
    EXPECT_EQ(kindOf(integer(1)), 1U);
    EXPECT_EQ(kindOf(integer(-1)), 1U);
    EXPECT_EQ(kindOf(natural(std::uint64_t{1} << 63)), 2U);
    EXPECT_EQ(kindOf(real(1)), 3U);
  }
}

TEST(WritingPropertyLists, NumbersThatAreNotFiniteComeBack) {
  expectRoundTrip(array({real(std::numeric_limits<double>::infinity()),
                         real(-std::numeric_limits<double>::infinity()),
                         real(std::numeric_limits<double>::quiet_NaN())}));
}

TEST(WritingPropertyLists, WritesTheXMLThatPeopleRead) {
  const auto object = dictionary({{str("a<b"), array({integer(-1), real(0.5), str("\r")})},
                                  {str("empty"), dictionary({})},
                                  {str("d"), dataOf("\1\2\3\4")},
                                  {str("t"), date(0.75)},
                                  {str("f"), NSNumber::numberWithBool(false)}});
  EXPECT_EQ(written(object, NSPropertyListFormat::XML),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>a&lt;b</key>\n"
            "\t<array>\n"
            "\t\t<integer>-1</integer>\n"
            "\t\t<real>0.5</real>\n"
            "\t\t<string>&#13;</string>\n"
            "\t</array>\n"
            "\t<key>empty</key>\n"
            "\t<dict/>\n"
            "\t<key>d</key>\n"
            "\t<data>AQIDBA==</data>\n"
            "\t<key>t</key>\n"
            "\t<date>2001-01-01T00:00:00Z</date>\n"
            "\t<key>f</key>\n"
            "\t<false/>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(WritingPropertyLists, BinaryKeepsFractionsAndControlCharacters) {
  const auto object = array({date(0.75), str(std::string_view("\0\x01", 2))});
  EXPECT_TRUE(read(written(object, NSPropertyListFormat::Binary)).object->isEqual(object));
  EXPECT_EQ(written(str("\x01"), NSPropertyListFormat::XML),
            std::string(kRefusal) + "a string with a character that XML does not allow");
}

TEST(WritingPropertyLists, BinaryWritesAStringOnce) {
  const auto once = written(array({str("a long string, said once")}), NSPropertyListFormat::Binary);
  const auto thrice =
      written(array({str("a long string, said once"), str("a long string, said once"),
                     str("a long string, said once")}),
              NSPropertyListFormat::Binary);
  EXPECT_EQ(thrice.size(), once.size() + 2);
}

TEST(WritingPropertyLists, RefusesWhatNoListHoldsAndSaysWhat) {
  for (const auto format : kFormats) {
    EXPECT_EQ(written(nullptr, format), std::string(kRefusal) + "no object");
    EXPECT_EQ(written(array({NSURL::URLWithString(str("a:b"))}), format),
              std::string(kRefusal) + "an object of class NSURL");
    EXPECT_EQ(written(dictionary({{integer(1), str("a")}}), format),
              std::string(kRefusal) + "a dictionary key that is not a string");
    EXPECT_EQ(written(date(1e300), format), std::string(kRefusal) + "a date out of range");
    EXPECT_EQ(written(date(std::numeric_limits<double>::quiet_NaN()), format),
              std::string(kRefusal) + "a date out of range");
    EXPECT_EQ(
        NSPropertyListSerialization::dataWithPropertyList_format_error(nullptr, format, nullptr),
        nullptr);
  }
}

/// Represents 2^20 − 1 objects.
Object doubledNineteenTimes() {
  Object object = NSNumber::numberWithBool(true);
  for (int i = 0; i < 19; ++i) object = array({object, object});
  return object;
}

TEST(WritingPropertyLists, WritesTheLastObjectThatFits) {
  const auto most = array({doubledNineteenTimes()});
  const auto more = array({doubledNineteenTimes(), NSNumber::numberWithBool(true)});
  for (const auto format : kFormats) {
    EXPECT_FALSE(written(most, format).starts_with(kRefusal));
    EXPECT_EQ(written(more, format), std::string(kRefusal) + "too many objects");
  }
}

TEST(WritingPropertyLists, NestsAsDeepAsItReadsAgain) {
  for (const auto format : kFormats) {
    EXPECT_NE(read(written(nested(512), format)).object, nullptr);
    EXPECT_EQ(written(nested(513), format), std::string(kRefusal) + "nested too deeply");
  }
}

TEST(WritingPropertyLists, NestsDictionariesAsDeep) {
  const auto nestedDictionaries = [](std::size_t depth) {
    Object object = dictionary({});
    for (std::size_t i = 1; i < depth; ++i) object = dictionary({{str("k"), object}});
    return object;
  };
  for (const auto format : kFormats) {
    EXPECT_NE(read(written(nestedDictionaries(512), format)).object, nullptr);
    EXPECT_EQ(written(nestedDictionaries(513), format),
              std::string(kRefusal) + "nested too deeply");
  }
}

TEST(WritingPropertyLists, BinaryHasTheBytesOfTheFormat) {
  using namespace std::string_view_literals;
  const auto object = dictionary({{str("a"), array({integer(1), str("ä")})}, {str("b"), str("a")}});
  EXPECT_EQ(written(object, NSPropertyListFormat::Binary),
            "bplist00"
            "\xD2\x01\x02\x03\x01"  // 8: a dictionary of two, keys 1 and 2, values 3 and 1
            "\x51"
            "a"  // 13
            "\x51"
            "b"             // 15
            "\xA2\x04\x05"  // 17: an array of 4 and 5
            "\x10\x01"      // 20
            "\x61\x00\xE4"  // 22
            "\x08\x0D\x0F\x11\x14\x16"
            "\0\0\0\0\0\0\x01\x01"
            "\0\0\0\0\0\0\0\x06"
            "\0\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\x19"sv);
}

/// The encoding of one object, between the magic and the offset table.
std::string binaryBody(const Object& object) {
  const std::string bytes = written(object, NSPropertyListFormat::Binary);
  const auto table = static_cast<unsigned char>(bytes.back());
  return bytes.substr(8, table - std::size_t{8});
}

TEST(WritingPropertyLists, BinaryTakesTheNarrowestWidth) {
  using namespace std::string_view_literals;
  EXPECT_EQ(binaryBody(integer(0)), "\x10\0"sv);
  EXPECT_EQ(binaryBody(integer(255)), "\x10\xFF"sv);
  EXPECT_EQ(binaryBody(integer(256)), "\x11\x01\0"sv);
  EXPECT_EQ(binaryBody(integer(65535)), "\x11\xFF\xFF"sv);
  EXPECT_EQ(binaryBody(integer(65536)), "\x12\0\x01\0\0"sv);
  EXPECT_EQ(binaryBody(integer(4294967295)), "\x12\xFF\xFF\xFF\xFF"sv);
  EXPECT_EQ(binaryBody(integer(4294967296)), "\x13\0\0\0\x01\0\0\0\0"sv);
  EXPECT_EQ(binaryBody(integer(-1)), "\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv);
  EXPECT_EQ(binaryBody(natural(5)), "\x10\x05"sv);
  EXPECT_EQ(binaryBody(natural(std::uint64_t{1} << 63)),
            "\x14\0\0\0\0\0\0\0\0\x80\0\0\0\0\0\0\0"sv);
  EXPECT_EQ(binaryBody(real(1)), "\x23\x3F\xF0\0\0\0\0\0\0"sv);
  EXPECT_EQ(binaryBody(date(1)), "\x33\x3F\xF0\0\0\0\0\0\0"sv);
  EXPECT_EQ(binaryBody(NSNumber::numberWithBool(false)), "\x08"sv);
  EXPECT_EQ(binaryBody(NSNumber::numberWithBool(true)), "\x09"sv);
  EXPECT_EQ(binaryBody(str("fourteen chars")),
            "\x5E"
            "fourteen chars"sv);
  EXPECT_EQ(binaryBody(str("fifteen chars..")),
            "\x5F\x10\x0F"
            "fifteen chars.."sv);
  EXPECT_EQ(binaryBody(str("\x7F")), "\x51\x7F"sv);
  EXPECT_EQ(binaryBody(str("\u0080")), "\x61\0\x80"sv);
}

// 256 objects have the numbers 0 to 255, which need one byte; one more needs two. The same applies
// to offsets: the last object's, or the table's, may be the first that one byte cannot hold.
TEST(WritingPropertyLists, BinaryReferencesAndOffsetsAreAsWideAsTheLastOne) {
  const auto widths = [](const Object& object) {
    const std::string bytes = written(object, NSPropertyListFormat::Binary);
    return std::pair(int{bytes[bytes.size() - 26]}, int{bytes[bytes.size() - 25]});
  };
  EXPECT_EQ(widths(array(std::vector<Object>(255, integer(1)))).second, 1);
  EXPECT_EQ(widths(array(std::vector<Object>(256, integer(1)))).second, 2);
  EXPECT_EQ(widths(dataOf(std::string(244, 'x'))).first, 1) << "the table lies at 255";
  EXPECT_EQ(widths(dataOf(std::string(245, 'x'))).first, 2) << "the table lies at 256";
}

TEST(WritingPropertyLists, DatesOfTheYears0To9999AreWritten) {
  for (const auto format : kFormats) {
    EXPECT_FALSE(written(date(-63145526400), format).starts_with(kRefusal));
    EXPECT_EQ(written(date(-63145526401), format), std::string(kRefusal) + "a date out of range");
    EXPECT_FALSE(written(date(252423993599.5), format).starts_with(kRefusal));
    EXPECT_EQ(written(date(252423993600), format), std::string(kRefusal) + "a date out of range");
  }
  EXPECT_TRUE(read(written(date(-0.5), NSPropertyListFormat::XML)).object->isEqual(date(-1)))
      << "a fraction is cut off towards the past";
}

TEST(WritingPropertyLists, AnArrayThatContainsItselfIsNestedTooDeeply) {
  const auto array = NSMutableArray::array();
  array->addObject(array);
  for (const auto format : kFormats) {
    EXPECT_EQ(written(array, format), std::string(kRefusal) + "nested too deeply");
  }
  array->removeObjectAtIndex(0);
}

}  // namespace
}  // namespace platform
