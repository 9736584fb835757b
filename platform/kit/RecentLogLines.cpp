// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/RecentLogLines.h"

#include <chrono>
#include <ctime>

#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"

namespace platform {
namespace {

std::string timeText() {
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto micros = std::chrono::duration_cast<microseconds>(now).count();
  const auto seconds = static_cast<std::time_t>(micros / 1'000'000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  return stringWithFormat("%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1900,
                          parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                          parts.tm_sec, static_cast<int>(micros % 1'000'000));
}

bool isContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

/// The beginning of `text`, never ending inside a character.
std::string_view beginningOf(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && isContinuation(text[limit])) --limit;
  return text.substr(0, limit);
}

std::string cutLine(const std::string& text) {
  const std::string_view beginning = beginningOf(text, RecentLogLines::kMaximumLineBytes);
  std::string line = printableLine(beginning, beginning.size());
  if (beginning.size() < text.size())
    line += stringWithFormat("… (%zu bytes more)", text.size() - beginning.size());
  return line;
}

std::string withoutInput(const KQLogEntry& entry) {
  KQLogEntry shown = entry;
  const std::string message = std::string(entry.format) + " (input left out)";
  shown.message = message;
  return renderLogEntry(shown);
}

std::string textOf(const RecentLogLines::Contents& contents) {
  std::string text;
  if (contents.dropped > 0)
    text = stringWithFormat("(%llu older lines were dropped)\n", contents.dropped);
  for (const std::string& line : contents.lines) text.append(line).append("\n");
  return text;
}

std::shared_ptr<NSData> dataOf(const std::string& text) {
  return NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

}  // namespace

void RecentLogLines::add(const KQLogEntry& entry) noexcept {
  try {
    const bool whole = !entry.showsInput || keepsInput_.load(std::memory_order_relaxed);
    std::string time = timeText();
    std::string text = time + " " + cutLine(whole ? renderLogEntry(entry) : withoutInput(entry));
    const auto site = [](std::string_view part) {
      return std::string(part.size() <= kMaximumSiteBytes ? part : std::string_view());
    };
    keep({std::move(time), std::move(text), site(entry.function), entry.sourceLine,
          site(entry.format), entry.onlyNumber});
  } catch (...) {
    const std::lock_guard lock(mutex_);
    ++dropped_;
  }
}

void RecentLogLines::keep(Line line) {
  const std::lock_guard lock(mutex_);
  const std::size_t size = line.text.size();
  lines_.push_back(std::move(line));
  bytes_ += size;
  while (lines_.size() > kMaximumLines || bytes_ > kMaximumBytes) {
    bytes_ -= lines_.front().text.size();
    lines_.pop_front();
    ++dropped_;
  }
}

RecentLogLines::Contents RecentLogLines::contents() const {
  Contents contents;
  const std::lock_guard lock(mutex_);
  for (const Line& line : lines_) contents.lines.push_back(line.text);
  contents.dropped = dropped_;
  return contents;
}

std::vector<RecentLogLines::Line> RecentLogLines::lines() const {
  const std::lock_guard lock(mutex_);
  return {lines_.begin(), lines_.end()};
}

RecentLogLinesModule::RecentLogLinesModule(std::shared_ptr<const RecentLogLines> lines)
    : KQLogModule(str(kRecentLogLinesIdentifier), str("Recent log lines")),
      lines_(std::move(lines)) {}

void RecentLogLinesModule::provideFilesWithCompletionHandler(const FilesHandler& handler) {
  auto source = [lines = lines_](const std::shared_ptr<KQLogFile>&,
                                 const KQLogFile::ResultHandler& result) {
    result(nullptr, nullptr, dataOf(textOf(lines->contents())), false);
  };
  handler(nullptr, {KQLogFile::initWithName_localizedDescription_categoryName_source(
                       str(kRecentLogLinesFile), str("The last lines that this process logged"),
                       str("Log"), std::move(source))});
}

}  // namespace platform
