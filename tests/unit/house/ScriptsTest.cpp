// SPDX-License-Identifier: Apache-2.0

// Every script explains itself when asked with --help, before it does anything; and one of them
// runs all that the README names.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

bool answersHelp(const fs::path& script) {
  const std::string usage = "usage_if_asked \"usage: scripts/" + script.filename().string();
  std::ifstream in(script);
  std::string line;
  while (std::getline(in, line) && (line.starts_with('#') || line.starts_with("source "))) {
  }
  return line.starts_with(usage);
}

TEST(Scripts, AnswerHelpFirst) {
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  std::size_t checked = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(root) / "scripts")) {
    if (entry.path().extension() == ".sh") continue;  // sourced, never run
    ++checked;
    EXPECT_TRUE(answersHelp(entry.path())) << entry.path();
  }
  EXPECT_GE(checked, 13U);
}

std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  if (from == std::string::npos) return {};
  return text.substr(from, text.find(end, from) - from);
}

std::set<std::string> wordsOf(const std::string& text) {
  static const std::regex kWord("[a-z0-9-]+");
  return {std::sregex_token_iterator(text.begin(), text.end(), kWord), {}};
}

/// The scripts, and what they are to be told, that the README lists above scripts/check-all.
std::set<std::string> listedInReadme(const std::string& readme) {
  std::istringstream lines(between(readme, "\n## Working on it\n", "\nscripts/check-all"));
  std::string commands;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("scripts/")) commands += line.substr(0, line.find("  ")) + "\n";
  }
  std::set<std::string> words = wordsOf(std::regex_replace(commands, std::regex("\\[.*\\]"), ""));
  words.erase("scripts");
  return words;
}

std::string read(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Scripts, CheckAllRunsAllThatTheReadmeNames) {
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  const std::set<std::string> listed = listedInReadme(read(fs::path(root) / "README.md"));
  EXPECT_GT(listed.size(), 20U);
  const auto run =
      wordsOf(between(read(fs::path(root) / "scripts/check-all"), "\nrun_check()", "\n}\n"));
  for (const std::string& each : listed) EXPECT_TRUE(run.contains(each)) << each;
}

}  // namespace
