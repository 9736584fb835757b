// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cerrno>

#include <array>
#include <filesystem>
#include <numeric>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSURL.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::shared_ptr<NSData> counting(std::size_t length) {
  Bytes bytes(length);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  return NSData::dataWithBytes(bytes);
}

// --- objects and classes

TEST(NSObject, HasIdentityAndSaysWhereItIs) {
  const auto a = std::make_shared<NSObject>();
  const auto b = std::make_shared<NSObject>();
  EXPECT_TRUE(a->isEqual(a));
  EXPECT_FALSE(a->isEqual(b));
  EXPECT_FALSE(a->isEqual(nullptr));
  EXPECT_TRUE(a->description().starts_with("<NSObject: 0x")) << a->description();
  EXPECT_TRUE(a->descriptionWithIndent(1).starts_with("\"<NSObject: 0x"));
}

TEST(NSObject, NilDescribesItselfAsNull) {
  EXPECT_EQ(descriptionOf(nullptr), "(null)");
}

TEST(NSClass, FollowsTheChainOfSuperclasses) {
  const auto array = NSMutableArray::array();
  EXPECT_EQ(array->className(), "NSMutableArray");
  EXPECT_TRUE(array->isKindOfClass(NSMutableArray::classObject()));
  EXPECT_TRUE(array->isKindOfClass(NSArray::classObject()));
  EXPECT_TRUE(array->isKindOfClass(NSObject::classObject()));
  EXPECT_FALSE(array->isKindOfClass(NSString::classObject()));
  EXPECT_FALSE(NSArray::arrayWithObjects({})->isKindOfClass(NSMutableArray::classObject()));
}

TEST(ObjectCast, IsNullForAnotherClassAndForNull) {
  const std::shared_ptr<NSObject> text = str("a");
  EXPECT_NE(objectCast<NSString>(text), nullptr);
  EXPECT_EQ(objectCast<NSNumber>(text), nullptr);
  EXPECT_EQ(objectCast<NSNumber>(nullptr), nullptr);
}

// --- data

TEST(NSData, CopiesItsBytes) {
  Bytes bytes{1, 2, 3};
  const auto data = NSData::dataWithBytes(bytes);
  bytes[0] = 9;
  ASSERT_EQ(data->length(), 3U);
  EXPECT_EQ(data->bytes()[0], 1);
  EXPECT_EQ(data->span().size(), 3U);
}

TEST(NSData, HasNoBytesWhenEmpty) {
  const auto data = NSData::dataWithBytes({});
  EXPECT_EQ(data->bytes(), nullptr);
  EXPECT_EQ(data->length(), 0U);
  EXPECT_TRUE(data->isEqual(NSData::dataWithBytes({})));
  EXPECT_EQ(data->description(), "{length = 0, bytes = 0x}");
}

TEST(NSData, IsOrderedByLengthAndThenByItsBytes) {
  const auto data = [](const Bytes& bytes) { return NSData::dataWithBytes(bytes); };
  const auto isBefore = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get()) < 0 && NSObject::compare(b.get(), a.get()) > 0;
  };
  EXPECT_TRUE(isBefore(data({}), data({0})));
  EXPECT_TRUE(isBefore(data({9}), data({1, 2})));
  EXPECT_TRUE(isBefore(data({1, 2}), data({1, 3})));
  EXPECT_TRUE(isBefore(data({1, 2}), data({0x80, 0}))) << "bytes have no sign";
}

TEST(NSData, FillsItsOwnBlock) {
  const auto data = NSData::dataWithLength(5, [](std::span<std::uint8_t> room) {
    ASSERT_EQ(room.size(), 5U);
    std::iota(room.begin(), room.end(), std::uint8_t{1});
  });
  EXPECT_TRUE(data->isEqual(NSData::dataWithBytes(Bytes{1, 2, 3, 4, 5})));
}

TEST(NSData, WhatItsFillerThrowsLeavesNothingBehind) {
  EXPECT_THROW((void)NSData::dataWithLength(64, [](auto) { throw std::runtime_error("no"); }),
               std::runtime_error);
}

