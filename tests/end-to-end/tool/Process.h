// SPDX-License-Identifier: Apache-2.0

// A child process with its standard streams in pipes, for tests that use a program as a person
// would.
//
// Threading: the thread that started it.
// Ownership: the destructor kills and reaps the process if it still runs.
// Errors: waits are bounded; a timeout throws std::runtime_error with the output so far.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

/// How long a test waits for anything before it fails.
inline constexpr std::chrono::seconds kTimeout{60};

struct ProcessOptions {
  std::vector<std::pair<std::string, std::string>>
      environment;  ///< in place of the variables of these names; "" unsets
  std::optional<std::string> standardOutput;  ///< a path to write to, instead of a pipe
};

class Process {
 public:
  explicit Process(const std::vector<std::string>& command, const ProcessOptions& options = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  /// Everything read so far.
  [[nodiscard]] const std::string& output() const { return out_.text; }
  [[nodiscard]] const std::string& errorOutput() const { return err_.text; }
  [[nodiscard]] std::vector<std::string> outputLines() const;

  /// Reads until standard output satisfies `enough`.
  void waitForOutput(const std::function<bool(const std::string&)>& enough);
  void waitForOutputContaining(std::string_view text);
  /// Waits, without reading, until the program blocks writing to standard output.
  void waitUntilWritingIsStuck() const;
  /// Closes the reading end of standard output.
  void closeOutput();
  void signal(int number) const;
  /// Reads both streams to the end and reaps. Returns the exit status, or 128 + the signal number.
  int wait();

 private:
  struct Stream {
    int descriptor = -1;
    std::string text;
    void close();
  };
  bool readSome(std::chrono::steady_clock::time_point deadline);

  pid_t pid_ = -1;
  std::optional<int> status_;
  Stream out_;
  Stream err_;
};

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs a command to completion.
[[nodiscard]] Outcome run(const std::vector<std::string>& command,
                          const ProcessOptions& options = {});
[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);

}  // namespace test
