// SPDX-License-Identifier: Apache-2.0

// The client in the README is the one that is built and tested.
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

}  // namespace
