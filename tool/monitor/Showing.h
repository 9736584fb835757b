// SPDX-License-Identifier: Apache-2.0

// Ways to show what a session knows: on a terminal, as lines, as a picture.
//
// Threading: one thread, which blocks until the showing is over.
// Errors: Failure.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tool/monitor/FullScreen.h"
#include "tool/monitor/Session.h"
#include "tool/terminal/StopSignals.h"

namespace tool::monitor {

using Clock = std::chrono::steady_clock;

/// Until somebody quits, a signal comes or the time is over.
void showOnTerminal(Session& session, FullScreen& terminal, const StopSignals& signals,
                    Clock::time_point end);

/// For a terminal that cannot move its cursor, and for pipes: a line for each device that comes,
/// changes or goes, and one for the open device in each second in which something came.
void showLines(Session& session, const StopSignals& signals, Clock::time_point end);

struct PictureOptions {
  std::string file;  ///< is replaced
  int rows = 0;
  int columns = 0;
  Look look;
  std::uint64_t reports = 0;  ///< after which it is drawn
};
/// Draws once the reports have come, or no more will, or the time is over.
void showPicture(Session& session, const PictureOptions& options, const StopSignals& signals,
                 Clock::time_point end);

/// The same of a recording, with its own times, so that the picture is always the same.
void drawRecording(const std::string& recording, const PictureOptions& options);

/// The open device in a line: "routing X; 125 reports/s; X=900 Y=490".
[[nodiscard]] std::string lineOf(const Shown& shown);

}  // namespace tool::monitor
