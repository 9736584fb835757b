// SPDX-License-Identifier: Apache-2.0

// A whole system: a root of its own with a real job daemon and the real router, which an
// application in this process installs and uses.
//
// Threading: one thread creates and destroys it; the queries may come from any thread.
// Ownership: the directory, and every process that runs in it, goes with the object.
// Errors: std::runtime_error if the system cannot be set up.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/FoundationProvider.h"
#include "platform/kit/KQLogger.h"
#include "platform/services/Control.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"
#include "router/Devices.h"

namespace stress {

/// A process, by a handle that never comes to refer to another one.
class Process {
 public:
  explicit Process(pid_t identifier);
  [[nodiscard]] pid_t identifier() const { return identifier_; }
  void kill() const;
  [[nodiscard]] bool waitForEnd() const;

 private:
  pid_t identifier_;
  platform::FileDescriptor handle_;
};

class System {
 public:
  /// In a new temporary directory.
  System();
  System(const System&) = delete;
  System& operator=(const System&) = delete;
  ~System();

  [[nodiscard]] const platform::SystemRoot& root() const { return root_; }
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }

  /// Like an application. Both throw on failure.
  void install() const;
  void uninstall() const;
  /// Replaces the installed router with another image.
  void bless(const std::filesystem::path& image) const;

  /// Adds one of the repository's recordings, played repeatedly.
  [[nodiscard]] std::uint64_t addRecording(const std::string& name, double speed) const;
  /// Adds a recording with this text.
  [[nodiscard]] std::uint64_t addText(const std::string& name, std::string_view text,
                                      const std::string& speed, bool repeat) const;

  [[nodiscard]] pid_t daemon() const;
  /// The router's job as the daemon sees it.
  [[nodiscard]] platform::JobStatus job() const;
  /// The router's process, which is waited for; -1 if none appears.
  [[nodiscard]] pid_t router() const;

 private:
  std::filesystem::path directory_;
  platform::SystemRoot root_;
};

/// The path of a recording in the repository.
[[nodiscard]] std::filesystem::path recordingPath(const std::string& name);

/// Counts log lines instead of printing them, during its life.
class LogCounts {
 public:
  /// Lines of a lower level are not sent. Sent lines are also kept by the logger; where allocations
  /// are counted there should be none, which level 4 ensures.
  explicit LogCounts(std::uint64_t level = 2);
  LogCounts(const LogCounts&) = delete;
  LogCounts& operator=(const LogCounts&) = delete;
  ~LogCounts();

  [[nodiscard]] std::uint64_t interruptions() const { return counts_->interruptions; }
  [[nodiscard]] std::uint64_t invalidations() const { return counts_->invalidations; }
  [[nodiscard]] std::uint64_t startErrors() const { return counts_->startErrors; }
  /// Lines from NSLog.
  [[nodiscard]] std::uint64_t systemLines() const { return counts_->systemLines; }

 private:
  struct Counts {
    std::atomic<std::uint64_t> interruptions{0};
    std::atomic<std::uint64_t> invalidations{0};
    std::atomic<std::uint64_t> startErrors{0};
    std::atomic<std::uint64_t> systemLines{0};
    void note(const platform::KQLogEntry& entry);
  };
  class Foundation;

  const std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();
  std::shared_ptr<platform::FoundationProvider> foundation_;
  std::shared_ptr<platform::KQLogSink> sink_;
  std::uint64_t level_ = 0;
};

}  // namespace stress
