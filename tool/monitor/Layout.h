// SPDX-License-Identifier: Apache-2.0

// Which part of the screen shows what.
//
// Threading: any thread.
#pragma once

#include <cstddef>
#include <vector>

#include "tool/monitor/Screen.h"
#include "tool/monitor/Shown.h"

namespace tool::monitor {

/// A smaller screen shows nothing but a request to enlarge it.
inline constexpr int kLeastRows = 10;
inline constexpr int kLeastColumns = 40;

/// How much there is to show.
struct Contents {
  bool hasDevice = false;
  std::size_t elements = 0;
  std::size_t paths = 0;
  std::size_t keys = 0;
};
[[nodiscard]] Contents contentsOf(const Shown& shown);

struct Pane {
  View what = View::Devices;  ///< any but All
  Rect rect;                  ///< with its title
  friend bool operator==(const Pane&, const Pane&) = default;
};

/// Without the rows at the top that say how the device is, and the one at the bottom with the keys.
[[nodiscard]] std::vector<Pane> layoutOf(int rows, int columns, const Contents& contents,
                                         View view);
/// Whether the list of devices is among what is shown, so that the cursor is seen.
[[nodiscard]] bool showsDevices(int rows, int columns, const Contents& contents, View view);

}  // namespace tool::monitor