TEST(NSData, ALengthBeyondMemoryThrowsBeforeItAllocates) {
  EXPECT_THROW((void)NSData::dataWithLength(SIZE_MAX, [](auto) {}), std::bad_alloc);
  EXPECT_THROW((void)NSData::dataWithLength(std::size_t{1} << 63, [](auto) {}), std::bad_alloc);
}

TEST(NSData, ComparesContents) {
  EXPECT_TRUE(counting(40)->isEqual(counting(40)));
  EXPECT_FALSE(counting(40)->isEqual(counting(41)));
  EXPECT_FALSE(counting(2)->isEqual(NSData::dataWithBytes(Bytes{0, 2})));
  EXPECT_FALSE(counting(0)->isEqual(str("")));
}

TEST(NSData, TakesSubrangesWithinItsBounds) {
  const auto data = counting(8);
  EXPECT_TRUE(data->subdataWithRange(2, 3)->isEqual(NSData::dataWithBytes(Bytes{2, 3, 4})));
  EXPECT_EQ(data->subdataWithRange(8, 0)->length(), 0U);
  EXPECT_THROW((void)data->subdataWithRange(9, 0), NSRangeException);
  EXPECT_THROW((void)data->subdataWithRange(7, 2), NSRangeException);
  EXPECT_THROW((void)data->subdataWithRange(1, SIZE_MAX), NSRangeException);
}

TEST(NSData, SaysWhichRangeExceedsIt) {
  try {
    (void)counting(8)->subdataWithRange(7, 2);
    FAIL() << "the range does not lie within the data";
  } catch (const NSRangeException& outside) {
    EXPECT_STREQ(outside.what(), "range {7, 2} exceeds data of length 8");
  }
}

TEST(NSData, DescribesItselfWholeUpTo24Bytes) {
  EXPECT_EQ(NSData::dataWithBytes(Bytes{1, 2, 3, 4})->description(),
            "{length = 4, bytes = 0x01020304}");
  EXPECT_EQ(counting(24)->description(),
            "{length = 24, bytes = 0x000102030405060708090a0b0c0d0e0f1011121314151617}");
  EXPECT_EQ(counting(25)->description(),
            "{length = 25, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 11121314 15161718 }");
  EXPECT_EQ(counting(32)->descriptionWithIndent(2),
            "{length = 32, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 18191a1b 1c1d1e1f }");
}

// --- dates

std::string described(double seconds) {
  return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds)->description();
}

