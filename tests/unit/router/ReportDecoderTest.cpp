// SPDX-License-Identifier: Apache-2.0

#include "router/ReportDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "HexBytes.h"
#include "platform/foundation/Format.h"

namespace {

using platform::HIDElementValueRecord;
using router::ReportDecoder;
using router::ReportDescriptor;

ReportDecoder decoder(const std::string& hex) {
  return ReportDecoder(
      std::make_shared<const ReportDescriptor>(ReportDescriptor::parse(bytes(hex))));
}

/// The values that a test compares, with the bytes copied.
struct Value {
  std::uint32_t reportID;
  std::uint32_t page;
  std::uint32_t usage;
  std::uint64_t cookie;
  std::int64_t integer;
  std::vector<std::uint8_t> raw;
  friend bool operator==(const Value&, const Value&) = default;
};

void PrintTo(const Value& v, std::ostream* out) {
  *out << "{id " << v.reportID << ", page " << v.page << ", usage " << v.usage << ", cookie "
       << v.cookie << ", " << v.integer << ", bytes " << testing::PrintToString(v.raw) << "}";
}

std::vector<Value> decode(ReportDecoder& decoder, const std::vector<std::uint8_t>& report) {
  std::vector<Value> values;
  for (const HIDElementValueRecord& r : decoder.decode(report)) {
    values.push_back({r.reportID, r.usagePage, r.usage, r.cookie, r.integerValue,
                      std::vector<std::uint8_t>(r.bytes.begin(), r.bytes.end())});
  }
  return values;
}

std::vector<Value> decode(const std::string& descriptor, const std::string& report) {
  ReportDecoder d = decoder(descriptor);
  return decode(d, bytes(report));
}

TEST(ReportDecoder, ReadsAMouse) {
  const std::string mouse =
      "05 01 09 02 a1 01 05 09 19 01 29 03 15 00 25 01 75 01 95 03 81 02 75 05 95 01 81 01"
      "  05 01 09 30 09 31 15 81 25 7f 75 08 95 02 81 06 c0";
  EXPECT_EQ(decode(mouse, "05 ff 80"), (std::vector<Value>{
                                           {0, 9, 1, 1, 1, {1}},
                                           {0, 9, 2, 2, 0, {0}},
                                           {0, 9, 3, 3, 1, {1}},
                                           {0, 1, 0x30, 5, -1, {0xff}},
                                           {0, 1, 0x31, 6, -128, {0x80}},  // beyond the range: kept
                                       }));
}

TEST(ReportDecoder, ReadsFieldsAcrossByteBoundaries) {
  // Two signed fields of 12 bits in ab cd ef: 0xdab and 0xefc.
  EXPECT_EQ(decode("05 01 09 30 09 31 16 00 f8 26 ff 07 75 0c 95 02 81 02", "ab cd ef"),
            (std::vector<Value>{{0, 1, 0x30, 1, 0xdab - 0x1000, {0xab, 0x0d}},
                                {0, 1, 0x31, 2, 0xefc - 0x1000, {0xfc, 0x0e}}}));
}

TEST(ReportDecoder, ReadsTheWidestIntegers) {
  // One bit, then 64 bits from bit 1, zero-extended; 7 bits of padding.
  const std::string descriptor =
      "05 01 15 00 25 01 75 01 95 01 09 01 81 02 75 40 95 01 09 02 81 02 75 07 95 01 81 03";
  EXPECT_EQ(decode(descriptor, "01 00 00 00 00 00 00 00 01"),
            (std::vector<Value>{{0, 1, 1, 1, 1, {1}},
                                {0, 1, 2, 2, INT64_MIN, {0, 0, 0, 0, 0, 0, 0, 0x80}}}));
  // Signed and byte-aligned.
  EXPECT_EQ(
      decode("05 01 09 02 15 ff 25 01 75 40 95 01 81 02", "fe ff ff ff ff ff ff ff"),
      (std::vector<Value>{{0, 1, 2, 1, -2, {0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}}}));
}

TEST(ReportDecoder, AFieldWiderThan64BitsIsBytesOnly) {
  EXPECT_EQ(decode("05 01 09 02 75 48 95 01 81 02", "01 02 03 04 05 06 07 08 09"),
            (std::vector<Value>{{0, 1, 2, 1, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9}}}));
  // 68 bits from bit 4: every byte consists of two half bytes.
  EXPECT_EQ(decode("75 04 95 01 81 03 05 01 09 02 75 44 95 01 81 02", "10 32 54 76 98 ba dc fe 21"),
            (std::vector<Value>{
                {0, 1, 2, 2, 0, {0x21, 0x43, 0x65, 0x87, 0xa9, 0xcb, 0xed, 0x1f, 0x02}}}));
}

