// SPDX-License-Identifier: Apache-2.0

// Property lists of a million objects and of many megabytes: at the limits, and one beyond.
#include <gtest/gtest.h>

#include "tests/unit/foundation/PropertyListSamples.h"

namespace platform {
namespace {

using namespace samples;

constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr std::size_t kMostObjects = std::size_t{1} << 20;
constexpr std::string_view kNotRead = "NSCocoaErrorDomain 3840: Not a property list: ";
constexpr std::string_view kNotWritten =
    "NSCocoaErrorDomain 3851: Cannot write the property list: ";

TEST(PropertyListLimits, XMLIsReadUpToItsManyObjects) {
  const auto list = [](std::size_t count) {
    std::string text = "<array>";
    for (std::size_t i = 0; i < count; ++i) text += "<true/>";
    return text + "</array>";
  };
  EXPECT_NE(readXML(list(kMostObjects - 1)).object, nullptr);
  EXPECT_EQ(readXML(list(kMostObjects)).error, std::string(kNotRead) + "too many objects");
}

// Data within the limit is examined, and found not to be text.
TEST(PropertyListLimits, DataIsReadUpToItsManyBytes) {
  std::string bytes(kMostBytes, '\xFF');
  EXPECT_EQ(read(bytes).error, std::string(kNotRead) + "text that is not UTF-8");
  bytes += '\xFF';
  EXPECT_EQ(read(bytes).error, std::string(kNotRead) + "larger than 64 MiB");
}

TEST(PropertyListLimits, AsManyObjectsAreWrittenAsAreReadAgain) {
  std::vector<Object> many(kMostObjects, integer(1));
  const auto tooMany = array(many);
  many.pop_back();
  for (const auto format : {NSPropertyListFormat::XML, NSPropertyListFormat::Binary}) {
    EXPECT_EQ(written(tooMany, format), std::string(kNotWritten) + "too many objects");
    EXPECT_NE(read(written(array(many), format)).object, nullptr);
  }
}

TEST(PropertyListLimits, MoreThan64MiBAreNotWritten) {
  const auto large = dataOf(std::string(kMostBytes, 'x'));
  for (const auto format : {NSPropertyListFormat::XML, NSPropertyListFormat::Binary}) {
    EXPECT_EQ(written(large, format), std::string(kNotWritten) + "larger than 64 MiB");
  }
  const auto of = [](std::size_t size) {
    return written(dataOf(std::string(size, 'x')), NSPropertyListFormat::Binary);
  };
  const std::size_t around = of(100'000).size() - 100'000;  // the same for any length of four bytes
  EXPECT_EQ(of(kMostBytes - around).size(), kMostBytes);
  EXPECT_EQ(of(kMostBytes - around + 1), std::string(kNotWritten) + "larger than 64 MiB");
}

}  // namespace
}  // namespace platform
