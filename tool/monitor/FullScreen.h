// SPDX-License-Identifier: Apache-2.0

// A terminal that shows screens and yields keys. The only part that knows curses.
//
// Threading: the thread that opened it.
// Ownership: meanwhile nothing else reaches the terminal, standard error included. It is as before
//   when the object is gone, and also when the process is ended by a signal that can be caught.
// Errors: open() says with null that standard input and output are no terminal that could do it.
// Order: open it before the process has a second thread, since it sets the locale. One at a time.
#pragma once

#include <memory>
#include <optional>

#include "tool/monitor/Screen.h"
#include "tool/monitor/Steering.h"

namespace tool::monitor {

class FullScreen {
 public:
  /// `isPlain`: ASCII alone, whatever the locale says.
  [[nodiscard]] static std::unique_ptr<FullScreen> open(bool isPlain);
  ~FullScreen();
  FullScreen(const FullScreen&) = delete;
  FullScreen& operator=(const FullScreen&) = delete;

  /// An empty screen of the terminal's present size.
  [[nodiscard]] Screen blank();
  /// Sends what differs from the screen before.
  void show(Screen screen);
  /// The next key that was typed, if any.
  [[nodiscard]] std::optional<Key> key();
  /// Gives the terminal back, stops the process, and takes the terminal again when it continues.
  void suspend();

 private:
  struct Terminal;
  FullScreen(std::unique_ptr<Terminal> terminal, Look look);
  void drawCell(int row, int column, const Cell& cell);

  const std::unique_ptr<Terminal> terminal_;
  const Look look_;
  std::optional<Screen> before_;
};

}  // namespace tool::monitor
