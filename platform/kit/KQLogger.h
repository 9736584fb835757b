// SPDX-License-Identifier: Apache-2.0

// The shared logger: lines with a level, a site and tags, the most recent of which it keeps, and
// the modules that supply files for a diagnostic report.
//
// Threading: any thread. No lock is held while a sink or a module runs.
// Ownership: the logger keeps its modules and its sink. Both are shared: a replaced sink lives
//   until its last call ends.
// Errors: a sink must not throw; exceptions are dropped.
// Order: lines of one thread reach the sink in order; lines of different threads in any order, each
//   whole.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/NSArray.h"
#include "platform/kit/KQLogModule.h"

namespace platform {

/// One line as a sink receives it. The views are valid during the call.
struct KQLogEntry {
  std::uint64_t level = 0;
  std::string_view function;
  std::string_view sourcePath;
  int sourceLine = 0;
  std::shared_ptr<NSArray> tags;  ///< null: none
  std::string_view message;       ///< rendered
  std::string_view format;        ///< as written at the site
  bool showsInput = false;        ///< data or element values are among the arguments
  /// The message without anything that a device sent: data is replaced by its length, and numbers
  /// in the same line are left out.
  std::string_view messageWithoutInput{};
  /// The only argument as a number, if it has one: an error's code, 0 for null.
  std::optional<std::int64_t> onlyNumber{};
};

using KQLogSink = std::function<void(const KQLogEntry&)>;

class RecentLogLines;

class WLHID_EXPORT KQLogger {
 public:
  /// Never destroyed.
  static KQLogger& sharedLogger();

  /// Lines below this level are not wanted; 0 lets everything through. The initial value is the
  /// number in the environment variable KQ_LOG_LEVEL (ignored in a set-user-ID process), or 4 if it
  /// is unset or not a number.
  static std::uint64_t logLevel();
  static void setLogLevel(std::uint64_t level);

  /// Sends one line to the sink, whatever the current level: the caller checks logLevel() before it
  /// builds anything.
  template <class... Args>
  void logAtLevel_function_sourcePath_sourceLine_tags_message(
      std::uint64_t level, std::string_view function, std::string_view sourcePath, int sourceLine,
      const std::shared_ptr<NSArray>& tags, std::string_view format, const Args&... args) {
    const std::array<FormatArgument, sizeof...(Args)> arguments{formatArgument(args)...};
    formatAndSend({.level = level,
                   .function = function,
                   .sourcePath = sourcePath,
                   .sourceLine = sourceLine,
                   .tags = tags,
                   .message = {},
                   .format = format},
                  arguments);
  }

  /// Replaces the sink; null restores the default, which writes one line to standard error, without
  /// device input unless built with the option WLHID_LOG_INPUT (for debugging). An application's
  /// sink gets each message whole. Returns the previous sink.
  std::shared_ptr<KQLogSink> setSink(std::shared_ptr<KQLogSink> sink);

  /// The lines that were sent last, whatever the sink did with them.
  [[nodiscard]] RecentLogLines& recentLines();

  /// Adds `module`. Returns false and adds nothing if one with the same identifier exists.
  bool addModule(std::shared_ptr<KQLogModule> module);
  [[nodiscard]] std::vector<std::shared_ptr<KQLogModule>> modules() const;

 private:
  KQLogger();
  void formatAndSend(KQLogEntry entry, std::span<const FormatArgument> arguments);
  void send(const KQLogEntry& entry);
  struct State;
  const std::unique_ptr<State> state_;
};

/// The whole entry on one line, without a line feed: "<level> <function>:<line> [tags] message".
/// The default sink writes this with unprintable characters escaped.
[[nodiscard]] WLHID_EXPORT std::string renderLogEntry(const KQLogEntry& entry);

}  // namespace platform
