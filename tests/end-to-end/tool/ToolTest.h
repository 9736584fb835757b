// SPDX-License-Identifier: Apache-2.0

// The command on the test's own system root.
//
// Ownership: the fixture removes the directory and ends what runs in it.
// Errors: as in Process.h.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Process.h"

namespace test {

/// A path below the source tree or the tree that is being tested.
[[nodiscard]] std::filesystem::path sourcePath(std::string_view relative);
[[nodiscard]] std::filesystem::path builtPath(std::string_view relative);
[[nodiscard]] std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view text);
/// One JSON document per line.
[[nodiscard]] std::vector<nlohmann::json> jsonLines(const std::string& text);
/// Processes that have `root` as an argument or as the root in their environment, except zombies.
[[nodiscard]] std::vector<pid_t> processesOfRoot(const std::filesystem::path& root);

class ToolTest : public testing::Test {
 protected:
  ToolTest();
  /// Removes the router, and fails the test if a process of this root outlives it.
  void TearDown() override;

  /// The command with `arguments`, on this root.
  [[nodiscard]] std::vector<std::string> wlhid(const std::vector<std::string>& arguments) const;
  [[nodiscard]] ProcessOptions options() const;
  [[nodiscard]] Outcome runTool(const std::vector<std::string>& arguments) const;
  /// The same on a terminal of its own: all output, including standard error, with "\n" as line
  /// end.
  [[nodiscard]] Outcome runToolOnTerminal(const std::vector<std::string>& arguments,
                                          int columns = 80) const;

  void install();
  /// Sets up a recording of the repository as a device and returns its ID as printed.
  std::string addDevice(std::string_view recording, const std::vector<std::string>& more = {});
  [[nodiscard]] std::vector<pid_t> jobDaemons() const;
  /// Waits for the processes of this root to end.
  void expectNoProcessLeft() const;

  const std::filesystem::path directory;  ///< for the test's files; the parent of the root
  std::filesystem::path root;
};

/// A word quoted for a shell command line.
[[nodiscard]] std::string inQuotes(std::string_view word);
/// The text holds no control or invisible characters except line feeds and tabs.
testing::AssertionResult isHarmless(std::string_view text);
/// The command failed cleanly: this exit status, nothing on standard output, one line "wlhid: …"
/// that contains `text`.
testing::AssertionResult isRefusal(const Outcome& outcome, int status, std::string_view text);

}  // namespace test
