// SPDX-License-Identifier: Apache-2.0

// The argument form of the exec functions: pointers to strings, followed by a null pointer.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// Points into `texts`, which must outlive the result and not change.
[[nodiscard]] inline std::vector<char*> nullTerminated(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace platform
