// SPDX-License-Identifier: Apache-2.0

// Every script explains itself when asked with --help, before it does anything.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
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

}  // namespace
