// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/HeaderSearch.h"

#include <array>
#include <stdexcept>

#include "platform/foundation/Text.h"

namespace diagnostics {
namespace {

// ---- The pattern's character sets. A line contains no line feed, so none of them does.

constexpr bool isLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r' && c != '\n');
}
constexpr bool isNonBlank(char c) {
  return !isBlank(c) && c != '\n';
}
constexpr bool isProcessCharacter(char c) {
  return isLetter(c) || c == '.' || c == '-' || c == '_';
}
constexpr bool isRemarkCharacter(char c) {
  return isLetter(c) || isDigit(c) || isBlank(c) ||
         std::string_view("()[].").find(c) != std::string_view::npos;
}
template <char only>
constexpr bool is(char c) {
  return c == only;
}

/// The ASCII character that is in the same sets as this non-ASCII one.
char asciiEquivalent(char32_t c) {
  if (c == 0x17F) return 's';
  if (c == 0x212A) return 'k';
  const bool blank = c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
                     c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
  return blank ? ' ' : '\0';
}

constexpr bool isASCII(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

/// The number of bytes in the non-ASCII character that starts with this byte.
std::size_t nonASCIILength(char first) {
  const auto byte = static_cast<unsigned char>(first);
  return byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
}

// ---- The pattern's parts, each an automaton that consumes a character with one shift

using Set = bool (*)(char c);

constexpr bool nothing(char /*c*/) {
  return false;
}

/// One character of a set, followed by any number of another set.
struct Place {
  Set takes;
  Set then = nothing;
  bool optional = false;
};
constexpr Place atMostOne(Set set) {
  return {set, nothing, true};
}
constexpr Place oneOrMore(Set set) {
  return {set, set};
}

/// A state is the number of places passed, times six. A character's row holds, at the bit whose
/// number is the state, the next state. A step is then `row >> state`, without a branch: the
/// lengths of host and process are unpredictable, and a mispredicted branch costs as much as thirty
/// characters.
using Row = std::uint64_t;
using Rows = std::array<Row, 256>;
constexpr std::size_t kWidth = 6;  // the processor shifts by the low six bits
constexpr Row kMask = 63;
constexpr std::size_t kMaxPlaces = 64 / kWidth - 3;
// Final states. `kForeign` is reached by a non-ASCII character, which has to be decoded first.
constexpr Row kPassed = kMaxPlaces * kWidth;
constexpr Row kRefused = kPassed + kWidth;
constexpr Row kForeign = kRefused + kWidth;

template <std::size_t count>
consteval Row follower(const Place (&places)[count], std::size_t index, char c) {
  const bool stays = index > 0 && places[index - 1].then(c);
  const bool goesOn = places[index].takes(c);
  const bool leavesOut = places[index].optional && places[index + 1].takes(c);
  if (stays + goesOn + leavesOut > 1) throw std::logic_error("several ways to read a line");
  if (!stays && !goesOn && !leavesOut) return kRefused;
  const std::size_t next = index + (goesOn ? 1 : leavesOut ? 2 : 0);
  return next == count ? kPassed : next * kWidth;
}

template <std::size_t count>
consteval Rows automaton(const Place (&places)[count]) {
  static_assert(count <= kMaxPlaces);
  if (places[count - 1].then != nothing) throw std::logic_error("the part has no certain end");
  Rows rows{};
  for (std::size_t c = 0; c < rows.size(); ++c) {
    for (std::size_t i = 0; i < count; ++i)
      rows[c] |= (c < 128 ? follower(places, i, static_cast<char>(c)) : kForeign) << (i * kWidth);
    for (const Row end : {kPassed, kRefused, kForeign}) rows[c] |= end << end;
  }
  return rows;
}

constexpr std::array kParts{
    automaton({{isLetter}, {isLetter}, {isLetter}}),                                       // "Nov"
    automaton({{isBlank}, atMostOne(isBlank), {isDigit}, atMostOne(isDigit), {isBlank}}),  // " 21 "
    automaton({{isDigit}, atMostOne(isDigit), {is<':'>}}),                                 // "03:"
    automaton({{isDigit}, atMostOne(isDigit), {is<':'>}}),                                 // "12:"
    automaton({{isDigit}, atMostOne(isDigit), {isBlank}}),                                 // "45 "
    // "host process[345] (remark):"
    automaton({oneOrMore(isNonBlank),
               {isBlank},
               oneOrMore(isProcessCharacter),
               {is<'['>},
               oneOrMore(isDigit),
               {is<']'>, isRemarkCharacter},
               {is<':'>}})};

Row next(const Rows& rows, Row state, char c) {
  return rows[static_cast<unsigned char>(c)] >> (state & kMask);
}

bool isWithin(Row state) {
  return (state & kMask) < kPassed;
}

/// The state that the part ends in: kPassed, kRefused or kForeign, or another one if the text ends
/// first.
Row walk(const Rows& rows, std::string_view text) {
  constexpr std::size_t stride = 16;
  const char* at = text.data();
  const char* const end = at + text.size();
  Row state = 0;
  for (; static_cast<std::size_t>(end - at) >= stride && isWithin(state); at += stride)
    for (std::size_t i = 0; i < stride; ++i) state = next(rows, state, at[i]);
  for (; at != end && isWithin(state); ++at) state = next(rows, state, *at);
  return state & kMask;
}

/// The form of the time in nearly all headers (a one-digit day has a blank before it), which is
/// checked in one step. A text that does not start like this may still be a header.
constexpr std::string_view kUsualTime = "Nov 21 03:12:45 ";

bool beginsWithUsualTime(std::string_view text) {
  constexpr std::size_t day = 4;
  if (text.size() < kUsualTime.size()) return false;
  bool fits = isDigit(text[day]) || text[day] == ' ';
  for (std::size_t i = 0; i < kUsualTime.size(); ++i) {
    const char shape = kUsualTime[i];
    const char c = text[i];
    if (i != day) fits &= isLetter(shape) ? isLetter(c) : isDigit(shape) ? isDigit(c) : c == shape;
  }
  return fits;
}

}  // namespace

HeaderSearch::Answer HeaderSearch::advance(std::string_view line) {
  while (offset_ < line.size()) {
    char c = line[offset_];
    std::size_t end = offset_ + 1;
    if (!isASCII(c)) {
      if (line.size() - offset_ < nonASCIILength(c)) return Answer::open;
      end = offset_;
      c = asciiEquivalent(platform::nextCodePoint(line, end));
    }
    state_ = next(kParts[part_], state_, c) & kMask;
    if (state_ == kRefused) return Answer::notFound;
    offset_ = end;
    if (state_ != kPassed) continue;
    state_ = 0;
    if (++part_ == kParts.size()) return Answer::found;
  }
  return Answer::open;
}

bool beginsWithHeader(std::string_view text) {
  if (beginsWithUsualTime(text)) {
    const Row end = walk(kParts.back(), text.substr(kUsualTime.size()));
    if (end != kForeign) return end == kPassed;
  }
  return HeaderSearch().advance(text) == HeaderSearch::Answer::found;
}

}  // namespace diagnostics