TEST(NSDate, DescribesItselfInUTC) {
  EXPECT_EQ(described(0), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(described(-0.5), "2000-12-31 23:59:59 +0000");
  EXPECT_EQ(described(816926499), "2026-11-21 04:01:39 +0000");
  EXPECT_EQ(described(-978307200), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(described(5140886400 - 86400), "2163-11-28 00:00:00 +0000");
}

TEST(NSDate, DescribesATimeFarOffWithoutACalendar) {
  EXPECT_EQ(described(1e300), "1e+300 s since 2001-01-01 00:00:00 +0000");
  EXPECT_EQ(described(316223999999), "12021-09-27 23:59:59 +0000");
  EXPECT_EQ(described(316224000000), "3.16224e+11 s since 2001-01-01 00:00:00 +0000");
  EXPECT_EQ(described(-316223999999), "-8020-04-06 00:00:01 +0000");
  EXPECT_EQ(described(-316224000000), "-3.16224e+11 s since 2001-01-01 00:00:00 +0000");
  EXPECT_NE(described(std::numeric_limits<double>::quiet_NaN()).find("nan"), std::string::npos);
}

TEST(NSDate, IsOrderedByTime) {
  const NSDate earlier(-1.5);
  const NSDate later(1.5);
  EXPECT_TRUE(NSObject::compare(&earlier, &later) < 0);
  EXPECT_TRUE(NSObject::compare(&later, &earlier) > 0);
}

TEST(NSDate, ComparesSeconds) {
  const auto date = NSDate::dateWithTimeIntervalSinceReferenceDate(1.5);
  EXPECT_TRUE(date->isEqual(NSDate::dateWithTimeIntervalSinceReferenceDate(1.5)));
  EXPECT_TRUE(NSDate(0.0).isEqual(NSDate::dateWithTimeIntervalSinceReferenceDate(-0.0)));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(NSDate(nan).isEqual(NSDate::dateWithTimeIntervalSinceReferenceDate(-nan)));
  EXPECT_FALSE(NSDate(nan).isEqual(date));
  EXPECT_FALSE(date->isEqual(NSDate::dateWithTimeIntervalSinceReferenceDate(1.25)));
  EXPECT_FALSE(date->isEqual(NSNumber::numberWithDouble(1.5)));
}

// --- URLs

TEST(NSURL, KeepsItsText) {
  const auto url = NSURL::URLWithString(str("https://example.org/a b"));
  EXPECT_EQ(url->absoluteString()->UTF8String(), "https://example.org/a b");
  EXPECT_EQ(url->description(), "https://example.org/a b");
  EXPECT_EQ(url->path(), nullptr);
  EXPECT_TRUE(url->isEqual(NSURL::URLWithString(str("https://example.org/a b"))));
  EXPECT_FALSE(url->isEqual(str("https://example.org/a b")));
}

TEST(NSURL, IsOrderedByItsText) {
  const auto a = NSURL::URLWithString(str("a:"));
  const auto b = NSURL::URLWithString(str("b:"));
  EXPECT_TRUE(NSObject::compare(a.get(), b.get()) < 0);
  EXPECT_TRUE(NSObject::compare(b.get(), a.get()) > 0);
}

TEST(NSURL, IsNullForNothing) {
  EXPECT_EQ(NSURL::URLWithString(nullptr), nullptr);
  EXPECT_EQ(NSURL::URLWithString(str("")), nullptr);
  EXPECT_EQ(NSURL::fileURLWithPath(nullptr), nullptr);
  EXPECT_EQ(NSURL::fileURLWithPath(str("")), nullptr);
}

TEST(NSURL, EncodesAndDecodesThePathOfAFile) {
  const auto url = NSURL::fileURLWithPath(str("/var/log/a b%ä#?;.log"));
  EXPECT_EQ(url->absoluteString()->UTF8String(), "file:///var/log/a%20b%25%C3%A4%23%3F%3B.log");
  EXPECT_EQ(url->path()->UTF8String(), "/var/log/a b%ä#?;.log");
}

TEST(NSURL, ARelativePathCountsFromTheWorkingDirectory) {
  const auto here = std::filesystem::current_path() / "a b";
  EXPECT_EQ(NSURL::fileURLWithPath(str("a b"))->path()->UTF8String(), here.string());
}

TEST(NSURL, ReadsFileURLsOfOthers) {
  const auto path = [](std::string_view text) { return NSURL::URLWithString(str(text))->path(); };
  EXPECT_EQ(path("FILE:///a%2fb")->UTF8String(), "/a/b");
  EXPECT_EQ(path("file:/a")->UTF8String(), "/a");
  EXPECT_EQ(path("file://host/a?query#fragment")->UTF8String(), "/a");
  EXPECT_EQ(path("file://host")->UTF8String(), "");
  EXPECT_EQ(path("file:///a%2"), nullptr);
  EXPECT_EQ(path("file:///a%zz"), nullptr);
  EXPECT_EQ(path("file:///%ff"), nullptr);
  EXPECT_EQ(path("fil"), nullptr);
  EXPECT_EQ(path("file:")->UTF8String(), "");
  EXPECT_EQ(path("file;/a"), nullptr);
  EXPECT_EQ(path("/file:/a"), nullptr);
}

TEST(NSURL, DecodesEveryPairOfHexadecimalDigitsAndNoOther) {
  const auto path = [](std::string_view text) { return NSURL::URLWithString(str(text))->path(); };
  EXPECT_EQ(path("file:/%41%4a%4F%5a%5F%09%39")->UTF8String(), "/AJOZ_\t9");
  EXPECT_EQ(path("file:/%7e")->UTF8String(), "/~") << "right at the end";
  for (const char* const digits : {"%", "%4", "%4/", "%:1", "%@1", "%G1", "%`1", "%g1",
                                   "%4:", "%4@", "%4G", "%4`", "%4g", "%+4", "%-4", "% 4", "%0x"}) {
    EXPECT_EQ(path("file:/" + std::string(digits)), nullptr) << digits;
  }
}

TEST(NSURL, EncodesWhateverMayNotStandInAPath) {
  const std::string plain = "/azAZ09-._~!$&'()*+,=:@";
  EXPECT_EQ(NSURL::fileURLWithPath(str(plain))->absoluteString()->UTF8String(), "file://" + plain);
  for (const char c : std::string_view("\x01 \"#%;<>?[\\]^`{|}\x7F")) {
    const std::string text = "/" + std::string(1, c);
    const auto url = NSURL::fileURLWithPath(str(text));
    EXPECT_EQ(url->absoluteString()->length(), std::string_view("file:///%xx").size()) << text;
    EXPECT_EQ(url->path()->UTF8String(), text);
  }
}

TEST(NSURL, IsNullForARelativePathWhereThereIsNoWorkingDirectory) {
  const auto before = std::filesystem::current_path();
  {
    const testsupport::TemporaryDirectory directory;
    std::filesystem::current_path(directory.path());
  }
  const auto relative = NSURL::fileURLWithPath(str("a"));
  const auto absolute = NSURL::fileURLWithPath(str("/a"));
  std::filesystem::current_path(before);
  EXPECT_EQ(relative, nullptr);
  EXPECT_NE(absolute, nullptr);
}

// --- errors

std::shared_ptr<NSError> errorWith(std::int64_t code, std::vector<NSDictionary::Entry> info) {
  return NSError::errorWithDomain_code_userInfo(
      str("D"), code, NSDictionary::dictionaryWithEntries(std::move(info)));
}

TEST(NSError, DescribesItself) {
  EXPECT_EQ(NSError::errorWithDomain_code_userInfo(str("HIDEventRouterDomain"), -7, nullptr)
                ->description(),
            "Error Domain=HIDEventRouterDomain Code=-7 \"(null)\"");
  EXPECT_EQ(errorWith(-536870174, {})->description(), "Error Domain=D Code=-536870174 \"(null)\"");
  EXPECT_EQ(errorWith(5, {{str(NSLocalizedDescriptionKey), str("no luck")},
                          {str("n"), NSNumber::numberWithBool(true)}})
                ->description(),
            "Error Domain=D Code=5 \"no luck\" UserInfo={NSLocalizedDescription=no luck, n=1}");
  EXPECT_EQ(NSError::errorWithDomain_code_userInfo(nullptr, 0, nullptr)->description(),
            "Error Domain=(null) Code=0 \"(null)\"");
}

TEST(NSError, HasWordsForTheCodesOfThisSystem) {
  const std::vector<std::pair<std::string, std::vector<std::int64_t>>> domains{
      {"NSOSStatusErrorDomain", {-60005, -60006, -60007}},
      {"NSCocoaErrorDomain", {4097, 4099, 4101}},
      {"HIDEventRouterDomain",
       {-1, -536870208, -536870206, -536870203, -536870198, -536870187, -536870174, -536870169,
        -536870165, -536870160}},
      {"WLServiceManagementErrorDomain", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
      {"NSPOSIXErrorDomain", {ENOMEM, EMSGSIZE, ENOBUFS}}};
  for (const auto& [domain, codes] : domains) {
    for (const auto code : codes) {
      const auto error = NSError::errorWithDomain_code_userInfo(str(domain), code, nullptr);
      EXPECT_EQ(error->userInfo(), nullptr);
      const std::string words = error->localizedDescription()->UTF8String();
      EXPECT_FALSE(words.starts_with("The operation failed")) << words;
      EXPECT_EQ(error->description(),
                "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + words + "\"");
    }
  }
}

TEST(NSError, WordsOfItsOwnComeFirstAndAreNeverMissing) {
  const auto own = NSError::errorWithDomain_code_userInfo(
      str("NSCocoaErrorDomain"), 4097,
      NSDictionary::dictionaryWithEntries({{str(NSLocalizedDescriptionKey), str("no luck")}}));
  EXPECT_EQ(own->localizedDescription()->UTF8String(), "no luck");
  EXPECT_EQ(errorWith(5, {})->localizedDescription()->UTF8String(),
            "The operation failed; only the error code is known: D 5.");
  EXPECT_EQ(NSError::errorWithDomain_code_userInfo(nullptr, 0, nullptr)
                ->localizedDescription()
                ->UTF8String(),
            "The operation failed; only the error code is known: (null) 0.");
  EXPECT_EQ(
      NSError::errorWithDomain_code_userInfo(str("NSPOSIXErrorDomain"), -1, nullptr)->description(),
      "Error Domain=NSPOSIXErrorDomain Code=-1 \"(null)\"");
}

TEST(NSError, HasTheSystemsWordsForItsPositiveNumbersOnly) {
  const auto described = [](std::int64_t code) {
    return NSError::errorWithDomain_code_userInfo(str(NSPOSIXErrorDomain), code, nullptr)
        ->description();
  };
  constexpr std::int64_t kLargest = std::numeric_limits<int>::max();
  EXPECT_EQ(described(EPERM), "Error Domain=NSPOSIXErrorDomain Code=1 \"Operation not permitted\"");
  EXPECT_EQ(described(kLargest),
            "Error Domain=NSPOSIXErrorDomain Code=2147483647 \"Unknown error 2147483647\"");
  EXPECT_EQ(described(0), "Error Domain=NSPOSIXErrorDomain Code=0 \"(null)\"");
  EXPECT_EQ(described(kLargest + 1), "Error Domain=NSPOSIXErrorDomain Code=2147483648 \"(null)\"");
}

TEST(NSError, HasNoWordsForNumbersOfOtherDomains) {
  for (const auto& [domain, code] : std::vector<std::pair<std::string_view, std::int64_t>>{
           {NSCocoaErrorDomain, 1},
           {NSCocoaErrorDomain, 4098},
           {NSOSStatusErrorDomain, 4097},
           {NSOSStatusErrorDomain, -60008},
           {"HIDEventRouterDomain", -2},
           {"WLServiceManagementErrorDomain", 0},
           {"WLServiceManagementErrorDomain", 13}}) {
    const auto error = NSError::errorWithDomain_code_userInfo(str(domain), code, nullptr);
    EXPECT_TRUE(error->description().ends_with("\"(null)\"")) << error->description();
  }
}

TEST(NSError, IsOrderedByCodeAndThenByDomain) {
  const auto of = [](std::string_view domain, std::int64_t code) {
    return NSError::errorWithDomain_code_userInfo(str(domain), code, nullptr);
  };
  const auto isBefore = [](const auto& a, const auto& b) {
    return NSObject::compare(a.get(), b.get()) < 0 && NSObject::compare(b.get(), a.get()) > 0;
  };
  EXPECT_TRUE(isBefore(of("B", -1), of("A", 1)));
  EXPECT_TRUE(isBefore(of("A", 1), of("B", 1)));
}

TEST(NSError, ComparesDomainCodeAndUserInfo) {
  const auto plain = NSError::errorWithDomain_code_userInfo(str("D"), 5, nullptr);
  EXPECT_EQ(plain->userInfo(), nullptr);
  EXPECT_TRUE(plain->isEqual(errorWith(5, {})));
  EXPECT_FALSE(plain->isEqual(errorWith(6, {})));
  EXPECT_FALSE(plain->isEqual(errorWith(5, {{str("a"), str("b")}})));
  EXPECT_FALSE(errorWith(5, {{str("a"), str("b")}})->isEqual(plain));
  EXPECT_FALSE(plain->isEqual(NSError::errorWithDomain_code_userInfo(str("E"), 5, nullptr)));
  EXPECT_FALSE(plain->isEqual(NSError::errorWithDomain_code_userInfo(nullptr, 5, nullptr)));
  EXPECT_FALSE(NSError::errorWithDomain_code_userInfo(nullptr, 5, nullptr)->isEqual(plain));
}

}  // namespace
}  // namespace platform
