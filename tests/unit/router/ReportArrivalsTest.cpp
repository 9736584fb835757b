// SPDX-License-Identifier: Apache-2.0

// Which arrivals are kept, and how they are told.
#include "router/ReportArrivals.h"

#include <gmock/gmock.h>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"

namespace {

using platform::NSDictionary;
using router::ArrivalNotes;
using router::ReportArrivals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

std::chrono::steady_clock::time_point at(std::int64_t count) {
  return std::chrono::steady_clock::time_point(nanoseconds(count));
}

std::shared_ptr<NSDictionary> dictionary(std::shared_ptr<platform::NSObject> first,
                                         std::shared_ptr<platform::NSObject> times) {
  std::vector<NSDictionary::Entry> entries;
  if (first != nullptr) entries.emplace_back(platform::str("First"), std::move(first));
  if (times != nullptr) entries.emplace_back(platform::str("Times"), std::move(times));
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}
std::shared_ptr<platform::NSObject> number(std::uint64_t value) {
  return platform::NSNumber::numberWithUnsignedLongLong(value);
}
std::shared_ptr<platform::NSObject> data(const std::vector<std::uint8_t>& bytes) {
  return platform::NSData::dataWithBytes(bytes);
}

TEST(ArrivalNotes, BeginWithTheNextReport) {
  ArrivalNotes notes(8);
  EXPECT_EQ(notes.latest().first, 8U);
  EXPECT_THAT(notes.latest().times, IsEmpty());
  notes.note(8, at(100));
  notes.note(9, at(250));
  EXPECT_EQ(notes.latest().first, 8U);
  EXPECT_THAT(notes.latest().times, ElementsAre(nanoseconds(100), nanoseconds(250)));
}

TEST(ArrivalNotes, KeepTheLatest) {
  ArrivalNotes notes(1);
  EXPECT_EQ(ArrivalNotes::kMost, 8192U);
  for (std::uint64_t i = 1; i <= ArrivalNotes::kMost; ++i)
    notes.note(i, at(static_cast<std::int64_t>(i)));
  EXPECT_EQ(notes.latest().first, 1U);
  notes.note(ArrivalNotes::kMost + 1, at(5));
  const ReportArrivals latest = notes.latest();
  EXPECT_EQ(latest.first, 2U);
  ASSERT_EQ(latest.times.size(), ArrivalNotes::kMost);
  EXPECT_EQ(latest.times.front(), nanoseconds(2));
  EXPECT_EQ(latest.times.back(), nanoseconds(5));
}

TEST(ReportArrivals, AreTheSameAfterTheirWay) {
  const ReportArrivals arrivals{0x100000002,
                                {nanoseconds(1), nanoseconds(0x0123456789abcdef), nanoseconds(0)}};
  EXPECT_EQ(router::arrivalsIn(*dictionaryOf(arrivals)), arrivals);
  EXPECT_EQ(router::arrivalsIn(*dictionaryOf(ReportArrivals{})), ReportArrivals{});
}

TEST(ReportArrivals, AreLittleEndian) {
  const auto arrivals =
      router::arrivalsIn(*dictionary(number(3), data({0x39, 0x30, 0, 0, 0, 0, 0, 0})));
  EXPECT_EQ(arrivals, (ReportArrivals{3, {nanoseconds(12345)}}));
}

TEST(ReportArrivals, OfSomethingElseThereAreNone) {
  EXPECT_EQ(router::arrivalsIn(*dictionary(nullptr, data({}))), std::nullopt);
  EXPECT_EQ(router::arrivalsIn(*dictionary(number(1), nullptr)), std::nullopt);
  EXPECT_EQ(router::arrivalsIn(*dictionary(number(1), number(1))), std::nullopt);
  EXPECT_EQ(router::arrivalsIn(*dictionary(data({}), data({}))), std::nullopt);
  EXPECT_EQ(router::arrivalsIn(*dictionary(number(1), data({1, 2, 3}))), std::nullopt);
  EXPECT_EQ(router::arrivalsIn(*dictionary(number(1), data({0, 0, 0, 0, 0, 0, 0, 0x80}))),
            std::nullopt)
      << "a time before the clock's beginning";
  EXPECT_EQ(router::arrivalsIn(*dictionary(number(1), data({}))), (ReportArrivals{1, {}}));
}

}  // namespace
