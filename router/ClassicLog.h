// SPDX-License-Identifier: Apache-2.0

// The router's lines in the system's classic log, /var/log/system.log, where applications look for
// them.
//
// The file is the package's: the router appends to it and never creates, replaces or removes it. If
// somebody has put another file in its place, as a rotation does, that one is written from then on.
//
// Threading: one thread. A write may wait for the disk.
// Ownership: owns the directory's descriptor.
// Errors: none are raised. Entries that cannot be written are counted, and the count is written as
//   soon as that is possible again.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/services/FileDescriptor.h"
#include "router/BackgroundLog.h"

namespace router {

class ClassicLog {
 public:
  /// Writes "system.log" in the open directory.
  explicit ClassicLog(platform::FileDescriptor directory);

  void write(const LogEntry& entry);

 private:
  /// Whether there is a file to write to.
  bool prepare();
  [[nodiscard]] bool isInPlace() const;
  [[nodiscard]] bool append(const LogEntry& entry) const;

  platform::FileDescriptor directory_;
  platform::FileDescriptor file_;
  std::string host_;
  std::uint64_t lost_ = 0;
};

}  // namespace router
