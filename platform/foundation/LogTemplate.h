// The lines that a program logs, as data: one row a line, literal text with places for arguments.
//
//   inline constexpr LogTemplate refused{"refused: process {count} of user {private}"};
//   log(LogLine::of<refused>(process, user));
//
// A LogLine comes of a row and nothing else, so whoever takes LogLines is given no free text. And
// since every line is a row's, a reader who has the rows can tell literal text from arguments
// again, and show of the latter only what their places let be shown (see LogPlace).
//
// That a line is recognised by its own row does not depend on its arguments: what stands in a place
// is made to fit it, whoever wrote it and however long it is.
//
// Threading: any thread.
// Ownership: a row refers to literals and lives for ever; a line owns its text, a match refers to
//   the line.
// Errors: a row that is not well formed, and arguments that do not fit theirs, are errors of the
//   build.
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

/// What stands in a place. Text and Private are for the log alone, of the others a report may show
/// the value where it is a likely one.
enum class LogPlace : std::uint8_t {
  Text,     ///< "{text}": anything, as one printable line
  Private,  ///< "{private}": a number that is nobody else's business
  Count,    ///< "{count}": a number of the project's own, or a process
  Code,     ///< "{code}": the code of an error
  Device,   ///< "{device}": "device 0x…", by its registry entry ID
  Label,    ///< "{label}": the label of a job
  Version,  ///< "{version}"
};

[[nodiscard]] constexpr bool isNumber(LogPlace place) {
  return place == LogPlace::Private || place == LogPlace::Count || place == LogPlace::Code ||
         place == LogPlace::Device;
}

class LogTemplate {
 public:
  static constexpr std::size_t kMaximumPlaces = 6;
  /// Of literal text in all. With the longest arguments a line is shorter than
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
  /// What stands before the place of that index, or, of places(), at the line's end.
  [[nodiscard]] constexpr std::string_view literal(std::size_t index) const {
    return literals_[index];
  }

 private:
  // An error of the build: no row is made while a program runs.
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

  /// One text at most, and none at the beginning: two could be told apart by their content alone,
  /// and a line that may begin with anything could be any other row's.
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

/// No line is longer.
inline constexpr std::size_t kMaximumLogLineBytes = 2000;

/// The row's line with these arguments, of which there are as many as places. Each is made to fit:
/// text is made printable and cut, behind which "…" stands; characters that a label or a version
/// cannot have become "_".
[[nodiscard]] std::string renderLogTemplate(const LogTemplate& row,
                                            std::span<const LogArgument> arguments);

/// One line to be logged: printable, without line feed.
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
  operator std::string_view() const { return text_; }  // NOLINT: a line is read as what it says

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
  std::vector<std::string_view> arguments{};  ///< as they stand in the line
};

/// The row whose line this is. Nothing where it is none's, or could be two rows', or one row's in
/// two ways: an argument that holds another row's text makes a line unknown at most.
///
/// In time that grows with the line's length and the number of rows, and with nothing else.
[[nodiscard]] std::optional<LogMatch> recogniseLogLine(std::string_view line,
                                                       std::span<const LogTemplate* const> rows);

}  // namespace platform