TEST(ReportDecoder, AnArraySlotCarriesItsValueAndTheUsageItSelects) {
  const std::string keyboard = "05 07 15 00 26 ff 00 19 00 2a ff 00 75 08 95 03 81 00";
  EXPECT_EQ(decode(keyboard, "04 00 e1"),
            (std::vector<Value>{
                {0, 7, 4, 1, 4, {4}}, {0, 7, 0, 2, 0, {0}}, {0, 7, 0xe1, 3, 0xe1, {0xe1}}}));
  // The usage of a slot comes from this report, not from the previous one.
  ReportDecoder d = decoder(keyboard);
  decode(d, bytes("04 05 06"));
  EXPECT_EQ(decode(d, bytes("00 00 00"))[1], (Value{0, 7, 0, 2, 0, {0}}));
}

TEST(ReportDecoder, FieldsOfOtherTypesTakeNoRoomInAReport) {
  // Output and Feature fields between two Input ones, and padding.
  EXPECT_EQ(decode("05 01 09 30 75 08 95 01 81 02 91 02 b1 02 81 03 09 31 81 02", "11 22 33"),
            (std::vector<Value>{{0, 1, 0x30, 1, 0x11, {0x11}}, {0, 1, 0x31, 5, 0x33, {0x33}}}));
}

TEST(ReportDecoder, AnArraySlotIsSignedWhereItsMinimumIsNegative) {
  EXPECT_EQ(decode("05 07 15 fe 25 02 19 10 29 14 75 08 95 02 81 00", "fe 03"),
            (std::vector<Value>{{0, 7, 0x10, 1, -2, {0xfe}}, {0, 7, 0, 2, 3, {3}}}));
}

TEST(ReportDecoder, TheBytesOfAFieldHoldNothingOfItsNeighbours) {
  // Three fields of 3 bits in two bytes: 0b111, 0b000, 0b111.
  EXPECT_EQ(decode("05 01 09 30 15 00 25 07 75 03 95 03 81 02", "c7 01"),
            (std::vector<Value>{
                {0, 1, 0x30, 1, 7, {7}}, {0, 1, 0x30, 2, 0, {0}}, {0, 1, 0x30, 3, 7, {7}}}));
}

TEST(ReportDecoder, ReportsOfDifferentLayoutsDoNotDisturbEachOther) {
  // Report 1: two 4-bit fields, report 2: one 12-bit field. Their bytes share the same scratch
  // space.
  ReportDecoder d =
      decoder("05 01 15 00 25 0f 85 01 09 30 75 04 95 02 81 02 85 02 09 31 75 0c 95 01 81 02");
  EXPECT_EQ(decode(d, bytes("01 21")),
            (std::vector<Value>{{1, 1, 0x30, 1, 1, {1}}, {1, 1, 0x30, 2, 2, {2}}}));
  EXPECT_EQ(decode(d, bytes("02 bc 0a")),
            (std::vector<Value>{{2, 1, 0x31, 3, 0xabc, {0xbc, 0x0a}}}));
  EXPECT_EQ(decode(d, bytes("01 43")),
            (std::vector<Value>{{1, 1, 0x30, 1, 3, {3}}, {1, 1, 0x30, 2, 4, {4}}}));
}

TEST(ReportDecoder, TheHighestReportIDIsOne) {
  EXPECT_EQ(decode("05 01 09 30 85 ff 75 08 95 01 81 02", "ff 05"),
            (std::vector<Value>{{255, 1, 0x30, 1, 5, {5}}}));
}

TEST(ReportDecoder, AnArraySlotTooWideForAnIntegerSelectsNothing) {
  const auto values =
      decode("05 07 15 00 25 7f 19 04 29 50 75 48 95 01 81 00", "00 00 00 00 00 00 00 00 00");
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0].usage, 0U);
  EXPECT_EQ(values[0].page, 7U);
}

