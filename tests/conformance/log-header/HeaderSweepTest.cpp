// Every character at every kind of place of a log line's header, held against ICU. Ten million
// answers, so it is no unit test.
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

/// Places of the usual line, one for each kind of set: a month's letter, a blank, a digit, a colon,
/// the host, the process, its number, what lies before the last colon.
struct Place {
  std::string_view before;
  std::string_view behind;
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
  for (const auto& [before, behind] : kPlaces) {
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
      if ((c >= 0xD800 && c <= 0xDFFF) || c == '\n') continue;  // no line has a line feed
      const std::string line = std::string(before) + utf8(c) + std::string(behind);
      const bool answer = beginsWithHeader(line);
      found += answer ? 1 : 0;
      ASSERT_EQ(answer, oracle.isHeader(line)) << "U+" << std::hex << std::uint32_t{c};
    }
  }
  EXPECT_GT(found, 1000000U);  // nearly any character may stand in a host's name
}

}  // namespace
}  // namespace diagnostics
