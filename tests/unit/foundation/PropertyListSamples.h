// SPDX-License-Identifier: Apache-2.0

// Property lists for the tests: shorthand calls, and objects that cover every kind of value and its
// edge cases.
#pragma once

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"

namespace platform::samples {

using Object = std::shared_ptr<NSObject>;

inline std::shared_ptr<NSData> dataOf(std::string_view bytes) {
  return NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

inline std::string bytesOf(const NSData& data) {
  return {data.span().begin(), data.span().end()};
}

inline std::string why(const std::shared_ptr<NSError>& error) {
  if (!error) return {};
  const auto text =
      objectCast<NSString>(error->userInfo()->objectForKey(NSLocalizedDescriptionKey));
  return error->domain()->UTF8String() + " " + std::to_string(error->code()) + ": " +
         text->UTF8String();
}

struct Reading {
  Object object;
  std::string error;
  NSPropertyListFormat format = NSPropertyListFormat::XML;
};

inline Reading read(std::string_view bytes) {
  Reading reading;
  std::shared_ptr<NSError> error;
  reading.object = NSPropertyListSerialization::propertyListWithData_options_format_error(
      dataOf(bytes), 0, &reading.format, &error);
  reading.error = why(error);
  return reading;
}

inline Reading readXML(std::string_view inside) {
  return read("<plist version=\"1.0\">" + std::string(inside) + "</plist>");
}

/// The bytes, or the error.
inline std::string written(const Object& object, NSPropertyListFormat format) {
  std::shared_ptr<NSError> error;
  const auto data =
      NSPropertyListSerialization::dataWithPropertyList_format_error(object, format, &error);
  return data ? bytesOf(*data) : why(error);
}

inline Object integer(std::int64_t value) {
  return NSNumber::numberWithLongLong(value);
}
inline Object natural(std::uint64_t value) {
  return NSNumber::numberWithUnsignedLongLong(value);
}
inline Object real(double value) {
  return NSNumber::numberWithDouble(value);
}
inline Object date(double value) {
  return NSDate::dateWithTimeIntervalSinceReferenceDate(value);
}
inline Object array(std::vector<Object> objects) {
  return NSArray::arrayWithObjects(std::move(objects));
}
inline Object dictionary(std::vector<NSDictionary::Entry> entries) {
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

inline Object nested(std::size_t depth) {
  Object object = array({});
  for (std::size_t i = 1; i < depth; ++i) object = array({object});
  return object;
}

/// Values at the limits of what each encoding can represent.
inline std::vector<Object> edgeValues() {
  std::vector<Object> values;
  for (const std::int64_t value :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{127}, std::int64_t{128},
        std::int64_t{255}, std::int64_t{256}, std::int64_t{65535}, std::int64_t{65536},
        std::int64_t{4294967295}, std::int64_t{4294967296}, std::int64_t{-128},
        std::int64_t{-4294967296}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    values.push_back(integer(value));
  }
  values.push_back(natural(std::uint64_t{1} << 63));
  values.push_back(natural(std::numeric_limits<std::uint64_t>::max()));
  for (const double value : {0.0, 0.1, -2.5, 1e300, 5e-324, 1.0 / 3, 1e17})
    values.push_back(real(value));
  for (const bool value : {false, true}) values.push_back(NSNumber::numberWithBool(value));
  for (const char* text :
       {"", "a", "<&>\"'", " \t\n ", "ä€😀", "fourteen chars", "fifteen chars..", "\u00FF"}) {
    values.push_back(str(text));
  }
  values.push_back(str(std::string(70000, 'x')));
  for (const std::size_t length : {0, 1, 2, 3, 14, 15, 300})
    values.push_back(dataOf(std::string(length, '\xA5')));
  for (const double seconds : {0.0, -1.0, 816926499.0, -63113904000.0, 252423993599.0})
    values.push_back(date(seconds));
  values.push_back(array({}));
  values.push_back(dictionary({}));
  return values;
}

/// A dictionary of all of them, nested, with more than 255 objects, so that references need two
/// bytes.
inline Object nestedCopies(const std::vector<Object>& values) {
  std::vector<NSDictionary::Entry> entries;
  while (entries.size() < 300) {
    const auto& value = values[entries.size() % values.size()];
    entries.emplace_back(str("key " + std::to_string(entries.size())),
                         array({value, str("shared"), array({value})}));
  }
  return dictionary(std::move(entries));
}

}  // namespace platform::samples
