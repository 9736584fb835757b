// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>

#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

constexpr int kNarrow = 60;
constexpr int kWhatWidth = 14;
constexpr int kClassWidth = 10;
constexpr int kStateWidth = 10;

Style styleOfState(const std::string& state) {
  if (state == "routing") return {Colour::Good};
  if (state == "no" || state == "not allowed") return {Colour::Bad};
  return {};
}

/// A narrow list leaves out what the device is for.
void drawDevice(const ListedDevice& device, const Rect& row, Screen& screen) {
  const bool isNarrow = row.columns < kNarrow;
  const int whatWidth = isNarrow ? 0 : kWhatWidth;
  const int nameWidth = row.columns - 1 - whatWidth - kClassWidth - kStateWidth;
  int column = row.column + 1;
  screen.write(row.row, column, nameWidth - 1, device.name);
  column += nameWidth;
  screen.write(row.row, column, whatWidth - 1, device.what, {Colour::Quiet});
  column += whatWidth;
  screen.write(row.row, column, kClassWidth - 1, device.deviceClass,
               {device.deviceClass == "sensitive" ? Colour::Warning : Colour::Quiet});
  column += kClassWidth;
  screen.write(row.row, column, kStateWidth, device.state, styleOfState(device.state));
}

}  // namespace

void drawDevices(const Shown& shown, const Rect& rect, Screen& screen) {
  drawTitle(screen, rect.row, rect.column, rect.columns,
            "Devices (" + std::to_string(shown.devices.size()) + ")");
  const int room = rect.rows - 1;
  if (shown.devices.empty() || !shown.noDevices.empty()) {
    screen.write(rect.row + (shown.devices.empty() ? 1 : room), rect.column + 1, rect.columns - 2,
                 shown.noDevices.empty() ? "none is connected" : shown.noDevices,
                 {Colour::Warning});
    if (shown.devices.empty()) return;
  }
  const auto cursor = static_cast<int>(std::min(shown.cursor, shown.devices.size() - 1));
  const int first = std::max(cursor - room + 1, 0);
  for (int i = first; i < std::min(first + room, static_cast<int>(shown.devices.size())); ++i) {
    const ListedDevice& device = shown.devices[static_cast<std::size_t>(i)];
    const Rect row{rect.row + 1 + i - first, rect.column, 1, rect.columns};
    drawDevice(device, row, screen);
    if (shown.open == device.id)
      screen.put(row.row, row.column, screen.look().hasUnicode ? U'●' : U'*', {Colour::Good});
    if (i != cursor) continue;
    screen.put(row.row, row.column, U'>', {Colour::Accent, true});
    screen.restyle(row, {Colour::Accent, true, false, true});
  }
}

}  // namespace tool::monitor
