// The shared logger: levelled lines with a fixed site and tags, the last of which it remembers, and
// the modules that supply files for a diagnostic report.
//
// Threading: any thread. No lock is held while a sink or a module runs.
// Ownership: the logger keeps its modules and its sink; both are shared, so one that is replaced
//   lives until its last call.
// Errors: a sink must not throw; what it throws is dropped.
// Order: lines of one thread reach the sink in order; lines of several threads in some order, each
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

#include "platform/foundation/Format.h"
#include "platform/foundation/NSArray.h"
#include "platform/kit/KQLogModule.h"

namespace platform {

/// One line as a sink receives it. The views live for the call.
struct KQLogEntry {
  std::uint64_t level = 0;
  std::string_view function;
  std::string_view sourcePath;
  int sourceLine = 0;
  std::shared_ptr<NSArray> tags;  ///< null: none
  std::string_view message;       ///< rendered
  std::string_view format;        ///< as written at the site
  bool showsInput = false;        ///< data or element values are among the arguments
  /// The message without anything that a device sent: of data the length, of numbers beside it
  /// nothing.
  std::string_view messageWithoutInput{};
  /// The number among the arguments, where there is no other: of an error its code, of null 0.
  std::optional<std::int64_t> onlyNumber{};
};

using KQLogSink = std::function<void(const KQLogEntry&)>;

class RecentLogLines;

class KQLogger {
 public:
  /// Never destroyed.
  static KQLogger& sharedLogger();

  /// Lines of a level below this are not wanted: 0 lets everything through. Starts as the number in
  /// the environment variable KQ_LOG_LEVEL (not read in a set-user-ID process), 4 where there is
  /// none or it is no number.
  static std::uint64_t logLevel();
  static void setLogLevel(std::uint64_t level);

  /// Sends one line to the sink, whatever the current level: the caller has asked logLevel() before
  /// it formed anything.
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

  /// Replaces the sink; null puts back the default, one line on standard error, without input of
  /// devices unless the build asked for it (the option WLHID_LOG_INPUT, for debugging). A sink of
  /// the application gets each message whole. Returns the previous sink.
  std::shared_ptr<KQLogSink> setSink(std::shared_ptr<KQLogSink> sink);

  /// What was sent last, whatever the sink made of it.
  [[nodiscard]] RecentLogLines& recentLines();

  /// Keeps `module`. False, and nothing kept, when one with the same identifier is there.
  bool addModule(std::shared_ptr<KQLogModule> module);
  [[nodiscard]] std::vector<std::shared_ptr<KQLogModule>> modules() const;

 private:
  KQLogger();
  void formatAndSend(KQLogEntry entry, std::span<const FormatArgument> arguments);
  void send(const KQLogEntry& entry);
  struct State;
  const std::unique_ptr<State> state_;
};

/// The whole entry on one line, without line feed: "<level> <function>:<line> [tags] message". The
/// default sink's line is this with unprintable characters escaped.
[[nodiscard]] std::string renderLogEntry(const KQLogEntry& entry);

}  // namespace platform
