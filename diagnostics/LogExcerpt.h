// SPDX-License-Identifier: Apache-2.0

// The router's entries in a log: every entry whose first line names the router, including its
// continuation lines.
//
// An entry starts with a line that matches kHeaderPattern. Lines before the first entry are left
// out.
//
// Threading: readLogExcerpt may be called from any thread; a filter belongs to one thread.
// Ownership: the data belongs to the caller; nothing is kept between calls.
// Errors: see each function.
// Order: lines keep the log's order.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "diagnostics/HeaderSearch.h"
#include "platform/foundation/GrowingData.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace diagnostics {

/// What the first line of an entry must contain, in this case and anywhere in the line.
inline constexpr std::string_view kRouterLabel = "com.quillmar.hideventrouter";

/// Takes a log in pieces and collects the excerpt: the kept lines, joined with "\n".
///
/// Needs memory for the excerpt and for one more line, the latter only while the line may still be
/// kept: a line that starts no entry, after an entry that is not kept, takes none, however long.
class LogFilter {
 public:
  /// The log must be UTF-8; a piece may end anywhere, even inside a character.
  void accept(std::string_view piece);
  /// Ends the last line, even if it is empty, and returns the excerpt. Call once.
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

  platform::GrowingData excerpt_;  ///< the kept lines, each followed by a line feed
  bool keep_ = false;              ///< whether the entry of the last complete line is kept

  // The incomplete line. While it may still be kept it is stored at the end of the excerpt.
  bool lineIsOpen_ = false;
  std::size_t lineStart_ = 0;
  HeaderSearch search_;
  Answer answer_ = Answer::open;
  bool namesRouter_ = false;  ///< not determined for a line that starts no entry
};

struct LogExcerpt {
  std::shared_ptr<platform::NSError> error;  ///< null, or why the log could not be read
  std::shared_ptr<platform::NSData> data;    ///< never null; empty with an error
};

/// The excerpt of the UTF-8 log at `url`. Errors: those of reading a text file
/// (platform/foundation/TextFile.h); ENOMEM in NSPOSIXErrorDomain if memory runs out.
[[nodiscard]] LogExcerpt readLogExcerpt(const std::shared_ptr<platform::NSURL>& url);

}  // namespace diagnostics
