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

// Two of the label's characters are looked for first, at 64 places at once. The first is rare in
// logs, and hardly anything has both at this distance; which is the length of a vector, so that
// what was loaded to look for one serves to look for the other.
constexpr std::size_t vectorBytes = sizeof(__m128i);
constexpr std::size_t firstProbe = 4;
constexpr std::size_t secondProbe = firstProbe + vectorBytes;
constexpr std::size_t blockBytes = 4 * vectorBytes;
static_assert(routerLabel[firstProbe] == 'q' && secondProbe < routerLabel.size());
// Where a label can begin that ends within the text, the probes read nothing behind it.
constexpr std::size_t neededBytes = blockBytes + routerLabel.size() - 1;
static_assert(firstProbe + blockBytes + vectorBytes <= neededBytes);

__m128i load(const char* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

/// Bit i is set where both probes fit a label that begins at `at` + i.
std::uint64_t probe(const char* at) {
  const __m128i first = _mm_set1_epi8(routerLabel[firstProbe]);
  const __m128i second = _mm_set1_epi8(routerLabel[secondProbe]);
  const char* const from = at + firstProbe;
  const __m128i v0 = load(from);
  const __m128i v1 = load(from + vectorBytes);
  const __m128i v2 = load(from + 2 * vectorBytes);
  const __m128i v3 = load(from + 3 * vectorBytes);
  const __m128i v4 = load(from + 4 * vectorBytes);
  const __m128i h0 = _mm_and_si128(_mm_cmpeq_epi8(v0, first), _mm_cmpeq_epi8(v1, second));
  const __m128i h1 = _mm_and_si128(_mm_cmpeq_epi8(v1, first), _mm_cmpeq_epi8(v2, second));
  const __m128i h2 = _mm_and_si128(_mm_cmpeq_epi8(v2, first), _mm_cmpeq_epi8(v3, second));
  const __m128i h3 = _mm_and_si128(_mm_cmpeq_epi8(v3, first), _mm_cmpeq_epi8(v4, second));
  const __m128i any = _mm_or_si128(_mm_or_si128(h0, h1), _mm_or_si128(h2, h3));
  if (_mm_movemask_epi8(any) == 0) [[likely]]
    return 0;
  const auto bits = [](__m128i hits) {
    return std::uint64_t{static_cast<std::uint32_t>(_mm_movemask_epi8(hits))};
  };
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
