// SPDX-License-Identifier: Apache-2.0

// Every character at every kind of position in a log line's header, compared with ICU. Ten million
// comparisons, so this is not a unit test.
#include <gtest/gtest.h>

#include <string>

#include "diagnostics/HeaderSearch.h"
#include "platform/foundation/Text.h"
#include "tests/support/HeaderOracle.h"

namespace diagnostics {
namespace {

std::string utf8(char32_t c) {
  std::string text;
  platform::appendUTF8(text, c);
  return text;
}

/// Positions in the usual line, one for each character set: a month's letter, a blank, a digit, a
/// colon, the host, the process, its number, the text before the last colon.
struct Place {
  std::string_view before;
  std::string_view after;
};

constexpr Place kPlaces[] = {
    {"No", " 21 03:12:45 host p[3]: t"},  {"Nov", "21 03:12:45 host p[3]: t"},
    {"Nov 2", " 03:12:45 host p[3]: t"},  {"Nov 21 03", "12:45 host p[3]: t"},
    {"Nov 21 03:12:45 h", " p[3]: t"},    {"Nov 21 03:12:45 host ", "[3]: t"},
    {"Nov 21 03:12:45 host p[", "]: t"},  {"Nov 21 03:12:45 host p[3]", ": t"},
    {"Nov 21 03:12:45 host p[3] x", "t"},
};

TEST(HeaderSweep, EveryCharacterAtEveryKindOfPlaceAnswersAsICU) {
  testsupport::HeaderOracle oracle;
  std::size_t found = 0;
  for (const auto& [before, after] : kPlaces) {
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
      if ((c >= 0xD800 && c <= 0xDFFF) || c == '\n') continue;  // a line contains no line feed
      const std::string line = std::string(before) + utf8(c) + std::string(after);
      const bool answer = beginsWithHeader(line);
      found += answer ? 1 : 0;
      ASSERT_EQ(answer, oracle.isHeader(line)) << "U+" << std::hex << std::uint32_t{c};
    }
  }
  EXPECT_GT(found, 1000000U);  // a host name may contain nearly any character
}

}  // namespace
}  // namespace diagnostics
