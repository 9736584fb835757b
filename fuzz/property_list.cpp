// SPDX-License-Identifier: Apache-2.0

// Property lists from arbitrary bytes. What is read can be written in either encoding and reads
// back as an equal object; what cannot be written is refused for one of the documented reasons.
#include <cmath>
#include <cstdlib>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"

namespace {

using namespace platform;

void require(bool condition) {
  if (!condition) std::abort();
}

std::shared_ptr<NSObject> read(const std::shared_ptr<NSData>& data, NSPropertyListFormat* format) {
  std::shared_ptr<NSError> error;
  auto object = NSPropertyListSerialization::propertyListWithData_options_format_error(
      data, 0, format, &error);
  require((object == nullptr) == (error != nullptr));
  require(error == nullptr || error->code() == 3840);
  return object;
}

/// The object as XML can represent it: dates without fractions.
std::shared_ptr<NSObject> inWholeSeconds(const std::shared_ptr<NSObject>& object) {
  if (const auto date = objectCast<NSDate>(object)) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(
        std::floor(date->timeIntervalSinceReferenceDate()));
  }
  if (const auto array = objectCast<NSArray>(object)) {
    std::vector<std::shared_ptr<NSObject>> members;
    array->enumerateObjects([&](const auto& member) { members.push_back(inWholeSeconds(member)); });
    return NSArray::arrayWithObjects(std::move(members));
  }
  if (const auto dictionary = objectCast<NSDictionary>(object)) {
    auto entries = dictionary->entries();
    for (auto& entry : entries) entry.second = inWholeSeconds(entry.second);
    return NSDictionary::dictionaryWithEntries(std::move(entries));
  }
  return object;
}

/// The number of objects, each counted once per reference.
std::size_t objectsIn(const NSObject& object) {
  std::size_t count = 1;
  if (const auto* array = dynamic_cast<const NSArray*>(&object)) {
    for (std::size_t i = 0; i < array->count(); ++i) count += objectsIn(*array->objectAtIndex(i));
  } else if (const auto* dictionary = dynamic_cast<const NSDictionary*>(&object)) {
    for (const auto& [key, value] : dictionary->entries()) count += 1 + objectsIn(*value);
  }
  return count;
}

bool isRefusalOf(const NSError& error, std::string_view reason) {
  const auto text = objectCast<NSString>(error.userInfo()->objectForKey(NSLocalizedDescriptionKey));
  return error.code() == 3851 && text->UTF8String().ends_with(reason);
}

void checkRoundTrip(const std::shared_ptr<NSObject>& object, NSPropertyListFormat from,
                    NSPropertyListFormat to) {
  std::shared_ptr<NSError> error;
  const auto data =
      NSPropertyListSerialization::dataWithPropertyList_format_error(object, to, &error);
  if (!data) {
    const bool unsayable = from == NSPropertyListFormat::Binary &&
                           to == NSPropertyListFormat::XML &&
                           isRefusalOf(*error, "a character that XML does not allow");
    return require(unsayable || isRefusalOf(*error, "larger than 64 MiB"));
  }
  auto format = from;
  const auto again = read(data, &format);
  require(again && format == to);
  require(again->isEqual(to == NSPropertyListFormat::XML ? inWholeSeconds(object) : object));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto format = NSPropertyListFormat::XML;
  const auto object = read(NSData::dataWithBytes({data, size}), &format);
  // A few hundred bytes can stand for a million objects: that is allowed, and under a sanitizer
  // slow enough to leave no time for anything else.
  if (!object || objectsIn(*object) > 4'000) return 0;
  (void)object->description();
  checkRoundTrip(object, format, NSPropertyListFormat::XML);
  checkRoundTrip(object, format, NSPropertyListFormat::Binary);
  return 0;
}
