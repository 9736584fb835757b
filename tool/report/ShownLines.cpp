// SPDX-License-Identifier: Apache-2.0

#include "tool/report/ShownLines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "jobd/LogTable.h"
#include "platform/foundation/LogTemplate.h"
#include "router-client/LogSites.h"
#include "router/LogTable.h"

namespace tool {

namespace {

using platform::LogMatch;
using platform::LogPlace;
using platform::LogTemplate;

constexpr std::int64_t kLargestShownNumber = 9'999'999;
constexpr std::int64_t kFirstIOReturn = -0x20000000;  // 0xE0000000 as a signed 32-bit number
constexpr std::int64_t kLastIOReturn = kFirstIOReturn + 0xFFF;
constexpr std::string_view kJobDaemon = "wlhid-jobd";
/// The longest line of a row, plus the entry's head.
constexpr std::size_t kMaximumKeptBytes = platform::kMaximumLogLineBytes + 1000;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

const std::vector<const LogTemplate*>& knownRows() {
  static const std::vector<const LogTemplate*> rows = [] {
    std::vector<const LogTemplate*> all(router::row::kTable.begin(), router::row::kTable.end());
    all.insert(all.end(), jobd::row::kTable.begin(), jobd::row::kTable.end());
    return all;
  }();
  return rows;
}

bool isOwnLabel(std::string_view label) {
  return label == WLHIDEventRouterLabel || label == kJobDaemon;
}

template <class Number>
std::optional<Number> parsed(std::string_view text, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

std::string numberOr(std::string_view otherwise, std::string_view text,
                     bool (*isShown)(std::int64_t)) {
  const auto number = parsed<std::int64_t>(text);
  return number && isShown(*number) ? std::to_string(*number) : std::string(otherwise);
}

std::string shownDevice(std::string_view text, DeviceOrder& devices) {
  const auto id = parsed<std::uint64_t>(text.substr(text.find('x') + 1), 16);
  return id ? devices.nameOf(*id) : std::string(kPrivate);
}

std::string shownArgument(LogPlace place, std::string_view text, DeviceOrder& devices) {
  switch (place) {
    case LogPlace::Count:
      return numberOr(kPrivate, text, &isShownNumber);
    case LogPlace::Code:
      return numberOr(kPrivate, text, &isShownCode);
    case LogPlace::Device:
      return shownDevice(text, devices);
    case LogPlace::Label:
      return shownLabel(text);
    case LogPlace::Version:
      return shownVersion(text);
    case LogPlace::Text:
    case LogPlace::Private:
      break;
  }
  return std::string(kPrivate);
}

std::string shown(const LogMatch& match, DeviceOrder& devices) {
  std::string text(match.row->literal(0));
  for (std::size_t i = 0; i < match.row->places(); ++i)
    text.append(shownArgument(match.row->place(i), match.arguments[i], devices))
        .append(match.row->literal(i + 1));
  return text;
}

// ---- An entry of the system log

struct Entry {
  std::string_view time;
  std::string_view writer;
  std::string_view process;
  std::string_view text;
};

/// "Nov 21 03:12:46", with a blank before a day below 10.
bool isTime(std::string_view text) {
  constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  constexpr std::string_view kForm = "  0 00:00:00";  // after the month; 0 stands for a digit
  const std::size_t month = kMonths.find(text.substr(0, 3));
  if (month == std::string_view::npos || month % 3 != 0) return false;
  std::string form(text);
  std::ranges::replace_if(form, isDigit, '0');
  if (form[4] == '0') form[4] = ' ';
  return form.substr(3) == kForm;
}

/// Removes everything up to and including `end` from `rest` and returns what precedes `end`;
/// nothing if `rest` does not contain it.
std::optional<std::string_view> takeUntil(std::string_view end, std::string_view& rest) {
  const std::size_t at = rest.find(end);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view part = rest.substr(0, at);
  rest.remove_prefix(at + end.size());
  return part;
}

/// Nothing if the router or the job daemon cannot have written the line.
std::optional<Entry> entryOf(std::string_view line) {
  const auto isNumber = [](std::string_view text) {
    return std::ranges::all_of(text, isDigit) && numberOr({}, text, &isShownNumber) == text;
  };
  constexpr std::size_t kTimeBytes = 15;
  if (line.size() <= kTimeBytes || !isTime(line.substr(0, kTimeBytes)) || line[kTimeBytes] != ' ')
    return std::nullopt;
  std::string_view rest = line.substr(kTimeBytes + 1);
  const auto host = takeUntil(" ", rest);
  const auto writer = takeUntil("[", rest);
  const auto process = takeUntil("]: ", rest);
  if (!host || host->empty() || !writer || !isOwnLabel(*writer)) return std::nullopt;
  if (!process || process->empty() || !isNumber(*process)) return std::nullopt;
  return Entry{line.substr(0, kTimeBytes), *writer, *process, rest};
}

/// The rows that tell of a failure, or of something that was refused or lost.
constexpr std::array kErrors{&router::row::cannotRun,
                             &router::row::noEndpoint,
                             &router::row::refused,
                             &router::row::linesNotWritten,
                             &router::row::tooManyConnections,
                             &router::row::noStatus,
                             &router::row::grantsIgnored,
                             &router::row::routingDenied,
                             &router::row::sessionTooSlow,
                             &router::row::sessionCannotRoute,
                             &router::row::watcherTooSlow,
                             &router::row::deviceFails,
                             &jobd::row::cannotRun,
                             &jobd::row::cannotLaunch,
                             &jobd::row::cannotWatch,
                             &jobd::row::cannotStopRouter,
                             &jobd::row::cannotStart,
                             &jobd::row::skipsJob,
                             &jobd::row::jobKilled};

bool isError(const LogMatch& match) {
  if (match.row == &jobd::row::jobExited) return match.arguments.back() != "0";
  return std::ranges::find(kErrors, match.row) != kErrors.end();
}

std::optional<LogMatch> matchOf(const std::optional<Entry>& entry) {
  return entry ? platform::recogniseLogLine(entry->text, knownRows()) : std::nullopt;
}

// ---- A line of the client

const wlhid::LogSite* siteOf(const platform::RecentLogLines::Line& line) {
  for (const wlhid::LogSite* site : wlhid::site::kTable) {
    if (site->function == line.function && site->line == line.sourceLine &&
        site->format == line.format)
      return site;
  }
  return nullptr;
}

std::string shownNumberOf(const wlhid::LogSite& site, const std::optional<std::int64_t>& number) {
  if (!number) return std::string(kPrivate);
  if (site.shows == wlhid::LogShows::Number && isShownNumber(*number))
    return std::to_string(*number);
  if (site.shows == wlhid::LogShows::Code && isShownCode(*number))
    return "code " + std::to_string(*number);
  return std::string(kPrivate);
}

/// The format's literal text, with `argument` in place of each conversion.
std::string withArgument(std::string_view format, std::string_view argument) {
  std::string text;
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%') {
      text += format[at];
      continue;
    }
    at = std::min(format.find_first_of("diuxXcsp@%", at + 1), format.size() - 1);
    text += argument;
  }
  return text;
}

}  // namespace

