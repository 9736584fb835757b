// SPDX-License-Identifier: Apache-2.0

// The lines that a program logs, as data: one row per line, literal text with places for arguments.
//
//   inline constexpr LogTemplate refused{"refused: process {count} of user {private}"};
//   log(LogLine::of<refused>(process, user));
//
// A LogLine can only be made from a row, so code that takes LogLines never gets free text. And
// since every line comes from a row, a reader that has the rows can separate literal text from
// arguments again, and show only those arguments whose places permit it (see LogPlace).
//
// A line is always recognised by its own row, whatever its arguments: each argument is made to fit
// its place, whatever its origin and length.
//
// Threading: any thread.
// Ownership: a row refers to literals and lives forever; a line owns its text; a match refers to
//   the line.
// Errors: a malformed row, or arguments that do not match its places, fail to compile.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

/// The kinds of places. Text and Private appear only in the log; a report may show the values of
/// the others if they are plausible.
enum class LogPlace : std::uint8_t {
  Text,     ///< "{text}": anything, as one printable line
  Private,  ///< "{private}": a number that must not leave the log
  Count,    ///< "{count}": a count of this project's own, or a process ID
  Code,     ///< "{code}": an error code
  Device,   ///< "{device}": "device 0x…", with its registry entry ID
  Label,    ///< "{label}": a job's label
  Version,  ///< "{version}"
};

[[nodiscard]] constexpr bool isNumber(LogPlace place) {
  return place == LogPlace::Private || place == LogPlace::Count || place == LogPlace::Code ||
         place == LogPlace::Device;
}

class LogTemplate {
 public:
  static constexpr std::size_t kMaximumPlaces = 6;
  /// Of all literal text together. Even with the longest arguments, a line is shorter than
  /// kMaximumLogLineBytes.
  static constexpr std::size_t kMaximumLiteralBytes = 200;

  explicit consteval LogTemplate(std::string_view format) {
    std::size_t at = 0;
    for (auto open = format.find('{'); open != format.npos; open = format.find('{', at)) {
      const auto close = format.find('}', open);
      if (close == format.npos || count_ == kMaximumPlaces) malformed("too many places, or no end");
      literals_[count_] = format.substr(at, open - at);
      places_[count_++] = placeNamed(format.substr(open + 1, close - open - 1));
      at = close + 1;
    }
    literals_[count_] = format.substr(at);
    check();
  }

  [[nodiscard]] constexpr std::size_t places() const { return count_; }
  [[nodiscard]] constexpr LogPlace place(std::size_t index) const { return places_[index]; }
  /// The text before the place with this index, or, for places(), at the end of the line.
  [[nodiscard]] constexpr std::string_view literal(std::size_t index) const {
    return literals_[index];
  }

 private:
  // Fails to compile: rows are only made at compile time.
  [[noreturn]] static void malformed(const char* why) { throw std::invalid_argument(why); }

  static consteval LogPlace placeNamed(std::string_view name) {
    if (name == "text") return LogPlace::Text;
    if (name == "private") return LogPlace::Private;
    if (name == "count") return LogPlace::Count;
    if (name == "code") return LogPlace::Code;
    if (name == "device") return LogPlace::Device;
    if (name == "label") return LogPlace::Label;
    if (name == "version") return LogPlace::Version;
    malformed("there is no such place");
  }

  /// At most one text, and not at the start: two could only be told apart by their contents, and a
  /// line that may start with anything could belong to any other row.
  consteval void check() const {
    std::size_t texts = 0;
    std::size_t bytes = literals_[count_].size();
    for (std::size_t i = 0; i < count_; ++i) {
      bytes += literals_[i].size();
      texts += places_[i] == LogPlace::Text ? 1 : 0;
      const bool isJoined = literals_[i].empty() && (i > 0 || places_[0] == LogPlace::Text);
      if (isJoined) malformed("literal text must stand before a place");
    }
    if (texts > 1) malformed("there is one text at most");
    if (bytes > kMaximumLiteralBytes) malformed("the literal text is too long");
    for (std::size_t i = 0; i <= count_; ++i)
      for (const char c : literals_[i])
        if (c < ' ' || c > '~' || c == '}') malformed("literal text is printable ASCII");
  }

  std::array<std::string_view, kMaximumPlaces + 1> literals_{};
  std::array<LogPlace, kMaximumPlaces> places_{};
  std::size_t count_ = 0;
};

using LogArgument = std::variant<std::int64_t, std::uint64_t, std::string_view>;

/// The upper limit for any line.
inline constexpr std::size_t kMaximumLogLineBytes = 2000;

/// The row's line with these arguments, one per place. Each is made to fit: text is made printable
/// and, if too long, truncated and ended with "…"; characters that a label or a version cannot
/// contain become "_".
[[nodiscard]] std::string renderLogTemplate(const LogTemplate& row,
                                            std::span<const LogArgument> arguments);

/// One line to log: printable, without a line feed.
class LogLine {
 public:
  template <const LogTemplate& Row, class... Arguments>
  [[nodiscard]] static LogLine of(const Arguments&... arguments) {
    static_assert(sizeof...(Arguments) == Row.places(), "an argument for each place");
    static_assert(fit<Row, Arguments...>(std::index_sequence_for<Arguments...>()),
                  "numbers for numbers, text for text");
    const std::array<LogArgument, sizeof...(Arguments)> list{argument(arguments)...};
    return LogLine(renderLogTemplate(Row, list));
  }

  [[nodiscard]] const std::string& text() const { return text_; }
  operator std::string_view() const { return text_; }  // NOLINT: implicit on purpose

 private:
  explicit LogLine(std::string text) : text_(std::move(text)) {}

  template <const LogTemplate& Row, class... Arguments, std::size_t... Index>
  static consteval bool fit(std::index_sequence<Index...> /*indices*/) {
    return ((isNumber(Row.place(Index))
                 ? std::is_integral_v<Arguments>
                 : std::is_convertible_v<const Arguments&, std::string_view>)&&...);
  }
  template <class T>
  static LogArgument argument(const T& value) {
    if constexpr (!std::is_integral_v<T>)
      return std::string_view(value);
    else if constexpr (std::is_signed_v<T>)
      return static_cast<std::int64_t>(value);
    else
      return static_cast<std::uint64_t>(value);
  }

  std::string text_;
};

struct LogMatch {
  const LogTemplate* row = nullptr;
  std::vector<std::string_view> arguments{};  ///< as they appear in the line
};

/// The row that this line was made from. Nothing if no row matches, or two do, or one does in two
/// ways: an argument that contains another row's text can at most make a line unrecognised.
///
/// Takes time proportional to the line's length and the number of rows.
[[nodiscard]] std::optional<LogMatch> recogniseLogLine(std::string_view line,
                                                       std::span<const LogTemplate* const> rows);

}  // namespace platform
