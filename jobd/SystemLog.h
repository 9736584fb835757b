// SPDX-License-Identifier: Apache-2.0

// <root>/var/log/system.log: the output of jobs, one entry per line.
//
// Threading: one thread.
// Ownership: owns the log directory's descriptor.
// Order: entries stay in order.
// Errors: none are raised. If the log cannot be written, entries are lost and nothing else happens:
//   a job does not fail because of its log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "jobd/LogBudget.h"
#include "jobd/LogTable.h"
#include "platform/foundation/LogTemplate.h"
#include "platform/services/FileDescriptor.h"

namespace jobd {

class SystemLog {
 public:
  static constexpr std::uint64_t kDefaultLimit = 4U << 20;

  /// Writes "system.log" in the open directory. When the log exceeds `limit`, it becomes
  /// "system.log.0", replacing the previous one, so it takes at most twice the limit on disk.
  explicit SystemLog(platform::FileDescriptor directory, std::uint64_t limit = kDefaultLimit);

  /// Adds an entry with a job's output, unless that source has written too much recently.
  void write(std::string_view name, long process, std::string_view text);
  /// Adds an entry of the daemon's own (jobd/LogTable.h).
  void note(const platform::LogLine& line);

  /// Called with the first entry that is left out; the handler arranges for logLeftOut to be
  /// called some time later.
  void onLeavingOut(std::function<void()> handler) { leavingOut_ = std::move(handler); }
  /// Adds one entry for each source of which something was left out since the last call.
  void logLeftOut();

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
  std::map<std::string, LogBudget, std::less<>> budgets_;  ///< by source
  std::function<void()> leavingOut_;
  bool isLeavingOut_ = false;
};

}  // namespace jobd