TEST(ReportDecoder, FieldsBeyondTheEndOfAShortReportAreLeftOut) {
  const std::string descriptor = "05 01 09 30 09 31 09 32 75 0c 95 03 81 02";
  EXPECT_EQ(decode(descriptor, "ff ff ff ff ff").size(), 3U);
  EXPECT_EQ(decode(descriptor, "ff ff ff ff").size(), 2U);
  EXPECT_EQ(decode(descriptor, "ff ff ff").size(), 2U);
  EXPECT_EQ(decode(descriptor, "ff ff").size(), 1U);
  EXPECT_EQ(decode(descriptor, "ff").size(), 0U);
  EXPECT_EQ(decode(descriptor, "").size(), 0U);
  EXPECT_EQ(decode(descriptor, "ff ff ff ff ff ff ff ff ff ff").size(), 3U);
}

TEST(ReportDecoder, TheFirstByteChoosesTheReport) {
  ReportDecoder d = decoder(
      "05 01 09 30 75 08 95 01 85 01 81 02 09 31 85 02 81 02 09 32 91 02 85 03 09 33 b1 02");
  EXPECT_EQ(d.reportID(bytes("02 55")), 2U);
  EXPECT_EQ(d.reportID({}), 0U);
  EXPECT_EQ(decode(d, bytes("01 55")), (std::vector<Value>{{1, 1, 0x30, 1, 0x55, {0x55}}}));
  EXPECT_EQ(decode(d, bytes("02 66")), (std::vector<Value>{{2, 1, 0x31, 2, 0x66, {0x66}}}));
  EXPECT_TRUE(decode(d, bytes("03 77")).empty());  // a feature report is not an input report
  EXPECT_TRUE(decode(d, bytes("09 77")).empty());
  EXPECT_TRUE(decode(d, bytes("00 77")).empty());
  EXPECT_TRUE(decode(d, {}).empty());
}

TEST(ReportDecoder, FieldsBeforeTheFirstReportIDAreInNoReport) {
  ReportDecoder d = decoder("05 01 09 30 75 08 95 01 81 02 85 01 09 31 81 02");
  EXPECT_TRUE(decode(d, bytes("00 77")).empty());
  EXPECT_EQ(decode(d, bytes("01 66")), (std::vector<Value>{{1, 1, 0x31, 2, 0x66, {0x66}}}));
}

TEST(ReportDecoder, WithoutReportIDsTheFirstByteIsData) {
  ReportDecoder d = decoder("05 01 09 30 75 08 95 01 81 02");
  EXPECT_EQ(d.reportID(bytes("07")), 0U);
  EXPECT_EQ(decode(d, bytes("07")), (std::vector<Value>{{0, 1, 0x30, 1, 7, {7}}}));
}

/// Decodes bit by bit, straight from the definition.
Value readSlowly(const router::Element& element, const std::vector<std::uint8_t>& report) {
  const router::ReportField& field = *element.field;
  Value value{field.reportID, 0, 0, element.cookie, 0, {}};
  value.raw.resize((field.bitSize + 7) / 8);
  std::uint64_t integer = 0;
  for (std::uint32_t i = 0; i < field.bitSize; ++i) {
    const std::uint32_t at = element.bitOffset() + i;
    const bool bit = ((report[at / 8] >> (at % 8)) & 1) != 0;
    if (bit) value.raw[i / 8] = static_cast<std::uint8_t>(value.raw[i / 8] | (1U << (i % 8)));
    if (bit && i < 64) integer |= std::uint64_t{1} << i;
    const bool isSignBit = i + 1 == field.bitSize && field.logicalMinimum < 0;
    for (std::uint32_t above = i + 1; bit && isSignBit && above < 64; ++above) {
      integer |= std::uint64_t{1} << above;
    }
  }
  value.integer = field.bitSize <= 64 ? static_cast<std::int64_t>(integer) : 0;
  const router::Usage usage = field.usageOfField(element.index);
  value.page = usage.page;
  value.usage = usage.id;
  return value;
}

