// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/LogTemplate.h"

#include <algorithm>

#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"

namespace platform {
namespace {

constexpr std::string_view kDevicePrefix = "device 0x";
constexpr std::string_view kEllipsis = "…";
constexpr std::size_t kMaximumTextBytes = 1500;

constexpr std::size_t longest(LogPlace place) {
  switch (place) {
    case LogPlace::Text:
      return kMaximumTextBytes + kEllipsis.size();
    case LogPlace::Device:
      return kDevicePrefix.size() + 16;
    case LogPlace::Label:
      return 200;
    case LogPlace::Version:
      return 32;
    case LogPlace::Private:
    case LogPlace::Count:
    case LogPlace::Code:
      break;
  }
  return 20;
}
static_assert(LogTemplate::kMaximumLiteralBytes + longest(LogPlace::Text) +
                  5 * longest(LogPlace::Device) <
              kMaximumLogLineBytes);

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Whether the character can occur in the place, after the place's prefix.
bool canContain(LogPlace place, char c) {
  const bool isWord = isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
                      c == '-' || c == '_';
  switch (place) {
    case LogPlace::Text:
      return true;
    case LogPlace::Device:
      return isDigit(c) || (c >= 'a' && c <= 'f');
    case LogPlace::Label:
      return isWord;
    case LogPlace::Version:
      return isWord || c == '+' || c == '~';
    case LogPlace::Private:
    case LogPlace::Count:
    case LogPlace::Code:
      break;
  }
  return isDigit(c);
}

/// The length of the place's prefix at this position, before the characters of canContain().
std::optional<std::size_t> prefixLength(LogPlace place, std::string_view line, std::size_t at) {
  if (place == LogPlace::Device) {
    if (!line.substr(at).starts_with(kDevicePrefix)) return std::nullopt;
    return kDevicePrefix.size();
  }
  return isNumber(place) && line.substr(at).starts_with('-') ? 1 : 0;
}

// ---- Rendering a line

std::string printable(std::string_view text) {
  std::string result = printableLine(text);
  if (result.size() <= kMaximumTextBytes) return result;
  std::size_t end = kMaximumTextBytes;
  while ((static_cast<unsigned char>(result[end]) & 0xC0) == 0x80) --end;
  result.resize(end);
  return result.append(kEllipsis);
}

std::string word(LogPlace place, std::string_view text) {
  std::string result(text.substr(0, longest(place)));
  for (char& c : result) {
    if (!canContain(place, c)) c = '_';
  }
  return result.empty() ? "_" : result;
}

std::string rendered(LogPlace place, const LogArgument& argument) {
  if (const auto* text = std::get_if<std::string_view>(&argument))
    return place == LogPlace::Text ? printable(*text) : word(place, *text);
  const auto* number = std::get_if<std::int64_t>(&argument);
  const std::uint64_t bits =
      number != nullptr ? static_cast<std::uint64_t>(*number) : std::get<std::uint64_t>(argument);
  if (place == LogPlace::Device) return stringWithFormat("device 0x%llx", bits);
  return number != nullptr ? std::to_string(*number) : std::to_string(bits);
}

// ---- Recognising a line

/// For each position in a line, including its end: in how many ways the rest of a row matches from
/// there. Two means two or more.
using Ways = std::vector<std::uint8_t>;

std::uint8_t sum(std::uint8_t a, std::uint8_t b) {
  return static_cast<std::uint8_t>(std::min(a + b, 2));
}

Ways waysOfLiteral(std::string_view line, std::string_view literal, const Ways& rest) {
  Ways ways(line.size() + 1);
  for (std::size_t at = 0; at + literal.size() <= line.size(); ++at) {
    if (line.substr(at).starts_with(literal)) ways[at] = rest[at + literal.size()];
  }
  return ways;
}

Ways waysOfPlace(std::string_view line, LogPlace place, const Ways& rest) {
  Ways run(line.size() + 1);  // of one or more characters
  for (std::size_t at = line.size(); at-- > 0;)
    run[at] = canContain(place, line[at]) ? sum(rest[at + 1], run[at + 1]) : 0;
  Ways ways(line.size() + 1);
  for (std::size_t at = 0; at <= line.size(); ++at) {
    if (place == LogPlace::Text)
      ways[at] = sum(rest[at], run[at]);
    else if (const auto head = prefixLength(place, line, at))
      ways[at] = run[at + *head];
  }
  return ways;
}

/// The ways of each of a row's parts, from the first literal to the last, and of the end after
/// them.
std::vector<Ways> waysOf(std::string_view line, const LogTemplate& row) {
  std::vector<Ways> ways(2 * row.places() + 2);
  ways.back().assign(line.size() + 1, 0);
  ways.back()[line.size()] = 1;
  for (std::size_t part = 2 * row.places() + 1; part-- > 0;) {
    const Ways& rest = ways[part + 1];
    ways[part] = part % 2 == 0 ? waysOfLiteral(line, row.literal(part / 2), rest)
                               : waysOfPlace(line, row.place(part / 2), rest);
  }
  return ways;
}

/// The end of the only argument that lets the rest of the row match the rest of the line.
std::size_t endOfArgument(std::string_view line, LogPlace place, std::size_t at, const Ways& rest) {
  std::size_t end = at + prefixLength(place, line, at).value_or(0);
  if (place != LogPlace::Text) ++end;
  while (end < line.size() && rest[end] == 0) ++end;
  return end;
}

/// Follows the only way. Nothing if an argument is longer than any that is ever written.
std::optional<LogMatch> onlyMatch(std::string_view line, const LogTemplate& row,
                                  const std::vector<Ways>& ways) {
  LogMatch match{&row};
  std::size_t at = 0;
  for (std::size_t i = 0; i < row.places(); ++i) {
    at += row.literal(i).size();
    const std::size_t end = endOfArgument(line, row.place(i), at, ways[2 * i + 2]);
    match.arguments.push_back(line.substr(at, end - at));
    if (end - at > longest(row.place(i))) return std::nullopt;
    at = end;
  }
  return match;
}

}  // namespace

std::string renderLogTemplate(const LogTemplate& row, std::span<const LogArgument> arguments) {
  std::string line(row.literal(0));
  for (std::size_t i = 0; i < row.places(); ++i)
    line.append(rendered(row.place(i), arguments[i])).append(row.literal(i + 1));
  return line;
}

std::optional<LogMatch> recogniseLogLine(std::string_view line,
                                         std::span<const LogTemplate* const> rows) {
  if (line.size() > kMaximumLogLineBytes) return std::nullopt;
  std::optional<LogMatch> found;
  int count = 0;
  for (const LogTemplate* row : rows) {
    if (!line.starts_with(row->literal(0)) || !line.ends_with(row->literal(row->places())))
      continue;
    const auto ways = waysOf(line, *row);
    count += ways.front()[0];
    if (ways.front()[0] == 1) found = onlyMatch(line, *row, ways);
  }
  return count == 1 ? found : std::nullopt;
}

}  // namespace platform
