// SPDX-License-Identifier: Apache-2.0

// Compares the reader and the writer with libplist, an independent implementation.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>

#include "tests/unit/foundation/PropertyListSamples.h"

namespace platform {
namespace {

using namespace samples;

/// The bytes read by libplist and written by it in the given format; empty if it cannot read them.
std::string throughLibplist(const std::string& bytes, NSPropertyListFormat format) {
  plist_t node = nullptr;
  ::plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  if (node == nullptr) return {};
  char* text = nullptr;
  std::uint32_t length = 0;
  if (format == NSPropertyListFormat::XML) {
    ::plist_to_xml(node, &text, &length);
  } else {
    ::plist_to_bin(node, &text, &length);
  }
  std::string result(text, length);
  std::free(text);
  ::plist_free(node);
  return result;
}

// libplist writes years below 1000 without their leading zeros, and has 32 bits for the seconds.
bool isBeyondLibplist(const Object& object) {
  const auto date = objectCast<NSDate>(object);
  return date && std::abs(date->timeIntervalSinceReferenceDate()) > 0x7FFFFFFF;
}

void expectSameThroughLibplist(const Object& object) {
  for (const auto from : {NSPropertyListFormat::XML, NSPropertyListFormat::Binary}) {
    for (const auto to : {NSPropertyListFormat::XML, NSPropertyListFormat::Binary}) {
      const auto reading = read(throughLibplist(written(object, from), to));
      ASSERT_NE(reading.object, nullptr)
          << reading.error << " of " << object->description().substr(0, 200);
      EXPECT_TRUE(reading.object->isEqual(object))
          << object->description().substr(0, 200) << " became "
          << reading.object->description().substr(0, 200);
    }
  }
}

TEST(Oracle, LibplistReadsWhatIsWrittenAndIsReadBack) {
  for (const auto& value : edgeValues()) {
    if (!isBeyondLibplist(value)) expectSameThroughLibplist(value);
  }
}

TEST(Oracle, EverythingAtOnceSurvivesTheDetour) {
  std::vector<Object> values = edgeValues();
  std::erase_if(values, isBeyondLibplist);
  expectSameThroughLibplist(nestedCopies(values));
}

}  // namespace
}  // namespace platform