/// Up to eight items of random sizes and signs, each followed by its own usages; some are padding.
std::vector<std::uint8_t> randomDescriptor(std::mt19937& random) {
  const auto below = [&](unsigned n) { return static_cast<std::uint8_t>(random() % n); };
  std::vector<std::uint8_t> d = {0x05, static_cast<std::uint8_t>(1 + below(30))};
  const bool usesIDs = below(2) == 1;
  for (unsigned i = 1 + below(8); i > 0; --i) {
    const std::uint8_t id = static_cast<std::uint8_t>(1 + below(2));
    if (usesIDs) d.insert(d.end(), {0x85, id});
    const bool isSigned = below(2) == 1;
    d.insert(d.end(), {0x15, static_cast<std::uint8_t>(isSigned ? 0x81 : 0x00), 0x25, 0x7f});
    d.insert(d.end(), {0x75, static_cast<std::uint8_t>(1 + below(80)), 0x95, below(6)});
    d.insert(d.end(), {0x09, below(255), 0x09, below(255)});
    d.insert(d.end(), {0x81, static_cast<std::uint8_t>(below(4) == 0 ? 3 : 2)});
  }
  return d;
}

TEST(ReportDecoder, AgreesWithAReaderOfSingleBitsOnRandomLayouts) {
  std::mt19937 random(20260221);
  std::size_t compared = 0;
  for (int round = 0; round < 2000; ++round) {
    const auto descriptor =
        std::make_shared<const ReportDescriptor>(ReportDescriptor::parse(randomDescriptor(random)));
    ReportDecoder d(descriptor);
    std::vector<std::uint8_t> report(random() % 200);
    for (std::uint8_t& byte : report) byte = static_cast<std::uint8_t>(random());
    if (!report.empty() && descriptor->usesReportIDs()) report[0] = 1 + random() % 2;

    std::vector<Value> expected;
    for (std::uint32_t cookie = 1; cookie <= descriptor->elementCount(); ++cookie) {
      const router::Element element = *descriptor->elementWithCookie(cookie);
      const bool isThere = element.bitOffset() + element.field->bitSize <= report.size() * 8;
      if (element.field->constant || element.field->reportID != d.reportID(report) || !isThere)
        continue;
      expected.push_back(readSlowly(element, report));
    }
    ASSERT_EQ(decode(d, report), expected) << "round " << round;
    compared += expected.size();
  }
  EXPECT_GT(compared, 10000U);
}

TEST(ReportDecoder, AnArraySlotOfSixtyFourBitsStillSelects) {
  const auto values =
      decode("05 07 15 00 25 7f 19 04 29 50 75 40 95 01 81 00", "02 00 00 00 00 00 00 00");
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0].usage, 6U);
  EXPECT_EQ(values[0].integer, 2);
}

/// A report that ends at the end of its page, after which nothing can be read.
class ReportAtTheEndOfAPage {
 public:
  explicit ReportAtTheEndOfAPage(const std::vector<std::uint8_t>& report)
      : page_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
        memory_(static_cast<std::uint8_t*>(::mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE,
                                                  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        report_(memory_ + page_ - report.size(), report.size()) {
    EXPECT_EQ(::mprotect(memory_ + page_, page_, PROT_NONE), 0);
    std::copy(report.begin(), report.end(), memory_ + page_ - report.size());
  }
  ReportAtTheEndOfAPage(const ReportAtTheEndOfAPage&) = delete;
  ReportAtTheEndOfAPage& operator=(const ReportAtTheEndOfAPage&) = delete;
  ~ReportAtTheEndOfAPage() { ::munmap(memory_, 2 * page_); }
  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return report_; }

 private:
  const std::size_t page_;
  std::uint8_t* const memory_;
  const std::span<const std::uint8_t> report_;
};

TEST(ReportDecoder, NothingIsReadPastTheEndOfAReport) {
  // Fields of every size up to 72 bits, at every bit offset, each ending at the report's last bit.
  for (unsigned size = 1; size <= 72; ++size) {
    for (unsigned shift = 0; shift < 8; ++shift) {
      const std::string padding =
          shift == 0 ? "" : platform::stringWithFormat("75 %02x 95 01 81 03 ", shift);
      ReportDecoder d = decoder(padding + platform::stringWithFormat("05 01 09 30 75 %02x", size) +
                                " 95 01 81 02");
      const ReportAtTheEndOfAPage report(std::vector<std::uint8_t>((shift + size + 7) / 8, 0xff));
      const auto values = d.decode(report.bytes());
      ASSERT_EQ(values.size(), 1U);
      const std::uint64_t expected = size > 64 ? 0 : ~std::uint64_t{0} >> (64 - size);
      ASSERT_EQ(static_cast<std::uint64_t>(values[0].integerValue), expected)
          << size << " bits from bit " << shift;
    }
  }
}

}  // namespace
