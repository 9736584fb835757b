// SPDX-License-Identifier: Apache-2.0

// The client in the README is the one that is built and tested, and its pictures are there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(Readme, ShowsTheExampleAsItIs) {
  const std::string example = readFromSource("examples/client.cpp");
  ASSERT_FALSE(example.empty());
  EXPECT_NE(readFromSource("README.md").find("```cpp\n" + example + "```\n"), std::string::npos)
      << "the README's client differs from examples/client.cpp";
}

TEST(Readme, ShowsEveryPictureThatIsThere) {
  const std::string readme = readFromSource("README.md");
  const std::string script = readFromSource("scripts/pictures");
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  std::size_t pictures = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(root) / "docs/pictures")) {
    const std::string name = entry.path().filename().string();
    EXPECT_NE(readme.find("<img src=\"docs/pictures/" + name + "\" alt=\""), std::string::npos)
        << name;
    EXPECT_NE(script.find("\ndraw_" + entry.path().stem().string() + "() {"), std::string::npos)
        << name;
    ++pictures;
  }
  EXPECT_GT(pictures, 0U);
}

}  // namespace
