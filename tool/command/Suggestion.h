// What somebody meant who mistyped a word.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The word that is nearest to what was typed, by letters put in, left out, changed or swapped with
/// their neighbour; empty where none is near, or two are as near.
[[nodiscard]] std::string closestTo(std::string_view typed, const std::vector<std::string>& words);

}  // namespace tool
