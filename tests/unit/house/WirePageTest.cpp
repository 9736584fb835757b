// SPDX-License-Identifier: Apache-2.0

// What docs/wire-protocol.md says around the bytes: the router's error codes and the keys of what
// it shows are those of its sources. (The bytes themselves are tested in tests/unit/xpc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string page() {
  return readFromSource("docs/wire-protocol.md");
}

/// The numbers of router/RouterErrors.h.
std::set<std::int64_t> codes() {
  std::set<std::int64_t> found;
  std::istringstream header(readFromSource("router/RouterErrors.h"));
  for (std::string line; std::getline(header, line);)
    if (const auto at = line.find(" = -"); at != std::string::npos)
      found.insert(std::stoll(line.substr(at + 3)));
  return found;
}

/// As a row of the page's table begins.
std::string rowOf(std::int64_t code) {
  std::array<char, 64> row{};
  std::snprintf(row.data(), row.size(), "\n| `0x%08X` | −%lld | ", static_cast<unsigned>(code),
                static_cast<long long>(-code));
  return row.data();
}

TEST(WirePage, HasEveryErrorCodeAndNoOther) {
  const std::string text = page();
  for (const std::int64_t code : codes())
    EXPECT_NE(text.find(rowOf(code)), std::string::npos) << rowOf(code);
  std::size_t rows = 0;
  for (auto at = text.find("\n| `0x"); at != std::string::npos; at = text.find("\n| `0x", at + 1))
    ++rows;
  EXPECT_EQ(rows, codes().size());
  EXPECT_GE(rows, 9U);
}

/// String literals that are one capitalized word.
std::set<std::string> keysIn(const std::string& source) {
  std::istringstream text(readFromSource(source));
  std::set<std::string> found;
  std::string part;
  for (bool isQuoted = false; std::getline(text, part, '"'); isQuoted = !isQuoted) {
    const bool isWord = !part.empty() && std::isupper(static_cast<unsigned char>(part[0])) != 0 &&
                        std::ranges::all_of(part, [](unsigned char c) { return std::isalpha(c); });
    if (isQuoted && isWord) found.insert(part);
  }
  return found;
}

TEST(WirePage, HasEveryKeyOfWhatTheRouterShows) {
  const std::string text = page();
  std::size_t keys = 0;
  for (const char* source : {"router/StatusFormat.cpp", "router/control/DeviceListing.cpp"}) {
    for (const std::string& key : keysIn(source)) {
      EXPECT_NE(text.find("`" + key + "`"), std::string::npos) << source << ": " << key;
      ++keys;
    }
  }
  EXPECT_GE(keys, 25U);
}

TEST(WirePage, HasExamplesThatFitOnAScreenOrTwo) {
  for (const char* name : {"examples/client.py", "examples/router.py"}) {
    const std::string text = readFromSource(name);
    EXPECT_LT(std::ranges::count(text, '\n'), 100) << name;
    EXPECT_GT(std::ranges::count(text, '\n'), 50) << name;
  }
}

}  // namespace
