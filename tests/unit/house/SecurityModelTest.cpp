// SPDX-License-Identifier: Apache-2.0

// docs/security-model.md names the tests and the files that stand for its claims: all of them
// exist.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

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

/// What the first group of the pattern matches in the page.
std::set<std::string> named(const std::string& pattern) {
  const std::string page = contentsOf(sourceDirectory() / "docs/security-model.md");
  const std::regex expression(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator each(page.begin(), page.end(), expression), end; each != end; ++each)
    found.insert((*each)[1]);
  return found;
}

/// "Suite.Name" of each test in a file. A declaration may take two lines.
std::set<std::string> testsIn(const fs::path& file) {
  static const std::regex declaration(R"(^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\))");
  std::set<std::string> found;
  std::ifstream in(file);
  for (std::string line, next; std::getline(in, line);) {
    if (!line.starts_with("TEST")) continue;
    if (line.find(')') == std::string::npos && std::getline(in, next)) line += next;
    std::smatch parts;
    if (std::regex_search(line, parts, declaration))
      found.insert(parts[1].str() + "." + parts[2].str());
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
  const std::set<std::string> all = named(R"(`([A-Z]\w*\.[A-Z]\w*)`)");
  for (const std::string& test : all) EXPECT_TRUE(existing.contains(test)) << test;
  EXPECT_GT(all.size(), 100U) << "hardly anything was found to check";
}

TEST(SecurityModel, NamesScenariosThatExist) {
  const std::set<std::string> all = named(R"(`([a-z-]+/[0-9]{2}-[a-z-]+)`)");
  for (const std::string& scenario : all) {
    EXPECT_TRUE(fs::exists(sourceDirectory() / "tests/vm/scenarios" / (scenario + ".sh")))
        << scenario;
  }
  EXPECT_GT(all.size(), 10U) << "hardly anything was found to check";
}

/// A header and its source are named together, without their endings.
TEST(SecurityModel, NamesFilesThatExist) {
  const fs::path source = sourceDirectory();
  const std::set<std::string> all = named(
      R"(`((?:debian|fuzz|helper-install|jobd|packaging|platform|router|tests|tool)/[^`]+)`)");
  for (const std::string& file : all)
    EXPECT_TRUE(fs::exists(source / file) || fs::exists(source / (file + ".h"))) << file;
  EXPECT_GT(all.size(), 30U) << "hardly anything was found to check";
}

}  // namespace
