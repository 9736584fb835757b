// SPDX-License-Identifier: Apache-2.0

// What the terminal that a command writes to can show.
//
// Threading: any thread; a Progress belongs to one.
// Ownership: descriptors stay the caller's.
// Errors: printBytes as print; otherwise none: a terminal that cannot be written to shows nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

/// Whether to use colours there: it is a terminal that has them, and NO_COLOR is not set.
[[nodiscard]] bool showsColours(int descriptor);
/// Whether it is a terminal whose cursor can be moved.
[[nodiscard]] bool canMove(int descriptor);
/// The terminal's current width in columns; 0 if it is not a terminal.
[[nodiscard]] std::size_t columnsOfTerminal(int descriptor);
/// Bytes to standard output: unchanged for a file or a pipe; made printable, with a line feed at
/// the end, for a terminal.
void printBytes(std::string_view bytes);

/// One line on standard error that changes, on a terminal only; it disappears with the object.
class StatusLine {
 public:
  StatusLine();
  ~StatusLine();
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  void show(std::string_view text);
  [[nodiscard]] bool isShown() const { return isShown_; }

 private:
  const bool isShown_;
  bool isEmpty_ = true;
};

/// One line on standard error that says what is being done, on a terminal only; it disappears with
/// the object.
class Progress {
 public:
  explicit Progress(int steps) : steps_(steps) {}

  /// The next step begins.
  void step(std::string_view what);

 private:
  const int steps_;
  int done_ = 0;
  StatusLine line_;
};

}  // namespace tool
