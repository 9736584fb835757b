// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Suggestion.h"

#include <algorithm>

namespace tool {

namespace {

constexpr std::size_t kLongest = 32;  // no word to suggest is longer

/// The edit distance, with swaps of neighbouring letters.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) steps[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) steps[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = a[i - 1] == b[j - 1] ? 0 : 1;
      steps[i][j] =
          std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + changed});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps[a.size()][b.size()];
}

}  // namespace

std::string closestTo(std::string_view typed, const std::vector<std::string>& words) {
  if (typed.empty() || typed.size() > kLongest) return {};
  std::size_t nearest = std::max<std::size_t>(1, typed.size() / 3) + 1;
  std::string found;
  for (const std::string& word : words) {
    const std::size_t apart = distance(typed, word);
    if (apart > nearest || (apart == nearest && found.empty())) continue;
    found = apart < nearest ? word : std::string();
    nearest = apart;
  }
  return found;
}

}  // namespace tool
