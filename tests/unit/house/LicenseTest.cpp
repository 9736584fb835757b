// SPDX-License-Identifier: Apache-2.0

// Every source says under which license it may be used.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

bool isSource(const fs::path& path) {
  return path.extension() == ".cpp" || path.extension() == ".h" || path.extension() == ".c" ||
         path.extension() == ".py" || path.extension() == ".cmake" ||
         path.filename() == "CMakeLists.txt" || path.parent_path().filename() == "scripts" ||
         path.parent_path().filename() == ".ci";
}

bool saysItsLicense(const fs::path& path) {
  std::ifstream in(path);
  std::string line;
  for (int i = 0; i < 2 && std::getline(in, line); ++i)  // a script begins with its interpreter
    if (line.ends_with("SPDX-License-Identifier: Apache-2.0")) return true;
  return false;
}

/// Those of the repository: not what is built, nor what a tool keeps.
std::vector<fs::path> sourcesOf(const fs::path& root) {
  std::vector<fs::path> sources;
  for (auto entry = fs::recursive_directory_iterator(root);
       entry != fs::recursive_directory_iterator(); ++entry) {
    const std::string name = entry->path().filename();
    const bool isOfTree = entry.depth() > 0 || (name != "out" && name != "build");
    if (entry->is_directory() && (name == ".git" || !isOfTree)) entry.disable_recursion_pending();
    if (entry->is_regular_file() && isSource(entry->path())) sources.push_back(entry->path());
  }
  return sources;
}

TEST(License, StandsAtTheTopOfEverySource) {
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  const std::vector<fs::path> sources = sourcesOf(root);
  for (const fs::path& each : sources) EXPECT_TRUE(saysItsLicense(each)) << each;
  EXPECT_GT(sources.size(), 500U);
  for (const char* const name : {"CMakeLists.txt", ".ci/run", "scripts/test"})
    EXPECT_EQ(std::ranges::count(sources, fs::path(root) / name), 1) << name;
}

}  // namespace
