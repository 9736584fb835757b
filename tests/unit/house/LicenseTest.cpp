// SPDX-License-Identifier: Apache-2.0

// Every source says under which license it may be used.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

bool isSource(const fs::path& path) {
  return path.extension() == ".cpp" || path.extension() == ".h" || path.extension() == ".py" ||
         path.extension() == ".cmake" || path.filename() == "CMakeLists.txt" ||
         path.parent_path().filename() == "scripts";
}

bool saysItsLicense(const fs::path& path) {
  std::ifstream in(path);
  std::string line;
  for (int i = 0; i < 2 && std::getline(in, line); ++i)  // a script begins with its interpreter
    if (line.ends_with("SPDX-License-Identifier: Apache-2.0")) return true;
  return false;
}

TEST(License, StandsAtTheTopOfEverySource) {
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  std::size_t sources = 0;
  for (const auto& folder : fs::directory_iterator(root)) {
    const std::string name = folder.path().filename();
    if (!folder.is_directory() || name == "out" || name == "build" || name.starts_with("."))
      continue;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (!entry.is_regular_file() || !isSource(entry.path())) continue;
      ++sources;
      EXPECT_TRUE(saysItsLicense(entry.path())) << entry.path();
    }
  }
  EXPECT_GT(sources, 500U);
}

}  // namespace
