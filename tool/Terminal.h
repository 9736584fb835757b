// What a command may do on the terminal that it writes to.
//
// Threading: any thread; a Progress belongs to one. Ownership: descriptors stay the caller's.
// Errors: none; a terminal that cannot be written to shows nothing. Order: none.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Whether colours are wanted there: a terminal that has them, and NO_COLOR is not set.
[[nodiscard]] bool showsColours(int descriptor);
/// The text with every control character but line feed and tab as "?", also those beyond ASCII.
[[nodiscard]] std::string safeForTerminal(std::string_view text);

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
