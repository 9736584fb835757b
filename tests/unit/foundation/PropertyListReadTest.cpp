// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "tests/unit/foundation/PropertyListSamples.h"

namespace platform {
namespace {

using namespace samples;
using namespace std::string_view_literals;

TEST(XMLPropertyList, ReadsADocumentAsProgramsWriteIt) {
  const auto reading = read(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<!-- by hand -->
<plist version="1.0">
<dict>
	<key>CFBundleVersion</key>
	<string>1.2.3</string>
	<key>MachServices</key>
	<dict>
		<key>com.example.router</key>
		<true/>
	</dict>
	<key>ProgramArguments</key>
	<array>
		<string>/a</string>
		<string>-x &amp; &lt;y&gt;</string>
	</array>
	<key>Numbers</key>
	<array><integer>-5</integer><integer>0x1F</integer><integer> +7 </integer><real>2.5e3</real><real>-inf</real></array>
	<key>Icon</key>
	<data>
	AQID
	BA==
	</data>
	<key>When</key>
	<date>2026-11-21T04:01:39Z</date>
</dict>
</plist>
)");
  ASSERT_NE(reading.object, nullptr) << reading.error;
  EXPECT_EQ(reading.error, "");
  EXPECT_EQ(reading.format, NSPropertyListFormat::XML);
  EXPECT_TRUE(reading.object->isEqual(
      dictionary({{str("CFBundleVersion"), str("1.2.3")},
                  {str("MachServices"),
                   dictionary({{str("com.example.router"), NSNumber::numberWithBool(true)}})},
                  {str("ProgramArguments"), array({str("/a"), str("-x & <y>")})},
                  {str("Numbers"), array({integer(-5), integer(31), integer(7), real(2500),
                                          real(-std::numeric_limits<double>::infinity())})},
                  {str("Icon"), dataOf("\1\2\3\4")},
                  {str("When"), date(816926499)}})))
      << reading.object->description();
}

TEST(XMLPropertyList, ReadsTheFormsThatMeanTheSame) {
  const auto reads = [](std::string_view inside, const Object& expected) {
    const auto reading = readXML(inside);
    ASSERT_NE(reading.object, nullptr) << inside << ": " << reading.error;
    EXPECT_TRUE(reading.object->isEqual(expected))
        << inside << " gave " << reading.object->description();
  };
  reads("<string/>", str(""));
  reads("<string></string>", str(""));
  reads("<string a='>' >x</string  >", str("x"));
  reads("<string>a<!-- b -->c<?d e?>f</string>", str("acf"));
  reads("<string><![CDATA[<&>]]>]]&gt;</string>", str("<&>]]>"));
  reads("<string>&#65;&#x42;&#x1F600;&quot;&apos;</string>", str("AB😀\"'"));
  reads("<string> \n\t </string>", str(" \n\t "));
  reads("<array /><!-- end -->", array({}));
  reads("<dict></dict>", dictionary({}));
  reads("<true></true>", NSNumber::numberWithBool(true));
  reads("<data/>", dataOf(""));
  reads("<?skip this?><!-- and this --><false/>", NSNumber::numberWithBool(false));
  reads("<integer>-9223372036854775808</integer>",
        integer(std::numeric_limits<std::int64_t>::min()));
  reads("<integer>-0x10</integer>", integer(-16));
  reads("<integer>18446744073709551615</integer>",
        natural(std::numeric_limits<std::uint64_t>::max()));
  reads("<real>+infinity</real>", real(std::numeric_limits<double>::infinity()));
  reads("<real>nan</real>", real(std::numeric_limits<double>::quiet_NaN()));
  reads("<date>0001-12-30T00:00:00Z</date>", date(-63082540800));
  reads("<date>0000-01-01T00:00:00Z</date>", date(-63145526400));
  reads("<date>9999-12-31T23:59:59Z</date>", date(252423993599));
  reads("<date>2001-01-01T01:02:03Z</date>", date(3723));
  reads("<date>2004-02-29T00:00:00Z</date>", date(99705600));
  reads("<string>a<!-->b--></string>", str("a"));
  reads("<string>a<?>b?>c</string>", str("ac"));
  reads("<string>a<!----><!-- - -- --></string>", str("a"));
  reads("<string>a<![CDATA[]]>b<![CDATA[]]]]></string>", str("ab]]"));
  reads("<string a=\"'>'\" b='\">'>x</string>", str("x"));
  reads("<string\ta='/'>x</string\n>", str("x"));
  reads("<string\n/>", str(""));
  reads("<string>></string>", str(">"));
  reads("<string>&lt;&gt;&amp;</string>", str("<>&"));
  reads("<string>&#9;&#10;&#13;&#x20;&#xD7FF;&#xE000;&#xFFFD;&#x10FFFF;</string>",
        str("\t\n\r \uD7FF\uE000\uFFFD\U0010FFFF"));
  reads("<string>\t \uD7FF\uE000\uFFFD\U00010000\U0010FFFF</string>",
        str("\t \uD7FF\uE000\uFFFD\U00010000\U0010FFFF"));
  reads("<integer>-0</integer>", integer(0));
  reads("<integer>0X1f</integer>", integer(31));
  reads("<integer>9223372036854775807</integer>",
        integer(std::numeric_limits<std::int64_t>::max()));
  reads("<integer>9223372036854775808</integer>", natural(std::uint64_t{1} << 63));
  reads("<integer>0xFFFFFFFFFFFFFFFF</integer>",
        natural(std::numeric_limits<std::uint64_t>::max()));
  reads("<real> +1.5\n</real>", real(1.5));
  reads("<true> \n</true>", NSNumber::numberWithBool(true));
  reads("<false/>", NSNumber::numberWithBool(false));
  reads("<dict> <key>a</key> <!-- b --> <true/> </dict>",
        dictionary({{str("a"), NSNumber::numberWithBool(true)}}));
  reads("<dict><key>a</key><true/><key>a</key><false/></dict>",
        dictionary({{str("a"), NSNumber::numberWithBool(false)}}));
}

TEST(XMLPropertyList, ReadsARootWithoutTheWrapperAndAByteOrderMark) {
  EXPECT_TRUE(read("<string>x</string>").object->isEqual(str("x")));
  EXPECT_TRUE(read("\xEF\xBB\xBF<?xml version='1.0'?><plist><string>x</string></plist>")
                  .object->isEqual(str("x")));
}

TEST(XMLPropertyList, KeepsTheOrderOfADictionary) {
  const auto object =
      readXML("<dict><key>b</key><true/><key>a</key><true/><key>c</key><true/></dict>").object;
  std::string order;
  for (const auto& [key, value] : objectCast<NSDictionary>(object)->entries())
    order += key->description();
  EXPECT_EQ(order, "bac");
}

TEST(XMLPropertyList, KeepsBooleansApartFromIntegers) {
  EXPECT_TRUE(
      std::holds_alternative<bool>(objectCast<NSNumber>(readXML("<true/>").object)->value()));
  EXPECT_TRUE(std::holds_alternative<std::int64_t>(
      objectCast<NSNumber>(readXML("<integer>1</integer>").object)->value()));
}

TEST(XMLPropertyList, RefusesWhatIsNoneAndSaysWhy) {
  const auto refuses = [](std::string_view inside, std::string_view reason) {
    const auto reading = readXML(inside);
    EXPECT_EQ(reading.object, nullptr) << inside;
    EXPECT_EQ(reading.error, "NSCocoaErrorDomain 3840: Not a property list: " + std::string(reason))
        << inside;
  };
  refuses("", "nothing in it");
  refuses("text", "text between elements");
  refuses("<true/><false/>", "a missing end");
  refuses("<bool/>", "an element of an unknown kind");
  refuses("<key>a</key>", "an element of an unknown kind");
  refuses("<plist><true/></plist>", "an element of an unknown kind");
  refuses("<array><true/>", "an end tag that does not match its start tag");
  refuses("<array>text</array>", "text between elements");
  refuses("<array></arraz>", "an end tag that does not match its start tag");
  refuses("<array></array2>", "an end tag that does not match its start tag");
  refuses("<string>a<b/>c</string>", "an element within text");
  refuses("<dict><true/></dict>", "a dictionary value without a key");
  refuses("<dict><key>a</key></dict>", "a dictionary key without a value");
  refuses("<dict><key>a</key><key>b</key></dict>", "an element of an unknown kind");
  refuses("<string>&nbsp;</string>", "an unknown entity");
  refuses("<string>&amp</string>", "a reference without an end");
  refuses("<string>&amp</string>;", "an unknown entity");
  refuses("<string>&#0;</string>", "a reference to an invalid character");
  refuses("<string>&#xD800;</string>", "a reference to an invalid character");
  refuses("<string>&#x110000;</string>", "a reference to an invalid character");
  refuses("<string>&#99999999999999999999;</string>", "a reference to an invalid character");
  refuses("<string>&#-5;</string>", "a reference to an invalid character");
  refuses("<string>&#X41;</string>", "a reference to an invalid character");
  refuses("<string>&#x;</string>", "a reference to an invalid character");
  refuses("<string>&#x41g;</string>", "a reference to an invalid character");
  refuses("<string>&#xDFFF;</string>", "a reference to an invalid character");
  refuses("<string>&#xFFFE;</string>", "a reference to an invalid character");
  refuses("<string>&#xFFFF;</string>", "a reference to an invalid character");
  refuses("<string>&#31;</string>", "a reference to an invalid character");
  refuses("<string>&#11;</string>", "a reference to an invalid character");
  refuses("<string>&;</string>", "an unknown entity");
  refuses("<string>\uFFFE</string>", "a character that XML does not allow");
  refuses("<string>\uFFFF</string>", "a character that XML does not allow");
  refuses("<string>\x1F</string>", "a character that XML does not allow");
  refuses("<string>\x0B</string>", "a character that XML does not allow");
  refuses("<string>a", "an end tag that does not match its start tag");
  refuses("<array><string/>", "an end tag that does not match its start tag");
  refuses("<array a='>", "a missing end");
  refuses("<string", "an element of an unknown kind");
  refuses("<dict>text</dict>", "text between elements");
  refuses("<dict><key>a</key>text</dict>", "text between elements");
  refuses("<integer>+-1</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>0x</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>1F</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<real>+</real>", "a malformed real");
  refuses("<real>1,5</real>", "a malformed real");
  refuses("<string>&#;</string>", "a reference to an invalid character");
  refuses("<integer/>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>12abc</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>1 2</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>--1</integer>", "a malformed integer, or one of more than 64 bits");
  refuses("<integer>18446744073709551616</integer>",
          "a malformed integer, or one of more than 64 bits");
  refuses("<integer>-9223372036854775809</integer>", "an integer of more than 64 bits");
  refuses("<real></real>", "a malformed real");
  refuses("<real>zz</real>", "a malformed real");
  refuses("<real>1e999</real>", "a malformed real");
  refuses("<real>+-1</real>", "a malformed real");
  refuses("<date>2026-11-21</date>", "a malformed date");
  refuses("<date>2026-02-29T00:00:00Z</date>", "a malformed date");
  refuses("<date>2026-11-21T24:00:00Z</date>", "a malformed date");
  refuses("<date>2026-11-21T00:00:00+</date>", "a malformed date");
  for (const std::string date :
       {"2026-00-21T00:00:00Z", "2026-13-21T00:00:00Z", "2026-11-00T00:00:00Z",
        "2026-11-31T00:00:00Z", "2026-11-21T00:60:00Z", "2026-11-21T00:00:60Z",
        "2026-11-21T00:00:00ZZ", "2026-11-21 00:00:00Z", "2026/11-21T00:00:00Z",
        "2026-11-21T00:00:0:Z", "2026-11-21T00:00:/0Z", "-026-11-21T00:00:00Z"}) {
    refuses("<date>" + date + "</date>", "a malformed date");
  }
  refuses("<data>****</data>", "data that is not valid Base64");
  refuses("<data>AQI</data>", "data that is not valid Base64");
  refuses("<true>1</true>", "text in a boolean");
  refuses("<string>\x01</string>", "a character that XML does not allow");
  refuses("<string>\0</string>"sv, "a character that XML does not allow");
  refuses("<string>\xFF</string>", "text that is not UTF-8");
  refuses("<!-- open", "a missing end");
}

TEST(XMLPropertyList, RefusesADocumentTypeOfItsOwn) {
  const auto reading =
      read("<!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>");
  EXPECT_EQ(reading.object, nullptr);
  EXPECT_EQ(reading.error,
            "NSCocoaErrorDomain 3840: Not a property list: an internal document type definition");
}

TEST(XMLPropertyList, SaysWhereADocumentIsCutOffOrEmpty) {
  const auto why = [](std::string_view bytes) {
    return read(bytes).error.substr(
        std::string_view("NSCocoaErrorDomain 3840: Not a property list: ").size());
  };
  EXPECT_EQ(why("<plist/>"), "nothing in it");
  EXPECT_EQ(why("<plist> </plist>"), "nothing in it");
  EXPECT_EQ(why("<plist>"), "a missing end");
  EXPECT_EQ(why("<plist><true/>"), "a missing end");
  EXPECT_EQ(why("<string>a"), "a missing end");
  EXPECT_EQ(why("<array>"), "a missing end");
  EXPECT_EQ(why("<array"), "a missing end");
  EXPECT_EQ(why("<string a='>"), "a missing end");
  EXPECT_EQ(why("<?xml"), "a missing end");
  EXPECT_EQ(why("<!DOCTYPE plist"), "a missing end");
  EXPECT_EQ(why("<!DOCTYPE plist><!-- a --> <?b?>"), "a missing end");
  EXPECT_EQ(why("<string/>x"), "something after its end");
  EXPECT_EQ(why("\xEF\xBB\xBF\xEF\xBB\xBF<true/>"), "text between elements");
}

TEST(XMLPropertyList, RefusesWhatFollowsItsEnd) {
  EXPECT_EQ(read("<plist><true/></plist>junk").object, nullptr);
  EXPECT_EQ(read("<plist><true/></plist><plist><true/></plist>").object, nullptr);
  EXPECT_NE(read("<plist><true/></plist> \n<!-- fine -->").object, nullptr);
}

TEST(PropertyList, TellsNothingFromNothing) {
  EXPECT_EQ(read("").error, "NSCocoaErrorDomain 3840: Not a property list: no data");
  std::shared_ptr<NSError> error;
  EXPECT_EQ(NSPropertyListSerialization::propertyListWithData_options_format_error(nullptr, 0,
                                                                                   nullptr, &error),
            nullptr);
  EXPECT_EQ(why(error), "NSCocoaErrorDomain 3840: Not a property list: no data");
  EXPECT_EQ(NSPropertyListSerialization::propertyListWithData_options_format_error(
                dataOf("x"), 0, nullptr, nullptr),
            nullptr);
}

TEST(PropertyList, LeavesTheFormatAloneOnFailureAndClearsTheErrorOnSuccess) {
  auto format = NSPropertyListFormat::Binary;
  auto error = NSError::errorWithDomain_code_userInfo(str("old"), 1, nullptr);
  (void)NSPropertyListSerialization::propertyListWithData_options_format_error(dataOf("x"), 0,
                                                                               &format, &error);
  EXPECT_EQ(format, NSPropertyListFormat::Binary);
  EXPECT_EQ(error->code(), 3840);
  (void)NSPropertyListSerialization::propertyListWithData_options_format_error(
      dataOf("<plist><true/></plist>"), 0, &format, &error);
  EXPECT_EQ(format, NSPropertyListFormat::XML);
  EXPECT_EQ(error, nullptr);
}

// {"a": [1, "ä"]}, assembled by hand.
constexpr auto kBinary =
    "bplist00"
    "\xD1\x01\x02"  // 8: a dictionary of one, key 1, value 2
    "\x51"
    "a"             // 11
    "\xA2\x03\x04"  // 13: an array of 3 and 4
    "\x10\x01"      // 16
    "\x61\x00\xE4"  // 18
    "\x08\x0B\x0D\x10\x12"
    "\0\0\0\0\0\0\x01\x01"
    "\0\0\0\0\0\0\0\x05"
    "\0\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\x15"sv;

TEST(BinaryPropertyList, ReadsOnePutTogetherByHand) {
  const auto reading = read(kBinary);
  ASSERT_NE(reading.object, nullptr) << reading.error;
  EXPECT_EQ(reading.format, NSPropertyListFormat::Binary);
  EXPECT_TRUE(reading.object->isEqual(dictionary({{str("a"), array({integer(1), str("ä")})}})));
}

/// A list whose only object has this body.
Reading readBinary(std::string_view object) {
  std::string bytes = "bplist00" + std::string(object) + '\x08' + std::string(6, '\0') + "\x01\x01";
  bytes += std::string(7, '\0') + '\x01' + std::string(8, '\0') + std::string(7, '\0') +
           static_cast<char>(8 + object.size());
  return read(bytes);
}

TEST(BinaryPropertyList, ReadsEveryWidth) {
  const auto reads = [](std::string_view object, const Object& expected) {
    const auto reading = readBinary(object);
    ASSERT_NE(reading.object, nullptr) << testing::PrintToString(object) << ": " << reading.error;
    EXPECT_TRUE(reading.object->isEqual(expected)) << reading.object->description();
  };
  reads("\x10\xFF", integer(255));
  reads("\x11\xFF\xFF", integer(65535));
  reads("\x12\xFF\xFF\xFF\xFF", integer(4294967295));
  reads("\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE", integer(-2));
  reads("\x14\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv,
        natural(std::numeric_limits<std::uint64_t>::max()));
  reads("\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x05"sv, integer(5));
  reads("\x14\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x80\0\0\0\0\0\0\0"sv,
        integer(std::numeric_limits<std::int64_t>::min()));
  reads("\x22\x40\x20\0\0"sv, real(2.5));
  reads("\x23\x3F\xF0\0\0\0\0\0\0"sv, real(1));
  reads("\x33\0\0\0\0\0\0\0\0"sv, date(0));
  reads("\x42\x01\x02", dataOf("\1\2"));
  reads("\x4F\x10\x01\x07", dataOf("\7"));
  reads(
      "\x5F\x11\x00\x03"
      "abc"sv,
      str("abc"));
  reads("\x62\xD8\x3D\xDE\x00"sv, str("😀"));
  reads("\x5F\x10\x00"sv, str(""));
  reads("\x4F\x13\0\0\0\0\0\0\0\x01\x07"sv, dataOf("\7"));
  reads("\x51\x7F", str("\x7F"));
  reads("\xA0", array({}));
  reads("\xD0", dictionary({}));
  reads("\x08", NSNumber::numberWithBool(false));
  reads("\x09", NSNumber::numberWithBool(true));
}

TEST(BinaryPropertyList, RefusesObjectsThatNoListHolds) {
  const auto refuses = [](std::string_view object, std::string_view reason) {
    const auto reading = readBinary(object);
    EXPECT_EQ(reading.object, nullptr) << testing::PrintToString(object);
    EXPECT_EQ(reading.error, "NSCocoaErrorDomain 3840: Not a property list: " + std::string(reason))
        << testing::PrintToString(object);
  };
  refuses("\x00"sv, "an object of an unknown kind");
  refuses("\x0F", "an object of an unknown kind");
  refuses("\x80\x01", "an object of an unknown kind");
  refuses("\xC0", "an object of an unknown kind");
  refuses("\x70", "an object of an unknown kind");
  refuses("\x15", "an integer of an unknown width");
  refuses("\x14\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0"sv, "an integer of more than 64 bits");
  refuses("\x14\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\0\0\0\0\0\0"sv,
          "an integer of more than 64 bits");
  refuses("\x20\x01", "a real of an unknown width");
  refuses("\x32\0\0\0\0"sv, "a date of an unknown width");
  refuses("\x33\x7F\xF0\0\0\0\0\0\0"sv, "a date out of range");
  refuses("\x33\x7F\xF8\0\0\0\0\0\0"sv, "a date out of range");
  refuses("\x13\x01", "an object that runs past the data");
  refuses("\x42\x01", "an object that runs past the data");
  refuses("\x61\x01", "an object that runs past the data");
  refuses("\x4F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "an object that runs past the data");
  refuses("\x6F\x13\x80\0\0\0\0\0\0\0"sv, "an object that runs past the data");
  refuses("\x4F\x23\0"sv, "a count that is not an integer");
  refuses("\x4F\x14\0"sv, "a count that is not an integer");
  refuses("\x4F", "a count that is not an integer");
  refuses("\x4F\x10", "an object that runs past the data");
  refuses("\x4F\x11\x00"sv, "an object that runs past the data");
  refuses("\x07", "an object of an unknown kind");
  refuses("\x0A", "an object of an unknown kind");
  refuses("\x31\0\0"sv, "a date of an unknown width");
  refuses("\x24\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv, "a real of an unknown width");
  refuses("\x51\x80", "a string that is invalid in its encoding");
  refuses("\x61\xD8\x00"sv, "a string that is invalid in its encoding");
  refuses("\xA1\x01", "a reference to a missing object");
  refuses("\xA1\x00"sv, "an object that contains itself");
  refuses("\xD1\x00\x00"sv, "an object that contains itself");
}

TEST(BinaryPropertyList, RefusesATrailerThatDoesNotFit) {
  const auto with = [](std::size_t place, char byte) {
    std::string bytes(kBinary);
    bytes[bytes.size() - 32 + place] = byte;
    return read(bytes).error;
  };
  const std::string fits =
      "NSCocoaErrorDomain 3840: Not a property list: a trailer that does not fit the data";
  EXPECT_EQ(with(6, 0), fits);
  EXPECT_EQ(with(6, 9), fits);
  EXPECT_EQ(with(7, 0), fits);
  EXPECT_EQ(with(7, 9), fits);
  EXPECT_EQ(with(8, '\xFF'), fits);
  EXPECT_EQ(with(15, 6), fits);
  EXPECT_EQ(with(24, '\xFF'), fits);
  EXPECT_EQ(with(31, 7), fits);
  EXPECT_EQ(with(31, 0x7F), fits);
  EXPECT_EQ(with(23, 5),
            "NSCocoaErrorDomain 3840: Not a property list: a reference to a missing object");
  EXPECT_EQ(read(kBinary.substr(0, 39)).error,
            "NSCocoaErrorDomain 3840: Not a property list: shorter than its trailer");
}

std::string number(std::size_t value, std::size_t width) {
  std::string text;
  for (std::size_t i = width; i-- > 0;) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

/// The list [true, "a"] with offsets and references of these widths.
std::string binaryOfWidths(std::size_t offsets, std::size_t references) {
  const std::string objects =
      "\xA2" + number(1, references) + number(2, references) + "\x09" + "\x51" + "a";
  const std::size_t second = 9 + 2 * references;
  return "bplist00" + objects + number(8, offsets) + number(second, offsets) +
         number(second + 1, offsets) + std::string(6, '\0') + static_cast<char>(offsets) +
         static_cast<char>(references) + number(3, 8) + number(0, 8) +
         number(8 + objects.size(), 8);
}

TEST(BinaryPropertyList, OffsetsAndReferencesTakeOneToEightBytes) {
  const auto expected = array({NSNumber::numberWithBool(true), str("a")});
  for (std::size_t offsets = 1; offsets <= 8; ++offsets) {
    for (std::size_t references = 1; references <= 8; ++references) {
      const auto reading = read(binaryOfWidths(offsets, references));
      ASSERT_NE(reading.object, nullptr) << offsets << ' ' << references << ' ' << reading.error;
      EXPECT_TRUE(reading.object->isEqual(expected)) << offsets << ' ' << references;
    }
  }
}

TEST(BinaryPropertyList, ObjectsLieBetweenTheMagicAndTheTable) {
  const auto withOffset = [](char offset) {
    std::string bytes(kBinary);
    bytes[bytes.size() - 32 - 5] = offset;  // of the top object
    return read(bytes).error;
  };
  const std::string_view outside =
      "NSCocoaErrorDomain 3840: Not a property list: an object outside the data";
  EXPECT_EQ(withOffset(8), "");
  EXPECT_EQ(withOffset(7), outside);
  EXPECT_EQ(withOffset(0x15), outside);
  EXPECT_EQ(withOffset(0x10), "") << "an integer";
}

TEST(BinaryPropertyList, TheShortestOnesAreToldFromWhatIsNone) {
  const auto why = [](const std::string& bytes) {
    return read(bytes).error.substr(
        std::string_view("NSCocoaErrorDomain 3840: Not a property list: ").size());
  };
  EXPECT_EQ(why("bplist0"), "text between elements");
  EXPECT_EQ(why("bplist01" + std::string(32, ' ')), "text between elements");
  EXPECT_EQ(why("bplist00"), "shorter than its trailer");
  EXPECT_EQ(why("bplist00" + std::string(31, '\0')), "shorter than its trailer");
  EXPECT_EQ(why("bplist00" + std::string(32, '\0')), "a trailer that does not fit the data");
  const auto trailer = [](std::size_t count, std::size_t table) {
    return std::string(6, '\0') + "\x01\x01" + number(count, 8) + number(0, 8) + number(table, 8);
  };
  EXPECT_EQ(why("bplist00" + trailer(0, 8)), "a reference to a missing object");
  EXPECT_EQ(why("bplist00" + trailer(1, 8)), "a trailer that does not fit the data");
  EXPECT_EQ(why("bplist00\x08" + trailer(1, 8)), "an object outside the data");
  EXPECT_EQ(why("bplist00\x08" + trailer(0, 10)), "a trailer that does not fit the data");
}

TEST(BinaryPropertyList, RefusesAKeyThatIsNoString) {
  std::string bytes(kBinary);
  bytes[9] = '\x03';
  EXPECT_EQ(read(bytes).error,
            "NSCocoaErrorDomain 3840: Not a property list: a dictionary key that is not a string");
}

}  // namespace
}  // namespace platform
