// SPDX-License-Identifier: Apache-2.0

// Encoding and decoding in one call each, for tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "platform/xpc/ObjectCoder.h"

namespace codertest {

using Bytes = std::vector<std::uint8_t>;
using Object = std::shared_ptr<platform::NSObject>;
using namespace platform::xpc;

inline constexpr TagSet kEverything = ~TagSet{0};

inline Bytes encode(const Object& object) {
  WireWriter writer;
  encodeObject(writer, object);
  return {writer.bytes().begin(), writer.bytes().end()};
}

struct Decoded {
  DecodeVerdict verdict;
  Object object;
  std::string reason;
  std::size_t left;
};

inline Decoded decode(const Bytes& bytes, TagSet outermost = kEverything,
                      TagSet inside = kEverything) {
  // A heap block of exactly that size, so that a sanitizer sees any read beyond it.
  const Bytes exact(bytes);
  WireReader reader(exact);
  DecodeResult result = decodeObject(reader, outermost, inside);
  return {result.verdict, std::move(result.object), std::string(result.reason), reader.remaining()};
}

inline std::shared_ptr<platform::NSData> data(std::initializer_list<std::uint8_t> bytes) {
  const std::vector<std::uint8_t> all(bytes);
  return platform::NSData::dataWithBytes(all);
}

inline platform::HIDElementValueRecord record(std::uint32_t reportID, std::uint32_t page,
                                              std::uint32_t usage, std::uint64_t cookie,
                                              std::int64_t value,
                                              std::span<const std::uint8_t> bytes) {
  return {reportID, page, usage, cookie, value, bytes};
}

/// One object of each kind that the coder supports, and a few nested ones.
inline std::vector<Object> samples() {
  using namespace platform;
  static const std::uint8_t field[] = {1, 2, 3};
  const auto value = KQHIDDeviceElementValue::elementValue(record(1, 2, 3, 4, -5, field));
  const auto values =
      elementValueArray(std::vector{record(1, 2, 3, 4, -5, field), record(0, 9, 1, 2, 1, {})});
  const auto nested = NSDictionary::dictionaryWithEntries(
      {{str("a"), NSArray::arrayWithObjects({NSNumber::numberWithLongLong(-1), data({7})})},
       {NSNumber::numberWithUnsignedLongLong(~0ULL),
        NSDate::dateWithTimeIntervalSinceReferenceDate(-0.0)},
       {NSArray::arrayWithObjects({str("b"), NSMutableArray::array()}), str("c")}});
  return {nullptr,
          data({}),
          data({1, 2, 3}),
          NSData::dataWithBytes(std::vector<std::uint8_t>(254, 1)),
          NSData::dataWithBytes(std::vector<std::uint8_t>(255, 2)),
          NSData::dataWithBytes(std::vector<std::uint8_t>(256, 3)),
          str(""),
          str(std::string_view("n\0l \xC3\xA4", 6)),
          NSNumber::numberWithBool(false),
          NSNumber::numberWithBool(true),
          NSNumber::numberWithLongLong(INT64_MIN),
          NSNumber::numberWithUnsignedLongLong(UINT64_MAX),
          NSNumber::numberWithDouble(0.1),
          NSDate::dateWithTimeIntervalSinceReferenceDate(1e9),
          NSURL::URLWithString(str("https://example.com/a?b#c")),
          NSArray::arrayWithObjects({}),
          NSArray::arrayWithObjects({str("x"), NSArray::arrayWithObjects({})}),
          NSMutableArray::array(),
          NSMutableArray::arrayWithObjects({str("x"), value}),
          NSDictionary::dictionary(),
          nested,
          NSError::errorWithDomain_code_userInfo(str("D"), -536870174, nullptr),
          NSError::errorWithDomain_code_userInfo(str("D"), 1, nested),
          value,
          values,
          NSArray::arrayWithObjects({value}),
          KQIOObject::objectWithRegistryEntryID_name(0x100000abc, str("mouse")),
          KQIOObject::objectWithRegistryEntryID_name(1, nullptr)};
}

}  // namespace codertest
