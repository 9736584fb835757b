// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Draw.h"

#include <algorithm>
#include <array>
#include <string>

#include "platform/foundation/Format.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

using platform::stringWithFormat;

constexpr Style kTitleStyle{Colour::Accent, true, false, true};

Style styleOf(Health health) {
  switch (health) {
    case Health::Good:
      return {Colour::Good, true};
    case Health::Bad:
      return {Colour::Bad, true};
    case Health::Waiting:
      break;
  }
  return {Colour::Warning};
}

std::string flagsOf(const Shown& shown) {
  std::string flags;
  if (shown.isPaused)
    flags +=
        "PAUSED" + (shown.waiting == 0 ? "" : " " + std::to_string(shown.waiting) + " wait") + "  ";
  if (shown.isRecording) flags += "RECORDING " + std::to_string(shown.recorded) + "  ";
  if (shown.isExclusive) flags += "EXCLUSIVE  ";
  return flags;
}

void drawTitleBar(const Shown& shown, Screen& screen) {
  for (int column = 0; column < screen.columns(); ++column)
    screen.put(0, column, U' ', kTitleStyle);
  const std::string flags = flagsOf(shown);
  const int room = screen.columns() - columnsOf(flags) - 1;
  screen.write(0, 1, room - 1, "wlhid monitor" + (shown.open ? "  " + shown.name : ""),
               kTitleStyle);
  screen.writeRight(0, room, columnsOf(flags), flags, kTitleStyle);
}

void drawState(const Shown& shown, int width, Screen& screen) {
  const int used = screen.write(1, 1, width, shown.state, styleOf(shown.health));
  if (!shown.since.empty()) screen.write(1, used + 2, width - used - 1, "since " + shown.since);
}

/// A narrow screen has no room for the long intervals beside the latency.
std::string paceText(const Shown& shown, bool hasUnicode, bool isNarrow) {
  const auto time = [hasUnicode](Time each) { return timeText(each, hasUnicode); };
  const Pace& pace = shown.model->pace();
  std::string text = stringWithFormat("%.0f reports/s", pace.perSecond(shown.now));
  if (const auto intervals = pace.intervals()) {
    text += "  every " + time(intervals->median) + ", ";
    if (!isNarrow || !shown.latency) text += "99 % within " + time(intervals->longOnes) + ", ";
    text += "jitter " + time(intervals->jitter);
  }
  if (shown.latency)
    text += "  latency " + time(shown.latency->median) + " (99 % " + time(shown.latency->longOnes) +
            ")";
  return text;
}

std::string countText(const Shown& shown) {
  std::string text = std::to_string(shown.model->pace().count()) + " in all";
  if (shown.lost) text += ", " + lossText(*shown.lost);
  if (shown.leftOut > 0) text += ", " + std::to_string(shown.leftOut) + " not shown";
  return text;
}

void drawPane(const Shown& shown, const Pane& pane, Screen& screen) {
  switch (pane.what) {
    case View::All:
    case View::Devices:
      return drawDevices(shown, pane.rect, screen);
    case View::Elements:
      return drawElements(shown, pane.rect, screen);
    case View::Path:
      return drawPath(shown, pane.rect, screen);
    case View::Board:
      return drawBoard(shown, pane.rect, screen);
    case View::Reports:
      return drawReports(shown, pane.rect, screen);
  }
}

/// A narrow screen has the first ones only.
constexpr std::array kKeys{"? help",   "q quit",      "Enter open", "p pause",       "s step",
                           "r record", "x exclusive", "Tab view",   "Up/Down choose"};

constexpr std::array kHelp{
    "Up Down      choose a device, or scroll the elements",
    "Enter        show the chosen device; again: try again at once",
    "Tab          the next view: all, devices, elements, path, board, reports",
    "PgUp PgDn    scroll the elements",
    "p, blank     pause the screen, and go on; reports wait meanwhile",
    "s            pause, and show one report more with each key",
    "r            record to a file in this directory, and stop recording",
    "x            exclusive: nobody else gets the device's input; and back",
    "?, h         this help",
    "q, Ctrl-C    quit",
    "",
    "A changed byte of a report has a mark before it. Jitter is the mean",
    "distance from the usual interval; pauses are left out. Latency is the",
    "time from the router's reading a report to its arrival here.",
};

}  // namespace

std::string timeText(Time time, bool hasUnicode) {
  const auto count = static_cast<double>(time.count());
  if (count < 1000) return stringWithFormat(hasUnicode ? "%.0f µs" : "%.0f us", count);
  if (count < 1e6) return stringWithFormat("%.2f ms", count / 1e3);
  return stringWithFormat("%.2f s", count / 1e6);
}

void drawHead(const Shown& shown, Screen& screen) {
  drawTitleBar(shown, screen);
  if (!shown.open) return;
  if (shown.model == nullptr) return drawState(shown, screen.columns() - 2, screen);
  const std::string counts = countText(shown);
  const int room = screen.columns() - columnsOf(counts) - 2;
  const bool isNarrow = screen.columns() < 100;
  const std::string pace = paceText(shown, screen.look().hasUnicode, isNarrow);
  // On a narrow screen the counts stand in the row above.
  const bool hasRoom = columnsOf(pace) + 3 < room;
  drawState(shown, hasRoom ? screen.columns() - 2 : room - 1, screen);
  screen.write(2, 1, screen.columns() - 2, pace);
  const Style style{shown.lost && shown.lost->reports > 0 ? Colour::Bad : Colour::Usual};
  screen.writeRight(hasRoom ? 2 : 1, room, columnsOf(counts) + 1, counts, style);
}

void drawHelp(Screen& screen) {
  drawTitle(screen, 1, 0, screen.columns(), "Keys");
  for (std::size_t i = 0; i < kHelp.size(); ++i)
    screen.write(static_cast<int>(i) + 2, 1, screen.columns() - 2, kHelp[i]);
}

void drawKeyLine(const Shown& shown, Screen& screen) {
  const int row = screen.rows() - 1;
  if (!shown.message.empty()) {
    screen.write(row, 1, screen.columns() - 2, shown.message, {Colour::Warning, true});
    return;
  }
  int column = 1;
  for (const char* const each : kKeys) {
    const std::string_view key(each);
    if (column + static_cast<int>(key.size()) >= screen.columns()) break;
    const std::size_t blank = key.find(' ');
    column += screen.write(row, column, 20, key.substr(0, blank), {Colour::Accent, true});
    column += screen.write(row, column, 20, key.substr(blank), {Colour::Quiet}) + 2;
  }
}

void draw(const Shown& shown, Screen& screen) {
  if (screen.rows() < kLeastRows || screen.columns() < kLeastColumns) {
    screen.write(0, 0, screen.columns(), "too small; q quits");
    return;
  }
  drawHead(shown, screen);
  drawKeyLine(shown, screen);
  if (shown.hasHelp) {
    for (int row = 1; row < std::min(3, screen.rows()); ++row)
      for (int column = 0; column < screen.columns(); ++column) screen.put(row, column, U' ');
    return drawHelp(screen);
  }
  for (const Pane& pane : layoutOf(screen.rows(), screen.columns(), contentsOf(shown), shown.view))
    drawPane(shown, pane, screen);
}

}  // namespace tool::monitor
