#include "diagnostics/HeaderSearch.h"

#include <array>
#include <cstring>
#include <utility>

#include "diagnostics/HeaderAutomaton.h"
#include "diagnostics/HeaderPattern.h"

namespace diagnostics {
namespace {

constexpr CompiledPattern pattern = compilePattern(headerPattern);

/// Bit i of an entry: whether step i takes the character. Bytes outside ASCII have no bit: what
/// their character is must be found out first.
using StepBits = std::uint32_t;
static_assert(pattern.count <= 32);

constexpr auto stepsOfByte = [] {
  std::array<StepBits, 256> table{};
  // A line feed is a blank, but no line has one.
  for (std::size_t c = 0; c < 128; ++c)
    for (std::size_t i = 0; i < pattern.count; ++i)
      if (c != '\n' && pattern.steps[i].characters.ascii[c]) table[c] |= StepBits{1} << i;
  return table;
}();

/// Where a search stands.
struct Walk {
  const unsigned char* at;
  const unsigned char* const end;
  std::size_t step;
  std::size_t taken;
};

enum class Taking : std::uint8_t { yes, no, cutShort };

struct Character {
  char32_t codePoint = 0;
  std::size_t length = 0;  ///< in bytes; more than there are, where it is cut short
};

/// The character outside ASCII that starts at `at`, of valid UTF-8.
Character foreignCharacterAt(const unsigned char* at, const unsigned char* end) {
  Character c;
  c.length = *at >= 0xF0 ? 4 : *at >= 0xE0 ? 3 : 2;
  if (static_cast<std::size_t>(end - at) < c.length) return c;
  c.codePoint = *at & (0x7FU >> c.length);
  for (std::size_t i = 1; i < c.length; ++i) c.codePoint = c.codePoint << 6 | (at[i] & 0x3FU);
  return c;
}

/// Takes the character at the walk's place, of which the table says nothing, if `set` has it.
Taking takeForeign(Walk& walk, std::uint8_t set) {
  if (*walk.at < 0x80) return Taking::no;
  const Character c = foreignCharacterAt(walk.at, walk.end);
  if (static_cast<std::size_t>(walk.end - walk.at) < c.length) return Taking::cutShort;
  if ((set & foreignCharacter(c.codePoint)) == 0) return Taking::no;
  walk.at += c.length;
  return Taking::yes;
}

template <std::size_t step>
Taking take(Walk& walk) {
  if (walk.at == walk.end) return Taking::cutShort;
  if ((stepsOfByte[*walk.at] & StepBits{1} << step) == 0)
    return takeForeign(walk, pattern.steps[step].characters.foreign);
  ++walk.at;
  return Taking::yes;
}

/// Whether the walk goes on behind the step; if not, `answer` says why.
template <std::size_t step>
bool pass(Walk& walk, HeaderSearch::Answer& answer) {
  if (walk.step != step) return true;  // an earlier call has passed it
  constexpr const PatternStep& limits = pattern.steps[step];
  while (walk.taken < limits.most) {
    const Taking taking = take<step>(walk);
    if (taking == Taking::cutShort) {
      answer = HeaderSearch::Answer::open;
      return false;
    }
    if (taking == Taking::no) break;
    ++walk.taken;
  }
  if (walk.taken < limits.least) {
    answer = HeaderSearch::Answer::notFound;
    return false;
  }
  walk.step = step + 1;
  walk.taken = 0;
  return true;
}

/// One piece of code a step, in a row, so that the sets and limits are constants in it.
template <std::size_t... steps>
[[gnu::always_inline]] inline HeaderSearch::Answer walkOn(Walk& walk,
                                                          std::index_sequence<steps...> /*all*/) {
  HeaderSearch::Answer answer = HeaderSearch::Answer::found;
  static_cast<void>((pass<steps>(walk, answer) && ...));
  return answer;
}

Walk walkFrom(std::string_view line, std::size_t offset, std::size_t step, std::size_t taken) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(line.data());
  return {begin + offset, begin + line.size(), step, taken};
}

// ---- The usual header, in less time

constexpr StepBits bits(std::size_t step) {
  return StepBits{1} << step;
}

/// Which steps take each character of a time as nearly all headers have it, "Nov 21 03:12:45 ", the
/// day perhaps with a blank in front. A line that passes has come to the host, there is no other
/// way to read it; of one that does not nothing is known.
constexpr std::array<StepBits, 16> usualSteps = {
    bits(0),           bits(0), bits(0), bits(1),  // month, blank
    bits(1) | bits(2), bits(2), bits(3),           // day, blank
    bits(4),           bits(4), bits(5),           // hours, colon
    bits(6),           bits(6), bits(7),           // minutes, colon
    bits(8),           bits(8), bits(9)};          // seconds, blank

/// What each of them may be, for all 16 to be looked at together: with the bits of `fold` set, one
/// of `span` characters more than `lowest`, or else `instead`.
struct UsualTime {
  using Bytes = std::array<std::uint8_t, usualSteps.size()>;
  Bytes fold{};
  Bytes lowest{};
  Bytes span{};
  Bytes instead{};

