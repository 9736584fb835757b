// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace platform {
namespace {

constexpr auto kLowest = std::numeric_limits<std::int64_t>::min();
constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
constexpr auto kHighestUnsigned = std::numeric_limits<std::uint64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

using Number = std::shared_ptr<NSNumber>;

Number flag(bool value) {
  return NSNumber::numberWithBool(value);
}
Number integer(std::int64_t value) {
  return NSNumber::numberWithLongLong(value);
}
Number natural(std::uint64_t value) {
  return NSNumber::numberWithUnsignedLongLong(value);
}
Number real(double value) {
  return NSNumber::numberWithDouble(value);
}

void expectEqual(const Number& a, const Number& b) {
  EXPECT_TRUE(a->isEqual(b)) << a->description() << " and " << b->description();
  EXPECT_TRUE(b->isEqual(a)) << a->description() << " and " << b->description();
}

void expectDifferent(const Number& a, const Number& b) {
  EXPECT_FALSE(a->isEqual(b)) << a->description() << " and " << b->description();
  EXPECT_FALSE(b->isEqual(a)) << a->description() << " and " << b->description();
}

TEST(NSNumber, EqualityIsByValueAcrossAllKinds) {
  expectEqual(flag(true), integer(1));
  expectEqual(flag(false), real(-0.0));
  expectEqual(integer(7), natural(7));
  expectEqual(integer(-7), real(-7));
  expectEqual(natural(std::uint64_t{1} << 63), real(0x1p63));
  expectEqual(integer(kLowest), real(-0x1p63));
  expectEqual(real(0.5), real(0.5));
  expectEqual(real(kInfinity), real(kInfinity));
  expectEqual(real(kNaN), real(-kNaN));
}

TEST(NSNumber, EqualityIsExactWhereDoublesAreNot) {
  expectDifferent(integer(kHighest), real(0x1p63));
  expectDifferent(integer((std::int64_t{1} << 53) + 1), real(0x1p53));
  expectDifferent(natural(kHighestUnsigned), real(0x1p64));
  expectDifferent(natural(kHighestUnsigned), integer(-1));
  expectDifferent(natural(std::uint64_t{1} << 63), integer(kLowest));
  expectDifferent(real(0.5), integer(0));
  expectDifferent(real(kInfinity), real(-kInfinity));
  EXPECT_FALSE(integer(1)->isEqual(str("1")));
  EXPECT_FALSE(integer(0)->isEqual(nullptr));
}

TEST(NSNumber, IsOrderedByKindAndThenByValue) {
  const std::vector<Number> ascending{integer(kLowest),
                                      real(-1),
                                      flag(false),
                                      natural(1),
                                      integer(kHighest),
                                      real(0x1p63),
                                      natural(kHighestUnsigned),
                                      real(-kInfinity),
                                      real(-0x1p64),
                                      real(-0.5),
                                      real(0.5),
                                      real(0x1p64),
                                      real(kInfinity),
                                      real(kNaN)};
  for (std::size_t i = 1; i < ascending.size(); ++i) {
    EXPECT_TRUE(NSObject::compare(ascending[i - 1].get(), ascending[i].get()) < 0) << i;
    EXPECT_TRUE(NSObject::compare(ascending[i].get(), ascending[i - 1].get()) > 0) << i;
  }
}

TEST(NSNumber, ConvertsIntegersByWrappingAndDoublesBySaturating) {
  EXPECT_EQ(natural(kHighestUnsigned)->longLongValue(), -1);
  EXPECT_EQ(integer(-1)->unsignedLongLongValue(), kHighestUnsigned);
  EXPECT_EQ(flag(true)->longLongValue(), 1);
  EXPECT_EQ(flag(true)->unsignedLongLongValue(), 1U);
  EXPECT_EQ(real(-2.9)->longLongValue(), -2);
  EXPECT_EQ(real(1e300)->longLongValue(), kHighest);
  EXPECT_EQ(real(0x1p63)->longLongValue(), kHighest);
  EXPECT_EQ(real(-1e300)->longLongValue(), kLowest);
  EXPECT_EQ(real(-1)->unsignedLongLongValue(), 0U);
  EXPECT_EQ(real(kInfinity)->unsignedLongLongValue(), kHighestUnsigned);
  EXPECT_EQ(real(0x1p64)->unsignedLongLongValue(), kHighestUnsigned);
  EXPECT_EQ(real(0x1p64 - 2048)->unsignedLongLongValue(), kHighestUnsigned - 2047);
  EXPECT_EQ(real(0x1p63)->unsignedLongLongValue(), std::uint64_t{1} << 63);
  EXPECT_EQ(real(2.9)->unsignedLongLongValue(), 2U);
  EXPECT_EQ(real(0x1p63 - 1024)->longLongValue(), kHighest - 1023);
  EXPECT_EQ(real(-0x1p63)->longLongValue(), kLowest);
  EXPECT_EQ(real(-0x1p63 + 1024)->longLongValue(), kLowest + 1024);
  EXPECT_EQ(natural(kHighestUnsigned)->doubleValue(), 0x1p64);
  EXPECT_EQ(real(-2.5)->doubleValue(), -2.5);
  EXPECT_EQ(real(kNaN)->longLongValue(), 0);
  EXPECT_EQ(real(kNaN)->unsignedLongLongValue(), 0U);
  EXPECT_EQ(integer(kLowest)->doubleValue(), -0x1p63);
  EXPECT_EQ(flag(true)->doubleValue(), 1.0);
}

TEST(NSNumber, IsTrueWhereItIsNotZero) {
  EXPECT_TRUE(flag(true)->boolValue());
  EXPECT_FALSE(flag(false)->boolValue());
  EXPECT_TRUE(integer(-1)->boolValue());
  EXPECT_FALSE(natural(0)->boolValue());
  EXPECT_FALSE(real(-0.0)->boolValue());
  EXPECT_TRUE(real(0.1)->boolValue());
  EXPECT_TRUE(real(kNaN)->boolValue());
}

TEST(NSNumber, DescribesItselfAsDigits) {
  EXPECT_EQ(flag(true)->description(), "1");
  EXPECT_EQ(flag(false)->description(), "0");
  EXPECT_EQ(integer(kLowest)->description(), "-9223372036854775808");
  EXPECT_EQ(natural(kHighestUnsigned)->description(), "18446744073709551615");
  EXPECT_EQ(real(0.1)->description(), "0.1");
  EXPECT_EQ(real(1.0 / 3)->description(), "0.3333333333333333");
  EXPECT_EQ(real(100)->description(), "100");
  EXPECT_EQ(real(1e300)->description(), "1e+300");
  EXPECT_EQ(real(1e-5)->description(), "1e-05");
  EXPECT_EQ(real(-2.5)->description(), "-2.5");
}

TEST(NSNumber, DescriptionsOfDoublesReadBackTheSame) {
  for (const double value : {0.1, 1e-4, 9.9e-5, 1e16, 123456789012345680.0, 1e17, 5e-324,
                             1.7976931348623157e308, 0x1p-1022}) {
    const std::string text = real(value)->description();
    EXPECT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
  }
}

}  // namespace
}  // namespace platform
