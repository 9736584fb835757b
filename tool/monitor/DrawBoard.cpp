// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>
#include <vector>

#include "tool/monitor/Draw.h"
#include "tool/monitor/Glyphs.h"

namespace tool::monitor {

namespace {

constexpr int kMark = 2;  // columns before a name

/// All keys, or those that were used last if there is no room for all, the latest first.
std::vector<const BoardKey*> keysFor(const std::vector<BoardKey>& keys, std::size_t room) {
  std::vector<const BoardKey*> chosen;
  for (const BoardKey& key : keys) chosen.push_back(&key);
  if (chosen.size() <= room) return chosen;
  std::erase_if(chosen, [](const BoardKey* each) { return each->lastDown == 0; });
  std::ranges::stable_sort(chosen, [](const BoardKey* one, const BoardKey* other) {
    if (one->isDown != other->isDown) return one->isDown;
    return one->lastDown > other->lastDown;
  });
  if (chosen.size() > room) chosen.resize(room);
  return chosen;
}

void drawKey(const BoardKey& key, int row, int column, int width, Screen& screen) {
  const bool hasUnicode = screen.look().hasUnicode;
  const Style style = key.isDown ? Style{Colour::Good, true, false, true} : Style{Colour::Quiet};
  const char32_t mark = key.isDown ? (hasUnicode ? U'■' : U'#') : (hasUnicode ? U'□' : U'.');
  screen.put(row, column, mark, {key.isDown ? Colour::Good : Colour::Quiet});
  screen.write(row, column + kMark, width - kMark - 1, key.name, style);
}

}  // namespace

void drawBoard(const Shown& shown, const Rect& rect, Screen& screen) {
  const std::vector<BoardKey> none;
  const auto& keys = shown.model == nullptr ? none : shown.model->board().keys();
  const auto down = std::ranges::count_if(keys, &BoardKey::isDown);
  drawTitle(
      screen, rect.row, rect.column, rect.columns,
      "Keys and buttons, " + std::to_string(down) + " of " + std::to_string(keys.size()) + " down");
  int longest = 1;
  for (const BoardKey& key : keys) longest = std::max(longest, columnsOf(key.name));
  const int width = std::min(longest, 20) + kMark + 2;
  const int across = std::max((rect.columns - 1) / width, 1);
  const int rows = rect.rows - 1;
  const auto room = static_cast<std::size_t>(std::max(across * rows, 0));
  const auto chosen = keysFor(keys, room);
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    const int at = static_cast<int>(i);
    drawKey(*chosen[i], rect.row + 1 + at / across, rect.column + 1 + at % across * width, width,
            screen);
  }
  if (chosen.empty())
    screen.write(rect.row + 1, rect.column + 1, rect.columns - 2,
                 keys.empty() ? "the device has none" : "none has been used yet", {Colour::Quiet});
}

}  // namespace tool::monitor
