// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/LogExcerpt.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "diagnostics/LabelSearch.h"
#include "platform/foundation/TextFile.h"

namespace diagnostics {
namespace {

/// The start of the line that contains `position`.
std::size_t startOfLine(std::string_view text, std::size_t position) {
  const void* const feed = ::memrchr(text.data(), '\n', position);
  if (feed == nullptr) return 0;
  return static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()) + 1;
}

}  // namespace

/// The lines of a text that contain the label, one after another; each is searched for once.
class LogFilter::NamedLines {
 public:
  explicit NamedLines(std::string_view lines) : lines_(lines) { lookFrom(0); }

  /// Advances to the first one that starts at or after `lineStart`, the start of a line, which must
  /// not decrease between calls.
  void advanceTo(std::size_t lineStart) {
    if (start_ < lineStart) lookFrom(lineStart);
  }
  /// The start of the line, or npos.
  [[nodiscard]] std::size_t start() const { return start_; }
  /// The start of the next line.
  [[nodiscard]] std::size_t end() const {
    return lines_.find('\n', label_ + kRouterLabel.size()) + 1;
  }

 private:
  void lookFrom(std::size_t lineStart) {
    label_ = findRouterLabel(lines_, lineStart);
    start_ = label_ == npos ? npos : startOfLine(lines_, label_);
  }

  const std::string_view lines_;
  std::size_t label_ = npos;
  std::size_t start_ = npos;
};

// ---- Pieces

void LogFilter::accept(std::string_view piece) {
  if (lineIsOpen_) {
    const std::size_t end = piece.find('\n');
    continueLine(piece.substr(0, end));
    if (end == npos) return;
    endLine();
    piece.remove_prefix(end + 1);
  }
  const std::size_t openStart = startOfLine(piece, piece.size());
  acceptWholeLines(piece.substr(0, openStart));
  beginLine();
  continueLine(piece.substr(openStart));
}

std::shared_ptr<platform::NSData> LogFilter::finish() {
  if (!lineIsOpen_) beginLine();
  endLine();
  if (excerpt_.size() > 0)
    excerpt_.truncate(excerpt_.size() - 1);  // line feeds only separate lines
  return excerpt_.takeData();
}

// ---- Complete lines, each with its line feed

void LogFilter::acceptWholeLines(std::string_view lines) {
  NamedLines named(lines);
  std::size_t start = 0;
  while (start < lines.size())
    start = keep_ ? keepEntries(lines, start, named) : skipEntries(lines, start, named);
}

/// Skips to the line that starts the next entry to keep. While no entry is kept, only a line with
/// the label can start one, so other lines are not looked at.
std::size_t LogFilter::skipEntries(std::string_view lines, std::size_t start, NamedLines& named) {
  named.advanceTo(start);
  if (named.start() == npos) return lines.size();
  keep_ = beginsWithHeader(lines.substr(named.start()));
  return keep_ ? named.start() : named.end();
}

/// Keeps everything up to the line that starts the next entry not to keep. While an entry is kept,
/// a line with the label changes nothing, header or not.
std::size_t LogFilter::keepEntries(std::string_view lines, std::size_t start, NamedLines& named) {
  std::size_t at = start;
  while (at < lines.size()) {
    named.advanceTo(at);
    if (named.start() == at) {
      at = named.end();
    } else if (!beginsWithHeader(lines.substr(at))) {
      at = lines.find('\n', at) + 1;
    } else {
      keep_ = false;
      break;
    }
  }
  excerpt_.append(lines.substr(start, at - start));
  return at;
}

// ---- The line that crosses a piece boundary

void LogFilter::beginLine() {
  lineIsOpen_ = true;
  lineStart_ = excerpt_.size();
  search_ = {};
  answer_ = Answer::open;
  namesRouter_ = false;
}

std::string_view LogFilter::storedLine() const {
  return excerpt_.view().substr(lineStart_);
}

bool LogFilter::mayBeKept() const {
  return keep_ || answer_ != Answer::notFound;
}

void LogFilter::continueLine(std::string_view part) {
  if (!mayBeKept()) return;
  excerpt_.append(part);
  if (answer_ == Answer::open) answer_ = search_.advance(storedLine());
  if (!mayBeKept()) excerpt_.truncate(lineStart_);
  if (answer_ != Answer::notFound && !namesRouter_) lookForLabel(part);
}

/// Searches the part that was appended last, and across the boundary before it.
void LogFilter::lookForLabel(std::string_view part) {
  const std::string_view line = storedLine();
  const std::size_t before = line.size() - part.size();
  const std::size_t overlap = std::min(before, kRouterLabel.size() - 1);
  namesRouter_ = findRouterLabel(line.substr(before - overlap), 0) != npos;
}

void LogFilter::endLine() {
  if (answer_ == Answer::found) keep_ = namesRouter_;
  if (keep_)
    excerpt_.append("\n");
  else
    excerpt_.truncate(lineStart_);
  lineIsOpen_ = false;
}

// ---- Reading

LogExcerpt readLogExcerpt(const std::shared_ptr<platform::NSURL>& url) {
  using platform::NSError;
  LogExcerpt result;
  try {
    LogFilter filter;
    result.error = platform::readUTF8TextFile(url, [&](std::string_view p) { filter.accept(p); });
    if (!result.error) result.data = filter.finish();
  } catch (const std::bad_alloc&) {
    result.error = NSError::errorWithDomain_code_userInfo(
        platform::str(platform::NSPOSIXErrorDomain), ENOMEM, nullptr);
  }
  if (!result.data) result.data = platform::NSData::dataWithBytes({});
  return result;
}

}  // namespace diagnostics
