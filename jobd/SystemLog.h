// <root>/var/log/system.log: what jobs write, one line an entry.
//
// Threading: one thread. Ownership: the log keeps its directory open. Order: entries keep theirs.
// Errors: none are raised. A log that cannot be written loses entries and nothing else: a job does
// not fail for its log.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "jobd/LogBudget.h"
#include "jobd/LogTable.h"
#include "platform/services/FileDescriptor.h"

namespace jobd {

class SystemLog {
 public:
  static constexpr std::uint64_t defaultLimit = 4U << 20;

  /// Writes "system.log" in the open directory; a log that has grown past `limit` becomes
  /// "system.log.0", in place of the one before, so that the disk holds at most twice the limit.
  explicit SystemLog(platform::FileDescriptor directory, std::uint64_t limit = defaultLimit);

  /// An entry with what a job wrote, unless the writer of that name has written too much of late.
  void write(std::string_view name, long process, std::string_view text);
  /// An entry of the daemon's own (jobd/LogTable.h).
  void note(const platform::LogLine& line);

  /// Called with the first entry that is left out; whoever is told has sayWhatWasLeftOut called
  /// some time later.
  void whenLeavingOut(std::function<void()> handler) { leavingOut_ = std::move(handler); }
  /// One entry for each writer of whom something was left out since the last time.
  void sayWhatWasLeftOut();

 private:
  bool mayWrite(std::string_view name, std::size_t bytes);
  void append(const std::string& entry);
  [[nodiscard]] std::string entry(std::string_view name, long process, std::string_view text) const;
  bool prepare();
  bool reopen();

  platform::FileDescriptor directory_;
  platform::FileDescriptor file_;
  std::uint64_t limit_;
  std::string host_;
  std::map<std::string, LogBudget, std::less<>> budgets_;  ///< by writer
  std::function<void()> leavingOut_;
  bool isLeavingOut_ = false;
};

}  // namespace jobd
