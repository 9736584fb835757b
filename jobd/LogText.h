// SPDX-License-Identifier: Apache-2.0

// Prepares the output of jobs for a log that has one entry per line.
//
// Threading: pure functions; a LineSplitter belongs to one thread.
// Order: lines come out in the order in which their bytes came in.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "platform/foundation/LogEntryText.h"

namespace jobd {

/// The longest text of one entry, in bytes before it is made printable. A longer line continues in
/// another entry.
inline constexpr std::size_t kMaximumEntryBytes = 2048;

/// What a continuation starts with; no row of a log table does.
inline constexpr std::string_view kContinuationMark = "… ";

using platform::logEntry;

/// Splits a stream of bytes into lines of at most kMaximumEntryBytes, never inside a UTF-8
/// sequence.
class LineSplitter {
 public:
  using Sink = std::function<void(std::string_view line)>;

  void feed(std::string_view bytes, const Sink& sink);
  /// Passes on what is left without a line end.
  void finish(const Sink& sink);
  /// For the sink: whether its argument continues the line of the previous call.
  [[nodiscard]] bool continuesLine() const { return continuesLine_; }

 private:
  void giveTo(const Sink& sink, std::string_view piece, bool isLast);

  std::string rest_;
  bool continuesLine_ = false;
};

}  // namespace jobd
