// SPDX-License-Identifier: Apache-2.0

// docs/security-model.md names the tests and the files that stand for its claims: all of them
// exist.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

fs::path sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  return directory != nullptr ? fs::path(directory) : fs::path();
}

std::string contentsOf(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

using Condition = bool (*)(const std::string& text);

/// What the page quotes that fulfils the condition.
std::set<std::string> quoted(Condition isWanted) {
  std::istringstream page(contentsOf(sourceDirectory() / "docs/security-model.md"));
  std::set<std::string> found;
  std::string text;
  for (bool isQuoted = false; std::getline(page, text, '`'); isQuoted = !isQuoted)
    if (isQuoted && isWanted(text)) found.insert(text);
  return found;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isCapitalizedWord(std::string_view text) {
  const auto isPartOfAWord = [](char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  return !text.empty() && text.front() >= 'A' && text.front() <= 'Z' &&
         std::ranges::all_of(text, isPartOfAWord);
}

/// "Suite.Name"
bool isTest(const std::string& text) {
  const std::size_t point = text.find('.');
  return point != std::string::npos && isCapitalizedWord(std::string_view(text).substr(0, point)) &&
         isCapitalizedWord(std::string_view(text).substr(point + 1));
}

/// "group/01-name"
bool isScenario(const std::string& text) {
  const std::size_t slash = text.find('/');
  return slash != std::string::npos && text.size() > slash + 4 && isDigit(text[slash + 1]) &&
         isDigit(text[slash + 2]) && text[slash + 3] == '-';
}

bool isInTheTree(const std::string& text) {
  constexpr std::array<std::string_view, 9> kFolders{"debian/", "fuzz/",      "helper-install/",
                                                     "jobd/",   "packaging/", "platform/",
                                                     "router/", "tests/",     "tool/"};
  return std::ranges::any_of(kFolders,
                             [&](std::string_view each) { return text.starts_with(each); });
}

/// "Suite.Name" of each test in a file. A declaration may take two lines.
std::set<std::string> testsIn(const fs::path& file) {
  std::set<std::string> found;
  std::ifstream in(file);
  for (std::string line, next; std::getline(in, line);) {
    if (!line.starts_with("TEST(") && !line.starts_with("TEST_")) continue;
    if (line.find(')') == std::string::npos && std::getline(in, next)) line += next;
    std::erase(line, ' ');
    const std::size_t suite = line.find('(') + 1;
    const std::size_t comma = line.find(',', suite);
    const std::size_t end = line.find(')', suite);
    if (suite == 0 || comma == std::string::npos || end < comma) continue;
    found.insert(line.substr(suite, comma - suite) + "." + line.substr(comma + 1, end - comma - 1));
  }
  return found;
}

std::set<std::string> tests() {
  std::set<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(sourceDirectory() / "tests"))
    if (entry.path().extension() == ".cpp") found.merge(testsIn(entry.path()));
  return found;
}

TEST(SecurityModel, NamesTestsThatExist) {
  const std::set<std::string> existing = tests();
  const std::set<std::string> all = quoted(isTest);
  for (const std::string& test : all) EXPECT_TRUE(existing.contains(test)) << test;
  EXPECT_GT(all.size(), 100U) << "hardly anything was found to check";
}

TEST(SecurityModel, NamesScenariosThatExist) {
  const std::set<std::string> all = quoted(isScenario);
  for (const std::string& scenario : all) {
    EXPECT_TRUE(fs::exists(sourceDirectory() / "tests/vm/scenarios" / (scenario + ".sh")))
        << scenario;
  }
  EXPECT_GT(all.size(), 10U) << "hardly anything was found to check";
}

/// A header and its source are named together, without their endings.
TEST(SecurityModel, NamesFilesThatExist) {
  const fs::path source = sourceDirectory();
  const std::set<std::string> all = quoted(isInTheTree);
  for (const std::string& file : all)
    EXPECT_TRUE(fs::exists(source / file) || fs::exists(source / (file + ".h"))) << file;
  EXPECT_GT(all.size(), 30U) << "hardly anything was found to check";
}

}  // namespace
