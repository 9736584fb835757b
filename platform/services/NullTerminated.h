// What the exec functions take: pointers to texts, and a null pointer after the last.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// Points into `texts`, which must outlive the result and stay as they are.
[[nodiscard]] inline std::vector<char*> nullTerminated(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace platform
