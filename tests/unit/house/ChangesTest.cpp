// SPDX-License-Identifier: Apache-2.0

// The changes listed for scripts/mutation still fit the sources, and the page about them names
// each.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

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

/// Each as its row of docs/mutations.md begins, without who caught it: "| 1 | `Wire.h` | what |".
std::vector<std::string> listedChanges() {
  std::istringstream changes(readFromSource("tests/mutation/changes.txt"));
  std::vector<std::string> rows;
  std::string file;
  for (std::string line; std::getline(changes, line);) {
    if (line.starts_with("@ ")) file = std::filesystem::path(line.substr(2)).filename();
    if (!line.starts_with("? ")) continue;
    const std::string number = std::to_string(rows.size() + 1);
    rows.push_back("| " + number + " | `" + file + "` | " + line.substr(2) + " |");
  }
  return rows;
}

/// The rows in the page's last section, each up to who caught it.
std::vector<std::string> shownChanges(const std::string& page) {
  std::istringstream table(page.substr(page.find("\n## The list\n")));
  std::vector<std::string> rows;
  for (std::string line; std::getline(table, line);) {
    if (!line.starts_with("| ") || line.starts_with("| # ")) continue;
    const std::size_t end = line.find(" |", line.find("` | ") + 4);
    rows.push_back(line.substr(0, end + 2));
  }
  return rows;
}

TEST(Changes, ThePageNamesEachUnderItsNumber) {
  const std::string page = readFromSource("docs/mutations.md");
  ASSERT_NE(page.find("\n## The list\n"), std::string::npos);
  const std::vector<std::string> shown = shownChanges(page);
  const std::vector<std::string> listed = listedChanges();
  for (const std::string& row : listed)
    EXPECT_EQ(std::ranges::count(shown, row), 1) << "missing in the page: " << row;
  EXPECT_EQ(shown.size(), listed.size());
  const std::string count = "\nAll " + std::to_string(listed.size()) + " changes have ";
  EXPECT_NE(page.find(count), std::string::npos) << "the page does not say:" << count;
}

}  // namespace
