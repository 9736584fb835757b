// SPDX-License-Identifier: Apache-2.0

// The changes listed for scripts/mutation still fit the sources.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

std::string sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  return directory != nullptr ? directory : "";
}

std::string readFromSource(const std::string& name) {
  std::ifstream in(std::filesystem::path(sourceDirectory()) / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

std::size_t timesIn(const std::string& text, const std::string& part) {
  std::size_t times = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    ++times;
  return times;
}

TEST(Changes, EachHasExactlyOnePlaceInItsFile) {
  std::istringstream changes(readFromSource("tests/mutation/changes.txt"));
  std::string file;
  std::size_t count = 0;
  for (std::string line; std::getline(changes, line);) {
    if (line.starts_with("@ ")) file = line.substr(2);
    if (!line.starts_with("- ")) continue;
    std::string from = line.substr(2);
    replaceAll(from, "\\n", "\n");
    EXPECT_EQ(timesIn(readFromSource(file), from), 1U) << file << ": " << line;
    ++count;
  }
  EXPECT_GT(count, 80U);
}

}  // namespace
