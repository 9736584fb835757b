// The regular expression that recognises the first line of a system-log entry, taken apart while
// the program is compiled.
//
// The pattern uses a small part of the notation: a sequence of character sets, each with a number
// of repetitions, in groups that mean nothing but themselves. And wherever one of its sets may be
// taken a varying number of times, no character of it can begin what follows. So there is one way
// only to read a line, and the search is a single walk from left to right: linear in time for any
// line, without a stack, able to stop at any character and to go on later. compilePattern refuses,
// as an error of the build, a pattern of which this is not true.
//
// Characters are code points. Letters match in both cases; of the characters outside ASCII that
// makes U+017F (long s) and U+212A (Kelvin sign) equal to "s" and "k". A blank (\s) is what Unicode
// calls White_Space.
//
// Threading, Ownership, Order: constants and pure functions. Errors: at compile time, see above;
// while a program runs, std::invalid_argument.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace diagnostics {

/// As the logging system writes an entry: date, time, host, process, process ID in brackets, what
/// else the process says of itself, a colon.
inline constexpr std::string_view headerPattern =
    R"(^([A-Za-z]{3}(\s){1,2}([0-9]{1,2})(\s){1})([0-9]{1,2})\:([0-9]{1,2})\:([0-9]{1,2})(\s){1})"
    R"((\S){1,}(\s){1}([A-Za-z\.\-\_]){1,}\[[0-9]{1,}\]([\sA-Za-z0-9\(\)\[\]\.]{0,})\:)";

/// What the pattern can tell apart among the characters outside ASCII, one bit each.
enum ForeignCharacter : std::uint8_t {
  foreignBlank = 1,
  longS = 2,
  kelvinSign = 4,
  foreignOther = 8,
  anyForeign = 15,
};

