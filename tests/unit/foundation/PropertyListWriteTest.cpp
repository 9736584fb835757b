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
              std::string(kRefusal) + "an object of the class NSURL");
    EXPECT_EQ(written(dictionary({{integer(1), str("a")}}), format),
              std::string(kRefusal) + "a dictionary key that is no string");
    EXPECT_EQ(written(date(1e300), format), std::string(kRefusal) + "a date out of range");
    EXPECT_EQ(written(date(std::numeric_limits<double>::quiet_NaN()), format),
              std::string(kRefusal) + "a date out of range");
    EXPECT_EQ(
        NSPropertyListSerialization::dataWithPropertyList_format_error(nullptr, format, nullptr),
        nullptr);
  }
}

/// Stands for 2^20 − 1 objects.
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
