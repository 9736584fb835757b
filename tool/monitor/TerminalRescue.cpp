// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/TerminalRescue.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace tool::monitor {

namespace {

/// A signal handler reaches nothing else, and may call nothing that takes a lock.
struct Remembered {
  termios settings{};
  bool hasSettings = false;
  std::array<char, 256> text{};
  std::size_t length = 0;
};
Remembered remembered;

void append(const char* text) {
  if (text == nullptr) return;
  const std::size_t room = remembered.text.size() - remembered.length;
  const std::size_t length = std::min(std::strlen(text), room);
  std::copy_n(text, length,
              remembered.text.begin() + static_cast<std::ptrdiff_t>(remembered.length));
  remembered.length += length;
}

void bringBack(int number) {
  static_cast<void>(!::write(STDOUT_FILENO, remembered.text.data(), remembered.length));
  if (remembered.hasSettings) ::tcsetattr(STDIN_FILENO, TCSANOW, &remembered.settings);
  ::raise(number);  // SA_RESETHAND has made ending the process its action
}

}  // namespace

TerminalRescue::TerminalRescue() {
  remembered = {};
  remembered.hasSettings = ::tcgetattr(STDIN_FILENO, &remembered.settings) == 0;
}

void TerminalRescue::arm(const char* one, const char* two, const char* three) {
  for (const char* const text : {one, two, three}) append(text);
  struct sigaction action {};
  action.sa_handler = bringBack;
  action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_NODEFER;
  for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &action, &before_[i]);
  isArmed_ = true;
}

TerminalRescue::~TerminalRescue() {
  if (!isArmed_) return;
  for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &before_[i], nullptr);
}

}  // namespace tool::monitor