  [[nodiscard]] constexpr bool takes(std::size_t i, unsigned c) const {
    const unsigned above = ((c | fold[i]) - lowest[i]) & 0xFFU;
    return above <= span[i] || c == instead[i];
  }
};

constexpr UsualTime usualTime = [] {
  constexpr std::string_view shape = "aaa 99 99:99:99 ";
  static_assert(shape.size() == usualSteps.size());
  UsualTime time;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    const bool letter = shape[i] == 'a';
    time.fold[i] = letter ? 0x20 : 0;
    time.lowest[i] = static_cast<std::uint8_t>(shape[i] == '9' ? '0' : shape[i]);
    time.span[i] = letter ? 25 : shape[i] == '9' ? 9 : 0;
    time.instead[i] = time.lowest[i];
  }
  time.instead[4] = ' ';
  return time;
}();

/// Takes nothing that the steps do not take.
constexpr bool isUsualTimeSound() {
  for (std::size_t i = 0; i < usualSteps.size(); ++i)
    for (unsigned c = 0; c < 256; ++c)
      if (usualTime.takes(i, c) && (stepsOfByte[c] & usualSteps[i]) == 0) return false;
  return true;
}
static_assert(isUsualTimeSound());

constexpr std::size_t hostStep = 10;

constexpr HeaderAutomaton fromHost(pattern, hostStep);

bool hasUsualTime(std::string_view text) {
  using Vector = std::uint8_t __attribute__((vector_size(16)));
  const auto load = [](const void* from) {
    Vector vector;
    std::memcpy(&vector, from, sizeof vector);
    return vector;
  };
  if (text.size() < sizeof(Vector)) return false;
  const Vector c = load(text.data());
  const Vector above = (c | load(usualTime.fold.data())) - load(usualTime.lowest.data());
  const auto taken = (above <= load(usualTime.span.data())) | (c == load(usualTime.instead.data()));
  std::array<std::uint64_t, 2> halves;
  std::memcpy(halves.data(), &taken, sizeof taken);
  return (halves[0] & halves[1]) == ~std::uint64_t{0};
}

}  // namespace

HeaderSearch::Answer HeaderSearch::advance(std::string_view line) {
  Walk walk = walkFrom(line, offset_, step_, taken_);
  const Answer answer = walkOn(walk, std::make_index_sequence<pattern.count>());
  offset_ = line.size() - static_cast<std::size_t>(walk.end - walk.at);
  step_ = walk.step;
  taken_ = walk.taken;
  return answer;
}

bool beginsWithHeader(std::string_view text) {
  if (hasUsualTime(text)) {
    const auto end = fromHost.run(text.substr(usualSteps.size()));
    if (end != HeaderAutomaton::End::foreign) return end == HeaderAutomaton::End::found;
  }
  Walk walk = walkFrom(text, 0, 0, 0);
  return walkOn(walk, std::make_index_sequence<pattern.count>()) == HeaderSearch::Answer::found;
}

}  // namespace diagnostics
