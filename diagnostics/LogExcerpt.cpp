#include "diagnostics/LogExcerpt.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "diagnostics/LabelSearch.h"
#include "platform/foundation/TextFile.h"

namespace diagnostics {
namespace {

constexpr auto npos = std::string_view::npos;

bool namesRouter(std::string_view text) {
  return findRouterLabel(text, 0) != npos;
}

}  // namespace

// ---- Pieces

void LogFilter::accept(std::string_view piece) {
  if (lineIsOpen_) {
    const std::size_t end = piece.find('\n');
    continueLine(piece.substr(0, end));
    if (end == npos) return;
    endLine();
    piece.remove_prefix(end + 1);
  }
  const std::size_t lastEnd = piece.rfind('\n');
  if (lastEnd != npos) {
    acceptWholeLines(piece.substr(0, lastEnd + 1));
    piece.remove_prefix(lastEnd + 1);
  }
  beginLine();
  continueLine(piece);
}

std::shared_ptr<platform::NSData> LogFilter::finish() {
  if (!lineIsOpen_) beginLine();
  endLine();
  return excerpt_.takeData();
}

// ---- Lines that are there as a whole, each with its line feed

void LogFilter::acceptWholeLines(std::string_view lines) {
  std::size_t start = 0;
  while (start < lines.size())
    start = keep_ ? keepEntries(lines, start) : skipEntries(lines, start);
}

/// Up to the line that begins the next entry to be kept. While nothing is kept only a line with the
/// label can begin something, so the label is looked for first, and the other lines are not looked
/// at.
std::size_t LogFilter::skipEntries(std::string_view lines, std::size_t start) {
  const std::size_t label = findRouterLabel(lines, start);
  if (label == npos) return lines.size();
  const std::size_t lineStart = lines.rfind('\n', label) + 1;  // npos + 1 is 0
  const std::size_t lineEnd = lines.find('\n', label);
  keep_ = isHeader(lines.substr(lineStart, lineEnd - lineStart));
  return keep_ ? lineStart : lineEnd + 1;
}

/// Up to the line that begins the next entry not to be kept. While entries are kept a line with the
/// label changes nothing, header or not.
std::size_t LogFilter::keepEntries(std::string_view lines, std::size_t start) {
  std::size_t label = findRouterLabel(lines, start);
  std::size_t lineStart = start;
  while (lineStart < lines.size()) {
    const std::size_t lineEnd = lines.find('\n', lineStart);
    if (label < lineEnd) {
      label = findRouterLabel(lines, lineEnd);
    } else if (isHeader(lines.substr(lineStart, lineEnd - lineStart))) {
      keep_ = false;
      break;
    }
    lineStart = lineEnd + 1;
  }
  if (lineStart > start) appendLines(lines.substr(start, lineStart - start - 1));
  return lineStart;
}

/// Whole lines, without the line feed of the last one. (An excerpt that holds anything holds a
/// header, so it is empty only as long as there is no line in it.)
void LogFilter::appendLines(std::string_view lines) {
  if (excerpt_.size() > 0) excerpt_.append("\n");
  excerpt_.append(lines);
}

// ---- The line at a piece's border

void LogFilter::beginLine() {
  lineIsOpen_ = true;
  sizeBefore_ = excerpt_.size();
  appendLines({});
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
  if (!mayBeKept()) excerpt_.truncate(sizeBefore_);
  if (answer_ != Answer::notFound && !namesRouter_) lookForLabel(part);
}

/// In the part that was appended last, and across the border before it.
void LogFilter::lookForLabel(std::string_view part) {
  const std::string_view line = storedLine();
  const std::size_t before = line.size() - part.size();
  const std::size_t overlap = std::min(before, routerLabel.size() - 1);
  namesRouter_ = namesRouter(line.substr(before - overlap));
}

void LogFilter::endLine() {
  if (answer_ == Answer::found) keep_ = namesRouter_;
  if (!keep_) excerpt_.truncate(sizeBefore_);
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
