// SPDX-License-Identifier: Apache-2.0

// The word that a mistyped one was probably meant to be.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The word closest to what was typed, counting insertions, deletions, substitutions and swaps of
/// neighbours; empty if none is close, or two are equally close.
[[nodiscard]] std::string closestTo(std::string_view typed, const std::vector<std::string>& words);

}  // namespace tool
