// SPDX-License-Identifier: Apache-2.0

// The monitor's screen, drawn afresh each time.
//
// Threading: one thread at a time.
// Errors: none.
#pragma once

#include "tool/monitor/Layout.h"
#include "tool/monitor/Screen.h"
#include "tool/monitor/Shown.h"

namespace tool::monitor {

/// Onto an empty screen of any size.
void draw(const Shown& shown, Screen& screen);

// Its parts, each in its place, whose first row is the title.
void drawHead(const Shown& shown, Screen& screen);
void drawHelp(Screen& screen);
void drawKeyLine(const Shown& shown, Screen& screen);
void drawDevices(const Shown& shown, const Rect& rect, Screen& screen);
void drawElements(const Shown& shown, const Rect& rect, Screen& screen);
void drawPath(const Shown& shown, const Rect& rect, Screen& screen);
void drawBoard(const Shown& shown, const Rect& rect, Screen& screen);
void drawReports(const Shown& shown, const Rect& rect, Screen& screen);

/// "310 µs", "8.02 ms", "1.50 s"
[[nodiscard]] std::string timeText(Time time, bool hasUnicode);

}  // namespace tool::monitor
