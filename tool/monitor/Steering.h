// SPDX-License-Identifier: Apache-2.0

// What a key means, where it is pressed.
//
// Threading: one thread at a time.
#pragma once

#include "tool/monitor/Shown.h"

namespace tool::monitor {

enum class Key {
  Other,
  Up,
  Down,
  PageUp,
  PageDown,
  Enter,
  Escape,
  Tab,
  Pause,
  Step,
  Record,
  Exclusive,
  Help,
  Quit,
  Suspend,
};
/// Of a character that was typed.
[[nodiscard]] Key keyOf(char32_t character);

/// What the key asks for, beyond another view of the same.
enum class Wish { Nothing, Open, Pause, Step, Record, Exclusive, Quit, Suspend };

/// Changes what is shown on a screen of that size.
[[nodiscard]] Wish take(Key key, Shown& shown, int rows, int columns);

}  // namespace tool::monitor
