// SPDX-License-Identifier: Apache-2.0

// Installs a helper and its job file, and removes them.
//
// An installation has several steps. Everything that can fail is done on staging files, next to the
// final ones or, on the system's own root, in a directory that only the daemon can reach; then two
// renames put the executable and the job file in place. A crash at any point leaves either the old
// helper or the new one, complete; the next daemon removes any leftovers.
//
// Threading: one thread.
// Ownership: works in open directories of the root, which must outlive it.
// Errors: ServiceError. A failure before the first rename changes nothing.
// Order: when installing, the executable before the job file; when removing, the job file before
//   the executable. So a job file never names a missing executable.
//   removeStagingFiles before finishInterrupted, at the daemon's start.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "jobd/RootDirectories.h"
#include "platform/services/JobFile.h"
#include "platform/services/SystemRoot.h"

namespace jobd {

/// Checks an image's bytes; throws ServiceError to refuse it.
using ImageCheck = std::function<void(std::span<const std::uint8_t> image)>;

/// The steps, in order. A crash between any two of them is survived.
enum class InstallStep {
  ExecutableStaged,  ///< copied, checked, on disk
  JobFileStaged,
  ExecutableInPlace,
  JobFileInPlace,
  Done,  ///< both directories are on disk
};

/// What a staged helper says of itself.
struct StagedHelper {
  std::string version;
  std::vector<std::string> services;
};

/// Copies the helper that is open as `source` to a staging file in the directory, on disk, and
/// checks the copy: unlike the source, it cannot change. `check` may throw to refuse it. May take
/// as long as reading the source takes; holds only a small part of it in memory.
[[nodiscard]] StagedHelper stageHelper(int stagingDirectory, int source, const std::string& label,
                                       const ImageCheck& check = nullptr);

/// Removes the staging file of stageHelper, complete or not.
void discardStagedHelper(int stagingDirectory, const std::string& label);

/// Where helpers are staged, and where job files are.
[[nodiscard]] int helperStaging(const RootDirectories& directories);
[[nodiscard]] int jobStaging(const RootDirectories& directories);

class HelperInstaller {
 public:
  using StepObserver = std::function<void(InstallStep)>;

  HelperInstaller(const RootDirectories& directories, platform::SystemRoot root)
      : directories_(directories), root_(std::move(root)) {}

  /// Called after each step. For tests of what a crash leaves.
  void setStepObserver(StepObserver observer) { stepDone_ = std::move(observer); }
  /// Called with the checked job before anything is put in place; may throw to refuse it.
  using Approval = std::function<void(const platform::JobDescription&)>;

  /// Puts the staged executable of job `label` in place and writes its job file. Returns the job as
  /// described by that file.
  platform::JobDescription putInPlace(const std::string& label, std::vector<std::string> services,
                                      const Approval& approve);
  /// Stages and puts in place.
  platform::JobDescription install(int descriptor, const std::string& label,
                                   const Approval& approve);

  /// Removes the job file and the executable. False if neither existed.
  bool remove(const std::string& label);

  /// Removes what interrupted installations left.
  void removeStagingFiles();
  /// Finishes for this job what was interrupted between two files. An executable without a job file
  /// is removed; a job file that describes the executable before is replaced by one that describes
  /// the one that is there.
  void finishInterrupted(const std::string& label);

 private:
  [[nodiscard]] platform::JobDescription describe(const std::string& label,
                                                  std::vector<std::string> services) const;
  void putJobFileInPlace(const std::string& label);
  void reached(InstallStep step) const {
    if (stepDone_) stepDone_(step);
  }

  const RootDirectories& directories_;
  platform::SystemRoot root_;
  StepObserver stepDone_;
};

/// The labels of the job files in a directory: names without ".plist" that are valid labels.
[[nodiscard]] std::vector<std::string> labelsOfJobFiles(int jobsDirectory);

}  // namespace jobd
