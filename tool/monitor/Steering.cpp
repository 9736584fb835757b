// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Steering.h"

#include <algorithm>

#include "tool/monitor/Layout.h"

namespace tool::monitor {

namespace {

constexpr std::size_t kPage = 10;

/// The next one that has something to show.
View viewAfter(const Shown& shown) {
  if (!shown.open) return View::All;
  const Contents contents = contentsOf(shown);
  switch (shown.view) {
    case View::All:
      return View::Devices;
    case View::Devices:
      return View::Elements;
    case View::Elements:
      if (contents.paths > 0) return View::Path;
      [[fallthrough]];
    case View::Path:
      if (contents.keys > 0) return View::Board;
      [[fallthrough]];
    case View::Board:
      return View::Reports;
    case View::Reports:
      break;
  }
  return View::All;
}

void scroll(Shown& shown, bool isDown, std::size_t by) {
  const std::size_t count = contentsOf(shown).elements;
  if (isDown)
    shown.scroll = std::min(shown.scroll + by, count == 0 ? 0 : count - 1);
  else
    shown.scroll -= std::min(shown.scroll, by);
}

void move(Shown& shown, bool isDown, int rows, int columns) {
  if (!showsDevices(rows, columns, contentsOf(shown), shown.view)) return scroll(shown, isDown, 1);
  if (!isDown)
    shown.cursor -= std::min<std::size_t>(shown.cursor, 1);
  else if (shown.cursor + 1 < shown.devices.size())
    ++shown.cursor;
}

Wish leave(Shown& shown) {
  shown.hasHelp = false;
  shown.view = View::All;
  return Wish::Nothing;
}

}  // namespace

Key keyOf(char32_t character) {
  switch (character) {
    case U'k':
      return Key::Up;
    case U'j':
      return Key::Down;
    case U'\r':
    case U'\n':
      return Key::Enter;
    case U'\t':
      return Key::Tab;
    case 0x1b:
      return Key::Escape;
    case U'p':
    case U' ':
      return Key::Pause;
    case U's':
      return Key::Step;
    case U'r':
      return Key::Record;
    case U'x':
      return Key::Exclusive;
    case U'?':
    case U'h':
      return Key::Help;
    case U'q':
    case 0x03:  // Ctrl-C
      return Key::Quit;
    case 0x1a:  // Ctrl-Z
      return Key::Suspend;
    default:
      return Key::Other;
  }
}

Wish take(Key key, Shown& shown, int rows, int columns) {
  switch (key) {
    case Key::Up:
    case Key::Down:
      move(shown, key == Key::Down, rows, columns);
      return Wish::Nothing;
    case Key::PageUp:
    case Key::PageDown:
      scroll(shown, key == Key::PageDown, kPage);
      return Wish::Nothing;
    case Key::Tab:
      shown.view = viewAfter(shown);
      return Wish::Nothing;
    case Key::Help:
      shown.hasHelp = !shown.hasHelp;
      return Wish::Nothing;
    case Key::Escape:
      return leave(shown);
    case Key::Enter:
      return shown.devices.empty() ? Wish::Nothing : Wish::Open;
    case Key::Pause:
      return shown.open ? Wish::Pause : Wish::Nothing;
    case Key::Step:
      return shown.open ? Wish::Step : Wish::Nothing;
    case Key::Record:
      return shown.open ? Wish::Record : Wish::Nothing;
    case Key::Exclusive:
      return shown.open ? Wish::Exclusive : Wish::Nothing;
    case Key::Quit:
      return Wish::Quit;
    case Key::Suspend:
      return Wish::Suspend;
    case Key::Other:
      break;
  }
  return Wish::Nothing;
}

}  // namespace tool::monitor
