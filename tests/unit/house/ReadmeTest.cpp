// SPDX-License-Identifier: Apache-2.0

// The programs in the README are those that are built and tested, and its pictures are those that a
// script draws.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(Readme, ShowsTheExamplesAsTheyAre) {
  const std::string readme = readFromSource("README.md");
  const std::pair<const char*, const char*> examples[] = {{"examples/client.cpp", "cpp"},
                                                          {"examples/input.cpp", "cpp"},
                                                          {"examples/c-poll.c", "c"},
                                                          {"examples/input.py", "python"}};
  for (const auto& [file, language] : examples) {
    const std::string example = readFromSource(file);
    ASSERT_FALSE(example.empty()) << file;
    EXPECT_NE(readme.find("```" + std::string(language) + "\n" + example + "```\n"),
              std::string::npos)
        << "the README's program differs from " << file;
  }
}

TEST(Readme, ShowsEveryPictureThatIsDrawnForIt) {
  const std::string readme = readFromSource("README.md");
  const std::string script = readFromSource("scripts/pictures");
  constexpr std::string_view kBegins = "\ndraw_";
  std::size_t pictures = 0;
  for (auto at = script.find(kBegins); at != std::string::npos; at = script.find(kBegins, at + 1)) {
    const auto begin = at + kBegins.size();
    const std::string name = script.substr(begin, script.find('(', begin) - begin);
    EXPECT_NE(readme.find("<img src=\"docs/pictures/" + name + ".svg\" alt=\""), std::string::npos)
        << name;
    ++pictures;
  }
  EXPECT_GT(pictures, 0U);
}

}  // namespace
