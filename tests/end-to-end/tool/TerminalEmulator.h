// SPDX-License-Identifier: Apache-2.0

// A command in a terminal emulator (tmux): keys are typed, and the screen is read.
//
// Threading: one thread.
// Ownership: the destructor ends the emulator and what runs in it.
// Errors: waits are bounded; a timeout throws std::runtime_error with the screen.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Process.h"

namespace test {

class TerminalEmulator {
 public:
  struct Size {
    int columns = 80;
    int rows = 24;
  };

  /// `directory` is for the emulator's files. Before the command "before" is on the screen, and
  /// after it "ended " with the exit status.
  TerminalEmulator(std::filesystem::path directory, const std::vector<std::string>& command,
                   ProcessOptions options, Size size);
  ~TerminalEmulator();
  TerminalEmulator(const TerminalEmulator&) = delete;
  TerminalEmulator& operator=(const TerminalEmulator&) = delete;

  void type(const std::string& key) const;  ///< "q", "Up", "C-c"
  void resize(Size size) const;

  [[nodiscard]] std::string screen() const;
  /// The same with the escape sequences that give its colours and attributes.
  [[nodiscard]] std::string styledScreen() const;
  /// Waits until the screen is as wanted, and returns it.
  std::string await(const std::function<bool(const std::string& screen)>& isWanted);
  std::string await(std::string_view text);
  std::string awaitStyled(const std::function<bool(const std::string& styledScreen)>& isWanted);
  std::string awaitGone(std::string_view text);

  /// The command's process.
  [[nodiscard]] pid_t process() const;
  /// Whether the terminal is as it was before the command: its settings, its screen, its cursor.
  [[nodiscard]] bool isRestored() const;

 private:
  [[nodiscard]] std::string tmux(const std::vector<std::string>& arguments) const;
  void awaitOutput() const;
  std::string awaitScreen(const std::function<std::string()>& read,
                          const std::function<bool(const std::string&)>& isWanted);

  const std::filesystem::path directory_;
  ProcessOptions options_;
  int changes_ = -1;  // readable when the command has written something
};

}  // namespace test
