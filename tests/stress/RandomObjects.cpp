// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/RandomObjects.h"

#include <array>
#include <bit>
#include <cmath>
#include <limits>
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

namespace stress {

using namespace platform;

namespace {

constexpr std::size_t kMaxMembers = 40;
constexpr std::size_t kUsualDepth = 6;

void appendUTF8(std::string& text, std::uint32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  const std::array<unsigned, 4> leads{0, 0xC0, 0xE0, 0xF0};
  text += static_cast<char>(leads[static_cast<std::size_t>(more)] | (character >> (6 * more)));
  for (int i = more; i-- > 0;) text += static_cast<char>(0x80U | ((character >> (6 * i)) & 0x3FU));
}

}  // namespace

RandomObjects::Object RandomObjects::graph() {
  budget_ = kMaxMembers;
  switch (below(64)) {
    case 0:
      return nullptr;
    case 1:
      return chain(1 + below(xpc::kMaxObjectDepth));
    case 2:
      return chain(xpc::kMaxObjectDepth);
    default:
      return any(0);
  }
}

/// Values near the limits and the powers of two are as likely as all others together.
std::uint64_t RandomObjects::bits() {
  switch (below(4)) {
    case 0:
      return (std::uint64_t{1} << below(64)) - below(2);
    case 1:
      return std::uint64_t{} - below(4);
    case 2:
      return below(300);
    default:
      return random_();
  }
}

/// Short, at the border between the two forms of a size, or long.
std::size_t RandomObjects::length() {
  switch (below(64)) {
    case 0:
      return 250 + below(10);
    case 1:
      return below(5000);
    default:
      return below(24);
  }
}

double RandomObjects::real() {
  switch (below(4)) {
    case 0:
      return static_cast<double>(static_cast<std::int64_t>(bits()));
    case 1:
      return std::numeric_limits<double>::infinity() * (below(2) == 0 ? 1 : -1);
    case 2:
      return std::ldexp(static_cast<double>(below(1000)) - 500, static_cast<int>(below(80)) - 40);
    default:
      return std::bit_cast<double>(random_());  // sometimes a NaN
  }
}

std::string RandomObjects::text() {
  std::string result;
  for (std::size_t left = length(); left > 0; --left) {
    std::uint32_t character = 0;
    do {
      const std::array<std::uint32_t, 4> ends{0x80, 0x800, 0x10000, 0x110000};
      character = static_cast<std::uint32_t>(below(ends[below(4)]));
    } while (character >= 0xD800 && character <= 0xDFFF);
    appendUTF8(result, character);
  }
  return result;
}

/// `depth` nested collections.
RandomObjects::Object RandomObjects::chain(std::size_t depth) {
  Object inner;
  for (std::size_t left = depth; left > 0; --left) {
    std::vector<Object> members;
    if (inner != nullptr) members.push_back(inner);
    switch (below(4)) {
      case 0:
        inner = NSArray::arrayWithObjects(std::move(members));
        break;
      case 1:
        inner = NSMutableArray::arrayWithObjects(std::move(members));
        break;
      case 2:
        inner = inner == nullptr ? NSDictionary::dictionary()
                                 : NSDictionary::dictionaryWithEntries({{inner, leaf()}});
        break;
      default:
        inner = inner == nullptr ? NSDictionary::dictionary()
                                 : NSDictionary::dictionaryWithEntries({{leaf(), inner}});
    }
  }
  return inner;
}

RandomObjects::Object RandomObjects::any(std::size_t depth) {
  return depth < kUsualDepth && below(3) == 0 ? collection(depth + 1) : leaf();
}

RandomObjects::Object RandomObjects::number() {
  switch (below(4)) {
    case 0:
      return NSNumber::numberWithBool(below(2) == 0);
    case 1:
      return NSNumber::numberWithLongLong(static_cast<std::int64_t>(bits()));
    case 2:
      return NSNumber::numberWithUnsignedLongLong(bits());
    default:
      return NSNumber::numberWithDouble(real());
  }
}

RandomObjects::Object RandomObjects::leaf() {
  switch (below(7)) {
    case 0:
      return str(text());
    case 1:
      return number();
    case 2:
      return NSData::dataWithLength(length(), [&](std::span<std::uint8_t> bytes) {
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
      });
    case 3:
      return NSDate::dateWithTimeIntervalSinceReferenceDate(real());
    case 4:
      return NSURL::URLWithString(str("x" + text()));
    case 5:
      return KQIOObject::objectWithRegistryEntryID_name(bits(),
                                                        below(2) == 0 ? nullptr : str(text()));
    default: {
      std::array<std::uint8_t, 16> bytes{};
      for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
      return KQHIDDeviceElementValue::elementValue(
          {static_cast<std::uint32_t>(bits()), static_cast<std::uint32_t>(bits()),
           static_cast<std::uint32_t>(bits()), bits(), static_cast<std::int64_t>(bits()),
           std::span<const std::uint8_t>(bytes).first(below(17))});
    }
  }
}

RandomObjects::Object RandomObjects::collection(std::size_t depth) {
  switch (below(4)) {
    case 0:
      return array(depth);
    case 1:
      return dictionary(depth);
    case 2:
      return error(depth);
    default:
      return elementValues();
  }
}

RandomObjects::Object RandomObjects::array(std::size_t depth) {
  std::vector<Object> members;
  for (std::size_t left = below(8); left > 0 && budget_ > 0; --left) {
    --budget_;
    members.push_back(any(depth));
  }
  if (below(2) == 0) return NSArray::arrayWithObjects(std::move(members));
  return NSMutableArray::arrayWithObjects(std::move(members));
}

RandomObjects::Object RandomObjects::dictionary(std::size_t depth) {
  std::vector<NSDictionary::Entry> entries;
  for (std::size_t left = below(8); left > 0 && budget_ > 0; --left) {
    --budget_;
    Object key = any(depth);  // an existing key only gets a new value
    entries.emplace_back(std::move(key), any(depth));
  }
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

RandomObjects::Object RandomObjects::error(std::size_t depth) {
  const auto domain = below(4) == 0 ? nullptr : str(text());
  const auto code = static_cast<std::int64_t>(bits());
  if (below(3) == 0 || depth >= kUsualDepth)
    return NSError::errorWithDomain_code_userInfo(domain, code, nullptr);
  return NSError::errorWithDomain_code_userInfo(
      domain, code, std::static_pointer_cast<NSDictionary>(dictionary(depth + 1)));
}

RandomObjects::Object RandomObjects::elementValues() {
  std::vector<std::array<std::uint8_t, 8>> bytes(1 + below(20));
  std::vector<HIDElementValueRecord> records;
  for (auto& each : bytes) {
    for (std::uint8_t& byte : each) byte = static_cast<std::uint8_t>(random_());
    records.push_back({static_cast<std::uint32_t>(below(4)), static_cast<std::uint32_t>(bits()),
                       static_cast<std::uint32_t>(bits()), records.size() + 1,
                       static_cast<std::int64_t>(bits()),
                       std::span<const std::uint8_t>(each).first(below(9))});
  }
  return elementValueArray(records);
}

}  // namespace stress