[[nodiscard]] constexpr bool isForeignBlank(char32_t c) {
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 ||
         c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

[[nodiscard]] constexpr ForeignCharacter foreignCharacter(char32_t c) {
  if (c == 0x17F) return longS;
  if (c == 0x212A) return kelvinSign;
  return isForeignBlank(c) ? foreignBlank : foreignOther;
}

struct CharacterSet {
  std::array<bool, 128> ascii{};
  std::uint8_t foreign = 0;

  constexpr void add(char c) {
    ascii.at(static_cast<unsigned char>(c)) = true;
    // Case is of no account anywhere in the pattern.
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    if (lower < 'a' || lower > 'z') return;
    ascii.at(static_cast<unsigned char>(lower)) = true;
    ascii.at(static_cast<unsigned char>(lower - ('a' - 'A'))) = true;
    if (lower == 's') foreign |= longS;
    if (lower == 'k') foreign |= kelvinSign;
  }
  constexpr void addBlanks() {
    for (char c = '\t'; c <= '\r'; ++c) add(c);
    add(' ');
    foreign |= foreignBlank;
  }
  constexpr void complement() {
    for (bool& member : ascii) member = !member;
    foreign ^= anyForeign;
  }
  [[nodiscard]] constexpr bool meets(const CharacterSet& other) const {
    for (std::size_t c = 0; c < ascii.size(); ++c)
      if (ascii[c] && other.ascii[c]) return true;
    return (foreign & other.foreign) != 0;
  }
};

/// One set of the pattern, and how many of its characters stand in a row.
struct PatternStep {
  static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

  CharacterSet characters;
  std::size_t least = 1;
  std::size_t most = 1;
};

struct CompiledPattern {
  static constexpr std::size_t capacity = 32;

  std::array<PatternStep, capacity> steps{};
  std::size_t count = 0;
};

namespace pattern_detail {

// An error of the build for a pattern that is taken apart while the program is compiled.
[[noreturn]] inline void malformed(const char* why) {
  throw std::invalid_argument(why);
}

/// Reads the pattern from left to right.
class Reader {
 public:
  explicit constexpr Reader(std::string_view text) : text_(text) {}

  constexpr CompiledPattern read() {
    expect('^');
    while (!atEnd()) readItem();
    if (depth_ != 0) malformed("a group is not closed");
    checkThatThereIsOneWay();
    return pattern_;
  }

 private:
  [[nodiscard]] constexpr bool atEnd() const { return at_ == text_.size(); }
  [[nodiscard]] constexpr char peek() const { return atEnd() ? '\0' : text_[at_]; }
  constexpr char next() {
    if (atEnd()) malformed("the pattern ends too early");
    return text_[at_++];
  }
  constexpr void expect(char c) {
    if (next() != c) malformed("another character was expected");
  }

  constexpr void readItem() {
    if (depth_ == groupStarts_.size()) malformed("groups are nested too deeply");
    if (peek() == '(') {
      next();
      groupStarts_[depth_++] = pattern_.count;
    } else if (peek() == ')') {
      next();
      if (depth_ == 0) malformed("no group is open");
      readRepetition(groupStarts_[--depth_]);
    } else {
      if (pattern_.count == CompiledPattern::capacity) malformed("the pattern is too long");
      pattern_.steps[pattern_.count++].characters = readCharacters();
      readRepetition(pattern_.count - 1);
    }
  }

  constexpr CharacterSet readCharacters() {
    CharacterSet set;
    if (peek() != '[') {
      readMember(set, /*inBrackets=*/false);
      return set;
    }
    next();
    while (peek() != ']') readMember(set, /*inBrackets=*/true);
    next();
    return set;
  }

  /// A character, an escape, or a range within brackets.
  constexpr void readMember(CharacterSet& set, bool inBrackets) {
    const char first = next();
    if (first == '\\') {
      readEscape(set);
    } else if (inBrackets && peek() == '-') {
      next();
      const char last = next();
      if (last < first) malformed("a range runs backwards");
      for (char c = first; c < last; ++c) set.add(c);
      set.add(last);
    } else if (std::string_view("^$.|?*+{}[]()-").find(first) != std::string_view::npos) {
      malformed("this part of the notation is not known");
    } else {
      set.add(first);
    }
  }

  constexpr void readEscape(CharacterSet& set) {
    const char c = next();
    if (c == 's') {
      set.addBlanks();
    } else if (c == 'S') {
      set.addBlanks();
      set.complement();
    } else if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      malformed("this escape is not known");
    } else {
      set.add(c);
    }
  }

  /// "{3}", "{1,2}" or "{1,}", which belongs to the one step since `start`.
  constexpr void readRepetition(std::size_t start) {
    if (peek() != '{') return;
    next();
    if (pattern_.count != start + 1) malformed("only a single set can be repeated");
    PatternStep& step = pattern_.steps[start];
    if (step.least != 1 || step.most != 1) malformed("a repetition cannot be repeated");
    step.least = readNumber();
    step.most = step.least;
    if (peek() == ',') {
      next();
      step.most = peek() == '}' ? PatternStep::unlimited : readNumber();
    }
    expect('}');
    if (step.most < step.least || step.most == 0) malformed("a repetition runs backwards");
  }

  constexpr std::size_t readNumber() {
    std::size_t number = 0;
    if (peek() < '0' || peek() > '9') malformed("a number was expected");
    while (peek() >= '0' && peek() <= '9')
      number = number * 10 + static_cast<std::size_t>(next() - '0');
    return number;
  }

  constexpr void checkThatThereIsOneWay() const {
    if (pattern_.count == 0) malformed("the pattern is empty");
    if (pattern_.steps[pattern_.count - 1].least == 0) malformed("the last step may be left out");
    for (std::size_t i = 0; i < pattern_.count; ++i) {
      if (pattern_.steps[i].least == pattern_.steps[i].most) continue;
      for (std::size_t j = i + 1; j < pattern_.count; ++j) {
        if (pattern_.steps[i].characters.meets(pattern_.steps[j].characters))
          malformed("there are several ways to read a line");
        if (pattern_.steps[j].least > 0) break;
      }
    }
  }

  std::string_view text_;
  std::size_t at_ = 0;
  CompiledPattern pattern_;
  std::array<std::size_t, 4> groupStarts_{};
  std::size_t depth_ = 0;
};

}  // namespace pattern_detail

consteval CompiledPattern compilePattern(std::string_view text) {
  return pattern_detail::Reader(text).read();
}

}  // namespace diagnostics
