// SPDX-License-Identifier: Apache-2.0

// The last lines of the shared logger, kept for a diagnostic report.
//
// Only what was sent to the logger is kept: a line below the log level was never built and costs
// nothing here either. Device input is not kept unless requested: a line that shows data or element
// values is kept with its format instead of its message. Each line is kept with its site, so that a
// report can distinguish its literal text from its arguments.
//
// Threading: any thread. No other code is called under the lock.
// Errors: a line for which there is no memory is lost and counted.
// Order: oldest first. Lines of one thread keep their order.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kit/KQLogModule.h"
#include "platform/kit/KQLogger.h"

namespace platform {

class RecentLogLines {
 public:
  static constexpr std::size_t kMaximumLines = 1000;
  static constexpr std::size_t kMaximumBytes = std::size_t{256} * 1024;
  /// A longer line is truncated, so that one line cannot displace all others.
  static constexpr std::size_t kMaximumLineBytes = std::size_t{4} * 1024;

  /// A longer function name or format is not kept.
  static constexpr std::size_t kMaximumSiteBytes = 200;

  struct Line {
    std::string time;  ///< "2026-11-21T07:13:42.123456Z"
    std::string text;  ///< the line for a person to read: its time first, no line feed
    std::string function;
    int sourceLine = 0;
    std::string format;                      ///< as written at the site
    std::optional<std::int64_t> onlyNumber;  ///< as in KQLogEntry
  };
  struct Contents {
    std::vector<std::string> lines;  ///< without line feeds
    std::uint64_t dropped = 0;       ///< how many older lines were dropped
  };

  /// "2026-11-21T07:13:42.123456Z <level> function:line [tags] message", as a printable line.
  void add(const KQLogEntry& entry) noexcept;
  [[nodiscard]] Contents contents() const;
  /// The same lines with their sites.
  [[nodiscard]] std::vector<Line> lines() const;
  /// Whether to keep whole lines that show device input from now on. Initially false.
  void setKeepsInput(bool keeps) { keepsInput_.store(keeps, std::memory_order_relaxed); }

 private:
  void keep(Line line);

  std::atomic<bool> keepsInput_ = false;
  mutable std::mutex mutex_;
  std::deque<Line> lines_;
  std::size_t bytes_ = 0;
  std::uint64_t dropped_ = 0;
};

/// Identifier and file name of the module below.
inline constexpr std::string_view kRecentLogLinesIdentifier = "KQRecentLogLines";
inline constexpr std::string_view kRecentLogLinesFile = "recent.log";

/// Provides the lines as one text file. The shared logger has one from the start.
class RecentLogLinesModule final : public KQLogModule, public KQLogModuleFileProvider {
 public:
  explicit RecentLogLinesModule(std::shared_ptr<const RecentLogLines> lines);
  void provideFilesWithCompletionHandler(const FilesHandler& handler) override;

 private:
  const std::shared_ptr<const RecentLogLines> lines_;
};

}  // namespace platform
