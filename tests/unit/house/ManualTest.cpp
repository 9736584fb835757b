// SPDX-License-Identifier: Apache-2.0

// The manual page and the completion name every verb of the command.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The words in small letters that follow one.
std::set<std::string> wordsAfter(const std::string& text, const std::string& one) {
  constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyz";
  std::set<std::string> found;
  for (std::size_t at = text.find(one); at != std::string::npos; at = text.find(one, at)) {
    at += one.size();
    const std::size_t end = text.find_first_not_of(kLetters, at);
    if (end > at && end != std::string::npos) found.insert(text.substr(at, end - at));
  }
  return found;
}

std::string withoutSpace(std::string text) {
  std::erase_if(text, [](unsigned char each) { return std::isspace(each) != 0; });
  return text;
}

std::set<std::string> verbs() {
  std::set<std::string> found{"help"};
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  const std::filesystem::path source(directory != nullptr ? directory : "");
  for (const auto& entry : std::filesystem::directory_iterator(source / "tool/verbs")) {
    const std::string text = readFromSource("tool/verbs/" + entry.path().filename().string());
    found.merge(wordsAfter(withoutSpace(text), R"(app.add_subcommand(")"));
  }
  return found;
}

TEST(Manual, NamesEveryVerb) {
  EXPECT_GT(verbs().size(), 9U);
  const std::string page = readFromSource("packaging/tool/wlhid.1");
  std::set<std::string> described = wordsAfter(page, ".TP\n.B ");
  described.merge(wordsAfter(page, ".TP\n.BI "));
  EXPECT_EQ(described, verbs());
}

TEST(Completion, NamesEveryVerb) {
  const std::string text = readFromSource("packaging/tool/wlhid.bash-completion");
  constexpr std::string_view kBegin = "verbs=\"";
  const std::size_t begin = text.find(kBegin);
  ASSERT_NE(begin, std::string::npos);
  const std::size_t first = begin + kBegin.size();
  std::istringstream list(text.substr(first, text.find('"', first) - first));
  const std::set<std::string> completed(std::istream_iterator<std::string>(list), {});
  EXPECT_EQ(completed, verbs());
}

}  // namespace
