#include "diagnostics/LabelSearch.h"

#include <bit>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "diagnostics/LogExcerpt.h"

namespace diagnostics {
namespace {

constexpr auto npos = std::string_view::npos;

const char* findPlainly(const char* at, const char* end) {
  return static_cast<const char*>(
      ::memmem(at, static_cast<std::size_t>(end - at), routerLabel.data(), routerLabel.size()));
}

#if defined(__SSE2__)

// Two neighbours in the label are looked for first, at 64 places at once. They hardly ever stand
// together in other texts, so nearly every place is passed over without a second look.
constexpr std::size_t probed = 3;
static_assert(routerLabel.substr(probed, 2) == ".q" && probed + 1 < routerLabel.size());

constexpr std::size_t vectorBytes = sizeof(__m128i);
constexpr std::size_t blockBytes = 4 * vectorBytes;
// Where a label can begin that ends within the text, the probes read nothing behind it.
constexpr std::size_t neededBytes = blockBytes + routerLabel.size() - 1;

/// The bytes are set at which both probes fit a label that begins at `at` or up to 15 behind.
__m128i hitsAt(const char* at) {
  const auto* const first = reinterpret_cast<const __m128i*>(at + probed);
  const auto* const second = reinterpret_cast<const __m128i*>(at + probed + 1);
  return _mm_and_si128(
      _mm_cmpeq_epi8(_mm_loadu_si128(first), _mm_set1_epi8(routerLabel[probed])),
      _mm_cmpeq_epi8(_mm_loadu_si128(second), _mm_set1_epi8(routerLabel[probed + 1])));
}

std::uint64_t bits(__m128i hits) {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(hits));
}

/// Bit i is set where both probes fit a label that begins at `at` + i.
std::uint64_t probe(const char* at) {
  const __m128i h0 = hitsAt(at);
  const __m128i h1 = hitsAt(at + vectorBytes);
  const __m128i h2 = hitsAt(at + 2 * vectorBytes);
  const __m128i h3 = hitsAt(at + 3 * vectorBytes);
  const __m128i any = _mm_or_si128(_mm_or_si128(h0, h1), _mm_or_si128(h2, h3));
  if (bits(any) == 0) [[likely]]
    return 0;
  return bits(h0) | bits(h1) << 16 | bits(h2) << 32 | bits(h3) << 48;
}

template <std::size_t offset>
bool hasWord(const char* at) {
  return std::memcmp(at + offset, routerLabel.data() + offset, sizeof(std::uint64_t)) == 0;
}

bool isLabel(const char* at) {
  static_assert(routerLabel.size() > 24 && routerLabel.size() <= 32);
  return hasWord<0>(at) && hasWord<8>(at) && hasWord<16>(at) && hasWord<routerLabel.size() - 8>(at);
}

const char* find(const char* at, const char* end) {
  for (; static_cast<std::size_t>(end - at) >= neededBytes; at += blockBytes) {
    for (std::uint64_t hits = probe(at); hits != 0; hits &= hits - 1) {
      const char* const place = at + std::countr_zero(hits);
      if (isLabel(place)) return place;
    }
  }
  return findPlainly(at, end);
}

#else

const char* find(const char* at, const char* end) {
  return findPlainly(at, end);
}

#endif

}  // namespace

std::size_t findRouterLabel(std::string_view text, std::size_t start) {
  if (start >= text.size()) return npos;
  const char* const place = find(text.data() + start, text.data() + text.size());
  return place == nullptr ? npos : static_cast<std::size_t>(place - text.data());
}

}  // namespace diagnostics
