#include "diagnostics/LabelSearch.h"

#include <cstring>

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {

std::size_t findRouterLabel(std::string_view text, std::size_t start) {
  if (start >= text.size()) return std::string_view::npos;
  const void* const found =
      ::memmem(text.data() + start, text.size() - start, routerLabel.data(), routerLabel.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

}  // namespace diagnostics
