// Putting a helper and its job file in place, and taking them away.
//
// An installation is made in steps. Everything that can fail is done on staging files beside the
// final ones; then two renames put the executable and the job file in place. A crash at any point
// leaves the old helper or the new one, whole, and what it left lying is cleared away by the next
// daemon.
//
// Threading: one thread. Ownership: works in open directories of the root, which outlive it.
// Errors: ServiceError. A failure before the first rename changes nothing.
// Order: executable before job file when installing, job file before executable when removing: a
// job file never names an
//   executable that is not there.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "jobd/RootDirectories.h"
#include "platform/services/JobFile.h"

namespace jobd {

/// The points between which a crash is survived, in order.
enum class InstallStep {
  ExecutableStaged,  ///< copied, checked, on disk
  JobFileStaged,
  ExecutableInPlace,
  JobFileInPlace,
  Done,  ///< both directories are on disk
};

/// Copies the helper that `source` has open to a staging file in the directory of executables, on
/// disk, and checks the copy: the source may change under us, the copy cannot. Gives the services
/// that its job offers. May take as long as reading the source takes; holds a small part of it
/// only.
[[nodiscard]] std::vector<std::string> stageHelper(int toolsDirectory, int source,
                                                   const std::string& label);

/// Takes away what stageHelper made, whole or not.
void discardStagedHelper(int toolsDirectory, const std::string& label);

class HelperInstaller {
 public:
  using StepObserver = std::function<void(InstallStep)>;

  HelperInstaller(const RootDirectories& directories, platform::SystemRoot root)
      : directories_(directories), root_(std::move(root)) {}

  /// Told of each step when it is done. For tests of what a crash leaves.
  void setStepObserver(StepObserver observer) { stepDone_ = std::move(observer); }
  /// Asked with the checked job before anything is put in place; may throw to refuse it.
  using Approval = std::function<void(const platform::JobDescription&)>;

  /// Puts the staged executable of job `label` in place and writes its job file. Gives the job as
  /// its file describes it.
  platform::JobDescription putInPlace(const std::string& label, std::vector<std::string> services,
                                      const Approval& approve);
  /// Stages and puts in place.
  platform::JobDescription install(int descriptor, const std::string& label,
                                   const Approval& approve);

  /// Removes job file and executable. False when neither was there.
  bool remove(const std::string& label);

  /// Clears away what an installation that was cut short left.
  void removeStagingFiles();

 private:
  void reached(InstallStep step) const {
    if (stepDone_) stepDone_(step);
  }

  const RootDirectories& directories_;
  platform::SystemRoot root_;
  StepObserver stepDone_;
};

/// The names of the regular job files in a directory, without ".plist", valid labels only.
[[nodiscard]] std::vector<std::string> labelsOfJobFiles(int jobsDirectory);

}  // namespace jobd
