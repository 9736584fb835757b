// SPDX-License-Identifier: Apache-2.0

// A system root that lives as long as one command.
//
// A second process creates and watches it: when the command ends, for whatever reason, that process
// ends the jobs and removes the directory.
//
// Threading: create it before the process has a second thread.
// Ownership: owns the directory and everything in it.
// Errors: Failure if the directory or the watching process cannot be created.
#pragma once

#include <sys/types.h>

#include <filesystem>

namespace tool {

class ScratchRoot {
 public:
  /// A new directory for this user only, in the runtime directory or the one for temporary files.
  ScratchRoot();
  /// Returns when everything is gone.
  ~ScratchRoot();
  ScratchRoot(const ScratchRoot&) = delete;
  ScratchRoot& operator=(const ScratchRoot&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  void end() const;

  std::filesystem::path path_;
  int life_ = -1;  // a pipe: closing it tells the watching process that the command is over
  pid_t watcher_ = -1;
};

}  // namespace tool
