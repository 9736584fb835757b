#include "diagnostics/LabelSearch.h"

#include <cstdint>
#include <cstring>

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {
namespace {

/// A label that begins in a block may end this much behind it.
constexpr std::size_t overhang = routerLabel.size() - 1;

/// Good where it is near: there is nothing to prepare. Not where periods are many.
std::size_t findByPeriod(std::string_view text) {
  constexpr std::size_t period = routerLabel.find('.');
  for (auto at = text.find('.', period); at != npos; at = text.find('.', at + 1))
    if (text.substr(at - period).starts_with(routerLabel)) return at - period;
  return npos;
}

/// Good where it may be: begins with a table of the label.
std::size_t findByTable(std::string_view text) {
  const void* const place =
      ::memmem(text.data(), text.size(), routerLabel.data(), routerLabel.size());
  return place == nullptr ? npos
                          : static_cast<std::size_t>(static_cast<const char*>(place) - text.data());
}

constexpr std::size_t blockBytes = 256;

/// Looks for two neighbours that hardly ever stand together elsewhere. The loop has no way out, and
/// its hits are bytes as what it reads, so that the compiler makes it one of vectors.
bool mayHoldLabel(const char* block) {
  constexpr std::size_t probed = routerLabel.find(".q");
  std::uint8_t any = 0;
  for (std::size_t i = 0; i < blockBytes; ++i)
    any |= static_cast<std::uint8_t>((block[i + probed] == '.') & (block[i + probed + 1] == 'q'));
  return any != 0;
}

/// Good where it is far away: nearly every block is passed over.
std::size_t findByBlocks(std::string_view text) {
  std::size_t at = 0;
  for (; text.size() - at >= blockBytes + overhang; at += blockBytes) {
    if (!mayHoldLabel(text.data() + at)) continue;
    const auto place = findByTable(text.substr(at, blockBytes + overhang));
    if (place != npos) return at + place;
  }
  const auto place = findByTable(text.substr(at));
  return place == npos ? npos : at + place;
}

std::size_t find(std::string_view text) {
  constexpr std::size_t near = 1024;
  const auto place = findByPeriod(text.substr(0, near + overhang));
  if (place != npos || text.size() < near) return place;
  const auto far = findByBlocks(text.substr(near));
  return far == npos ? npos : near + far;
}

}  // namespace

std::size_t findRouterLabel(std::string_view text, std::size_t start) {
  if (start >= text.size()) return npos;
  const auto place = find(text.substr(start));
  return place == npos ? npos : start + place;
}

}  // namespace diagnostics
