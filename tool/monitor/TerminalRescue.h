// SPDX-License-Identifier: Apache-2.0

// Brings the terminal back when the process fails, or is told to fail (Ctrl-\ from elsewhere): a
// shell that cannot be read is worse than the failure.
//
// Threading: the thread that created it; the signals may come on any.
// Ownership: keeps what the signals did before, and restores it. One at a time.
#pragma once

#include <array>
#include <csignal>

namespace tool::monitor {

class TerminalRescue {
 public:
  /// Remembers how standard input's terminal is set up.
  TerminalRescue();
  ~TerminalRescue();
  TerminalRescue(const TerminalRescue&) = delete;
  TerminalRescue& operator=(const TerminalRescue&) = delete;

  /// From now on: writes these to standard output, each of which may be null, sets the terminal up
  /// as it was, and lets the signal do what it would have done.
  void arm(const char* one, const char* two, const char* three);

 private:
  static constexpr std::array kSignals{SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
  std::array<struct sigaction, kSignals.size()> before_{};
  bool isArmed_ = false;
};

}  // namespace tool::monitor
