// What a command may do on the terminal that it writes to.
//
// Threading: any thread; a Progress belongs to one.
// Ownership: descriptors stay the caller's.
// Errors: of printBytes those of print; else none: a terminal that cannot be written to shows
//   nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

/// Whether colours are wanted there: a terminal that has them, and NO_COLOR is not set.
[[nodiscard]] bool showsColours(int descriptor);
/// The columns of the terminal there, as wide as it is now; 0 where there is none.
[[nodiscard]] std::size_t columnsOfTerminal(int descriptor);
/// Bytes to standard output: as they are where it is a file or a pipe; a terminal gets them
/// printable, with a line feed at the end.
void printBytes(std::string_view bytes);

/// One line on standard error that says what is being done, on a terminal only; it is gone when the
/// object is.
class Progress {
 public:
  explicit Progress(int steps);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// The next step begins.
  void step(std::string_view what);

 private:
  const int steps_;
  const bool shown_;
  int done_ = 0;
};

}  // namespace tool