std::string DeviceOrder::nameOf(std::uint64_t registryEntryID) {
  const auto [place, isNew] = places_.try_emplace(registryEntryID, places_.size() + 1);
  return "device " + std::to_string(place->second);
}

bool isShownNumber(std::int64_t number) {
  return number >= 0 && number <= kLargestShownNumber;
}

bool isShownCode(std::int64_t code) {
  return isShownNumber(code) || (code >= kFirstIOReturn && code <= kLastIOReturn);
}

std::string shownVersion(std::string_view version) {
  std::size_t numbers = 1;
  std::size_t digits = 0;
  for (const char c : version) {
    const bool isDot = c == '.' && digits > 0;
    if (!isDot && !isDigit(c)) return std::string(kPrivate);
    digits = isDot ? 0 : digits + 1;
    numbers += isDot ? 1 : 0;
    if (digits > 3 || numbers > 3) return std::string(kPrivate);
  }
  return std::string(digits > 0 ? version : kPrivate);
}

std::string shownLabel(std::string_view label) {
  return std::string(isOwnLabel(label) ? label : kPrivate);
}

std::string shownEnd(std::string_view lastEnd) {
  DeviceOrder none;
  const auto match = platform::recogniseLogLine(lastEnd, jobd::row::kEnds);
  return match ? shown(*match, none) : std::string(kPrivate);
}

std::string lineOfLength(std::uint64_t bytes) {
  return "<a line of " + std::to_string(bytes) + " bytes>";
}

std::string shownLogLine(std::string_view line, DeviceOrder& devices) {
  const auto entry = entryOf(line);
  const auto match = matchOf(entry);
  if (!match) return lineOfLength(line.size());
  std::string text(entry->time);
  text.append(" ").append(kPrivate).append(" ").append(entry->writer).append("[");
  return text.append(entry->process).append("]: ") + shown(*match, devices);
}

bool isErrorLine(std::string_view line) {
  const auto match = matchOf(entryOf(line));
  return match && isError(*match);
}

std::string shownRecentLine(const platform::RecentLogLines::Line& line) {
  const wlhid::LogSite* const site = siteOf(line);
  if (site == nullptr) return lineOfLength(line.text.size());
  return line.time + " <" + std::to_string(site->level) + "> " + std::string(site->function) + ":" +
         std::to_string(site->line) + " " +
         withArgument(site->format, shownNumberOf(*site, line.onlyNumber));
}

void ShownLines::take(std::string_view part) {
  line_.append(part.substr(0, kMaximumKeptBytes - line_.size()));
  size_ += part.size();
}

std::string ShownLines::takeLine() {
  const std::string line = std::exchange(line_, {});
  const std::uint64_t size = std::exchange(size_, 0);
  const bool isWhole = size == line.size();
  if (source_ == Source::Unknown || !isWhole) return lineOfLength(size);
  return shownLogLine(line, devices_);
}

std::string ShownLines::feed(std::string_view bytes) {
  std::string result;
  for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    take(bytes.substr(0, end));
    result += takeLine() + "\n";
    bytes.remove_prefix(end + 1);
  }
  take(bytes);
  return result;
}

std::string ShownLines::finish() {
  return size_ == 0 ? std::string() : takeLine() + "\n";
}

}  // namespace tool
