// SPDX-License-Identifier: Apache-2.0

// Bytes in their usual notation: "05 01 a1 01".
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::uint8_t> bytes(const std::string& hex) {
  std::vector<std::uint8_t> result;
  std::istringstream words(hex);
  for (std::string word; words >> word;) {
    result.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
  }
  return result;
}
