// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Intervals.h"

namespace tool {

void Intervals::take(Time time) {
  const Time interval = time - last_;
  const bool follows = last_ >= Time(0) && interval >= Time(0);
  last_ = time;
  if (!follows) return;
  Durations::take(interval);
  if (interval >= gap_) ++gaps_;
}

}  // namespace tool
