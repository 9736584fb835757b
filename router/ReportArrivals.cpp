// SPDX-License-Identifier: Apache-2.0

#include "router/ReportArrivals.h"

#include <algorithm>
#include <span>
#include <utility>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router/DictionaryReading.h"

namespace router {
namespace {

using platform::NSData;
using platform::NSDictionary;
using platform::str;

constexpr std::size_t kBytesEach = 8;

void append(std::vector<std::uint8_t>& bytes, std::uint64_t number) {
  for (std::size_t i = 0; i < kBytesEach; ++i)
    bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

std::uint64_t numberAt(std::span<const std::uint8_t, kBytesEach> bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < kBytesEach; ++i) number |= std::uint64_t{bytes[i]} << (8 * i);
  return number;
}

}  // namespace

std::shared_ptr<NSDictionary> dictionaryOf(const ReportArrivals& arrivals) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(arrivals.times.size() * kBytesEach);
  for (const auto time : arrivals.times) append(bytes, static_cast<std::uint64_t>(time.count()));
  std::vector<NSDictionary::Entry> entries;
  entries.emplace_back(str("First"),
                       platform::NSNumber::numberWithUnsignedLongLong(arrivals.first));
  entries.emplace_back(str("Times"), NSData::dataWithBytes(bytes));
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::optional<ReportArrivals> arrivalsIn(const NSDictionary& dictionary) {
  const auto first = numberIn(dictionary, "First");
  const auto data = platform::objectCast<NSData>(dictionary.objectForKey("Times"));
  if (!first || data == nullptr || data->span().size() % kBytesEach != 0) return std::nullopt;
  ReportArrivals arrivals{*first, {}};
  for (auto rest = data->span(); !rest.empty(); rest = rest.subspan(kBytesEach)) {
    const auto time = static_cast<std::int64_t>(numberAt(rest.first<kBytesEach>()));
    if (time < 0) return std::nullopt;  // no clock says so, and differences to it may not exist
    arrivals.times.emplace_back(time);
  }
  return arrivals;
}

ReportArrivals ArrivalNotes::latest() const {
  const std::uint64_t first = next_ - std::min<std::uint64_t>(next_ - first_, kMost);
  ReportArrivals arrivals{first, {}};
  arrivals.times.reserve(next_ - first);
  for (std::uint64_t number = first; number < next_; ++number)
    arrivals.times.push_back(times_[number % kMost]);
  return arrivals;
}

}  // namespace router
