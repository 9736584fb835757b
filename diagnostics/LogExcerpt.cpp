#include "diagnostics/LogExcerpt.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "diagnostics/LabelSearch.h"
#include "platform/foundation/TextFile.h"

namespace diagnostics {
namespace {

constexpr auto npos = std::string_view::npos;

/// Of the line in which `position` lies.
std::size_t startOfLine(std::string_view text, std::size_t position) {
  const void* const feed = ::memrchr(text.data(), '\n', position);
  if (feed == nullptr) return 0;
  return static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()) + 1;
}

}  // namespace

/// The places of the label in a text, looked for once each.
class LogFilter::Labels {
 public:
  explicit Labels(std::string_view text) : text_(text), next_(findRouterLabel(text, 0)) {}

  /// At or behind `from`, which never falls; npos where there is none.
  std::size_t next(std::size_t from) {
    if (next_ < from) next_ = findRouterLabel(text_, from);
    return next_;
  }

 private:
  const std::string_view text_;
  std::size_t next_;
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
    excerpt_.truncate(excerpt_.size() - 1);  // the last line feed joins nothing
  return excerpt_.takeData();
}

// ---- Lines that are there as a whole, each with its line feed

void LogFilter::acceptWholeLines(std::string_view lines) {
  Labels labels(lines);
  std::size_t start = 0;
  while (start < lines.size())
    start = keep_ ? keepEntries(lines, start, labels) : skipEntries(lines, start, labels);
}

/// Up to the line that begins the next entry to be kept. While nothing is kept only a line with the
/// label can begin something, so the label is looked for first, and the other lines are not looked
/// at.
std::size_t LogFilter::skipEntries(std::string_view lines, std::size_t start, Labels& labels) {
  const std::size_t label = labels.next(start);
  if (label == npos) return lines.size();
  const std::size_t lineStart = startOfLine(lines, label);
  keep_ = beginsWithHeader(lines.substr(lineStart));
  return keep_ ? lineStart : lines.find('\n', label) + 1;
}

/// Up to the line that begins the next entry not to be kept. While entries are kept a line with the
/// label changes nothing, header or not.
std::size_t LogFilter::keepEntries(std::string_view lines, std::size_t start, Labels& labels) {
  std::size_t lineStart = start;
  while (keep_ && lineStart < lines.size()) {
    const std::size_t lineEnd = lines.find('\n', lineStart);
    const bool named = labels.next(lineStart) < lineEnd;
    keep_ = named || !beginsWithHeader(lines.substr(lineStart));
    if (keep_) lineStart = lineEnd + 1;
  }
  excerpt_.append(lines.substr(start, lineStart - start));
  return lineStart;
}

// ---- The line at a piece's border

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

/// In the part that was appended last, and across the border before it.
void LogFilter::lookForLabel(std::string_view part) {
  const std::string_view line = storedLine();
  const std::size_t before = line.size() - part.size();
  const std::size_t overlap = std::min(before, routerLabel.size() - 1);
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
