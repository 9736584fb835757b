// SPDX-License-Identifier: Apache-2.0

// The manual page and the completion name every verb of the command.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// What the first group of the pattern matches.
std::set<std::string> matches(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator each(text.begin(), text.end(), expression), end; each != end; ++each)
    found.insert((*each)[1]);
  return found;
}

std::set<std::string> verbs() {
  std::set<std::string> found{"help"};
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  const std::filesystem::path source(directory != nullptr ? directory : "");
  for (const auto& entry : std::filesystem::directory_iterator(source / "tool/verbs")) {
    const std::string text = readFromSource("tool/verbs/" + entry.path().filename().string());
    found.merge(matches(text, R"(app\s*\.add_subcommand\(\s*"([a-z]+)\")"));
  }
  return found;
}

TEST(Manual, NamesEveryVerb) {
  EXPECT_GT(verbs().size(), 9U);
  EXPECT_EQ(matches(readFromSource("packaging/tool/wlhid.1"), R"(\.TP\n\.BI? ([a-z]+))"), verbs());
}

TEST(Completion, NamesEveryVerb) {
  const std::string text = readFromSource("packaging/tool/wlhid.bash-completion");
  const auto list = matches(text, R"re(verbs="([a-z ]+)")re");
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(matches(*list.begin(), "([a-z]+)"), verbs());
}

}  // namespace
