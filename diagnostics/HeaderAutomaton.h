// The greater part of the header pattern as an automaton that takes a character in one shift.
//
// A state is a multiple of six, and a character's row holds, at the bit that the state numbers, the
// state that follows. Going on is then `row >> state`, without a branch: the way from host to colon
// has loops whose lengths no processor can foresee, and a wrong guess costs as much as thirty
// characters.
//
// Made from the pattern's own steps while the program is compiled. Characters outside ASCII lead
// to a state of their own, at which somebody has to look more closely.
//
// Threading, Ownership, Order: constants and pure functions. Errors: more states than fit are an
// error of the build.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "diagnostics/HeaderPattern.h"

namespace diagnostics {

class HeaderAutomaton {
 public:
  enum class End : std::uint8_t { found, notFound, foreign };

  /// Of the steps of `pattern` from `firstStep`.
  consteval HeaderAutomaton(const CompiledPattern& pattern, std::size_t firstStep);

  /// Whether the line whose rest is at the beginning of `text` matches: found or not, or foreign
  /// when a character outside ASCII came first. The rest ends with its line feed or the text.
  [[nodiscard]] End run(std::string_view text) const {
    const char* at = text.data();
    const char* const end = at + text.size();
    std::uint64_t state = 0;
    constexpr std::ptrdiff_t stride = 16;
    while (end - at >= stride && (state & mask) < ends) {
      for (std::ptrdiff_t i = 0; i < stride; ++i) state = next(state, at[i]);
      at += stride;
    }
    for (; at != end && (state & mask) < ends; ++at) state = next(state, *at);
    return endOf(state & mask);
  }

 private:
  static constexpr std::size_t width = 6;  // a shift by the low bits of a word
  static constexpr std::uint64_t mask = 63;
  static constexpr std::size_t stateCount = 64 / width;
  // The last three states are left no more.
  static constexpr std::size_t foundState = stateCount - 3;
  static constexpr std::size_t notFoundState = stateCount - 2;
  static constexpr std::size_t foreignState = stateCount - 1;
  static constexpr std::uint64_t ends = foundState * width;

  /// A place in the pattern: a step, and how many characters it has (no more than matter).
  struct Place {
    std::size_t step = 0;
    std::size_t taken = 0;
    constexpr bool operator==(const Place&) const = default;
  };

  [[nodiscard]] std::uint64_t next(std::uint64_t state, char c) const {
    return rows_[static_cast<unsigned char>(c)] >> (state & mask);
  }
  [[nodiscard]] static End endOf(std::uint64_t state) {
    if (state == foundState * width) return End::found;
    return state == foreignState * width ? End::foreign : End::notFound;
  }

  consteval std::size_t numberOf(const CompiledPattern& pattern, Place place);
  consteval std::size_t follower(const CompiledPattern& pattern, Place place, std::size_t c);
  consteval void set(std::size_t row, std::size_t from, std::size_t to) {
    rows_[row] |= std::uint64_t{to * width} << (from * width);
  }

  std::array<std::uint64_t, 256> rows_{};
  std::array<Place, foundState> places_{};
  std::size_t placeCount_ = 0;
};

consteval HeaderAutomaton::HeaderAutomaton(const CompiledPattern& pattern, std::size_t firstStep) {
  numberOf(pattern, {firstStep, 0});
  for (std::size_t from = 0; from < placeCount_; ++from)
    for (std::size_t c = 0; c < rows_.size(); ++c)
      set(c, from, c < 128 ? follower(pattern, places_[from], c) : foreignState);
  for (std::size_t c = 0; c < rows_.size(); ++c)
    for (std::size_t end = foundState; end < stateCount; ++end) set(c, end, end);
}

/// The state that stands for a place, which becomes one if it has not been met before.
consteval std::size_t HeaderAutomaton::numberOf(const CompiledPattern& pattern, Place place) {
  if (place.step == pattern.count) return foundState;
  for (std::size_t i = 0; i < placeCount_; ++i)
    if (places_[i] == place) return i;
  if (placeCount_ == places_.size()) pattern_detail::malformed("there are too many states");
  places_[placeCount_] = place;
  return placeCount_++;
}

consteval std::size_t HeaderAutomaton::follower(const CompiledPattern& pattern, Place place,
                                                std::size_t c) {
  if (c == '\n') return notFoundState;  // the line is over
  while (place.step < pattern.count) {
    const PatternStep& step = pattern.steps[place.step];
    if (step.characters.ascii[c]) {
      const std::size_t taken = place.taken + 1;
      if (taken == step.most) return numberOf(pattern, {place.step + 1, 0});
      // Where there is no upper bound it only matters whether there are enough.
      const bool enough = step.most == PatternStep::unlimited && taken >= step.least;
      return numberOf(pattern, {place.step, enough ? step.least : taken});
    }
    if (place.taken < step.least) break;
    place = {place.step + 1, 0};
  }
  return notFoundState;
}

}  // namespace diagnostics
