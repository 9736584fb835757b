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

const char* findPlainly(const char* at, const char* end) {
  return static_cast<const char*>(
      ::memmem(at, static_cast<std::size_t>(end - at), routerLabel.data(), routerLabel.size()));
}

#if defined(__SSE2__)

// Two neighbours in the label are looked for first, at many places at once. They hardly ever stand
// together in other texts, so nearly every place is passed over without a second look.
constexpr std::size_t probed = 3;
static_assert(routerLabel.substr(probed, 2) == ".q" && probed + 1 < routerLabel.size());

constexpr std::size_t stepBytes = 64;
constexpr std::size_t blockBytes = 4 * stepBytes;

/// Whether the text holds what the probes read for labels that begin in the next `size` bytes: no
/// more than such labels hold themselves.
bool hasRoom(const char* at, const char* end, std::size_t size) {
  return static_cast<std::size_t>(end - at) >= size + routerLabel.size() - 1;
}

struct Narrow {
  using Bytes = std::uint8_t __attribute__((vector_size(16)));
  using Words = std::uint64_t __attribute__((vector_size(16)));
};
struct Wide {
  using Bytes = std::uint8_t __attribute__((vector_size(32)));
  using Words = std::uint64_t __attribute__((vector_size(32)));
};

/// Whether both probes fit a label that begins anywhere in the block. One text for all processors,
/// with vectors of the width of theirs; it becomes part of a function that is for them.
template <class Width>
[[gnu::always_inline]] inline bool mayHoldLabel(const char* block) {
  using Vector = typename Width::Bytes;
  using Words = typename Width::Words;
  Words any{};
  for (std::size_t i = 0; i < blockBytes; i += sizeof(Vector)) {
    Vector first;
    Vector second;
    std::memcpy(&first, block + i + probed, sizeof first);
    std::memcpy(&second, block + i + probed + 1, sizeof second);
    const auto hits = (first == static_cast<std::uint8_t>(routerLabel[probed])) &
                      (second == static_cast<std::uint8_t>(routerLabel[probed + 1]));
    any |= reinterpret_cast<Words>(hits);
  }
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < sizeof any / sizeof word; ++i) word |= any[i];
  return word != 0;
}

/// The bytes are set at which both probes fit a label that begins at `at` or up to 15 behind.
__m128i hitsOf16(const char* at) {
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
std::uint64_t hitsOf64(const char* at) {
  const __m128i h0 = hitsOf16(at);
  const __m128i h1 = hitsOf16(at + 16);
  const __m128i h2 = hitsOf16(at + 32);
  const __m128i h3 = hitsOf16(at + 48);
  if (bits(_mm_or_si128(_mm_or_si128(h0, h1), _mm_or_si128(h2, h3))) == 0) return 0;
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

/// The next block that may hold a label, or where there is no room for one.
template <class Width>
[[gnu::always_inline]] inline const char* skipBlocks(const char* at, const char* end) {
  while (hasRoom(at, end, blockBytes) && !mayHoldLabel<Width>(at)) at += blockBytes;
  return at;
}

[[gnu::target("avx2")]] const char* skipBlocksWidely(const char* at, const char* end) {
  return skipBlocks<Wide>(at, end);
}

const char* skip(const char* at, const char* end) {
  return __builtin_cpu_supports("avx2") != 0 ? skipBlocksWidely(at, end)
                                             : skipBlocks<Narrow>(at, end);
}

const char* find(const char* at, const char* end) {
  while (hasRoom(at, end, stepBytes)) {
    // Where labels are frequent the next one is near, and a look at whole blocks would be wasted.
    for (int steps = 0; steps < 8 && hasRoom(at, end, stepBytes); ++steps, at += stepBytes) {
      for (std::uint64_t hits = hitsOf64(at); hits != 0; hits &= hits - 1) {
        const char* const place = at + std::countr_zero(hits);
        if (isLabel(place)) return place;
      }
    }
    at = skip(at, end);
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
  if (start >= text.size()) return std::string_view::npos;
  const char* const place = find(text.data() + start, text.data() + text.size());
  return place == nullptr ? std::string_view::npos : static_cast<std::size_t>(place - text.data());
}

}  // namespace diagnostics
