// The router's entries of a log: every entry whose first line names the router, continuation lines
// included.
//
// An entry begins with a line in which headerPattern is found. Lines ahead of the first entry
// belong to none and are left out.
//
// Threading: readLogExcerpt may be called from any thread; a filter belongs to one thread.
// Ownership: the data belongs to the caller; nothing is kept between calls.
// Errors: see each function. Order: lines keep the log's order.
#pragma once

#include <memory>
#include <string_view>

#include "diagnostics/HeaderSearch.h"
#include "platform/foundation/GrowingData.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace diagnostics {

/// What the first line of an entry must hold, anywhere and in this case of letters.
inline constexpr std::string_view routerLabel = "com.quillmar.hideventrouter";

/// Takes a log in pieces and collects the excerpt: the kept lines, joined with "\n".
///
/// Needs memory for the excerpt and for one line more, and for that only while it may still turn
/// out to be kept: a line of any length that begins no entry, behind one that is not kept, takes
/// none.
class LogFilter {
 public:
  /// The log must be UTF-8; a piece may end anywhere, within a character as well.
  void accept(std::string_view piece);
  /// Ends the last line, be it empty, and hands over the excerpt. To be called once.
  [[nodiscard]] std::shared_ptr<platform::NSData> finish();

 private:
  using Answer = HeaderSearch::Answer;
  class NamedLines;

  void acceptWholeLines(std::string_view lines);
  std::size_t skipEntries(std::string_view lines, std::size_t start, NamedLines& named);
  std::size_t keepEntries(std::string_view lines, std::size_t start, NamedLines& named);

  void beginLine();
  void continueLine(std::string_view part);
  void endLine();
  void lookForLabel(std::string_view part);
  [[nodiscard]] bool mayBeKept() const;
  [[nodiscard]] std::string_view storedLine() const;

  platform::GrowingData excerpt_;  ///< the kept lines, each with a line feed behind it
  bool keep_ = false;  ///< whether the entry is kept to which the last whole line belongs

  // The line that has begun and not ended. As long as it may be kept it lies at the excerpt's end.
  bool lineIsOpen_ = false;
  std::size_t lineStart_ = 0;
  HeaderSearch search_;
  Answer answer_ = Answer::open;
  bool namesRouter_ = false;  ///< not looked for in a line that begins no entry
};

struct LogExcerpt {
  std::shared_ptr<platform::NSError> error;  ///< null, or why the log could not be read
  std::shared_ptr<platform::NSData> data;    ///< never null; empty with an error
};

/// The excerpt of the UTF-8 log at `url`. Errors: those of reading a text file
/// (platform/foundation/TextFile.h); ENOMEM in NSPOSIXErrorDomain where memory is short.
[[nodiscard]] LogExcerpt readLogExcerpt(const std::shared_ptr<platform::NSURL>& url);

}  // namespace diagnostics
