// SPDX-License-Identifier: Apache-2.0

// A screen as a picture.
//
// Threading: any thread.
#pragma once

#include <string>

#include "tool/monitor/Screen.h"

namespace tool::monitor {

/// A whole SVG file. `title` is plain text.
[[nodiscard]] std::string svgOf(const Screen& screen, const std::string& title);

}  // namespace tool::monitor
