// SPDX-License-Identifier: Apache-2.0

// The programs in the README are those that are built and tested.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
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

}  // namespace
