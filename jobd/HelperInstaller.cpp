// SPDX-License-Identifier: Apache-2.0

#include "jobd/HelperInstaller.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <span>

#include "jobd/HelperImage.h"
#include "jobd/MappedFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::fileSystemError;
using platform::ServiceError;
using platform::ServiceErrorCode;

// A label cannot begin with a dot, so a staging file is never mistaken for a job or a helper.
constexpr std::string_view kStagingPrefix = ".staging.";
constexpr std::string_view kJobSuffix = ".plist";

std::string stagingName(const std::string& name) {
  return std::string(kStagingPrefix) + name;
}

void writeAll(int file, std::span<const std::uint8_t> bytes, const std::string& name) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw fileSystemError("cannot write " + name, errno);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

/// Creates a file that nobody else has open.
FileDescriptor makeFile(int directory, const std::string& name) {
  ::unlinkat(directory, name.c_str(), 0);
  FileDescriptor file(
      ::openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw fileSystemError("cannot make " + name, errno);
  return file;
}

std::string jobFileOf(const std::string& label) {
  return label + std::string(kJobSuffix);
}

/// The file is complete and on disk when this returns.
void finishFile(int file, const std::string& name, mode_t mode) {
  if (::fchmod(file, mode) != 0 || ::fsync(file) != 0)
    throw fileSystemError("cannot complete " + name, errno);
}

void checkIsRegular(int source) {
  struct stat status {};
  if (::fstat(source, &status) != 0) throw fileSystemError("cannot examine the helper", errno);
  if (!S_ISREG(status.st_mode))
    throw ServiceError(ServiceErrorCode::FileSystem, "the helper is not a regular file");
}

void stageJobFile(int staging, const platform::JobDescription& job) {
  const std::string name = stagingName(jobFileOf(job.label));
  const FileDescriptor file = makeFile(staging, name);
  writeAll(file.get(), platform::encodeJobFile(job), name);
  finishFile(file.get(), name, 0644);
}

/// None for an executable that is missing or damaged.
std::optional<std::vector<std::string>> servicesOfHelper(int directory,
                                                         const std::string& label) try {
  const FileDescriptor file(
      ::openat(directory, label.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return std::nullopt;
  const MappedFile image(file.get(), label);
  return parseHelperImage(image.bytes(), label).services;
} catch (const ServiceError&) {
  return std::nullopt;
}

/// Copies in pieces from the beginning, whatever the source's offset.
void copyHelper(int source, int copy, const std::string& name) {
  std::vector<std::uint8_t> piece(std::size_t{256} * 1024);
  for (std::size_t total = 0;;) {
    const ssize_t got = ::pread(source, piece.data(), piece.size(), static_cast<off_t>(total));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw fileSystemError("cannot read the helper", errno);
    if (got == 0) return;
    total += static_cast<std::size_t>(got);
    if (total > platform::kMaximumHelperBytes) {
      throw ServiceError(
          ServiceErrorCode::FileSystem,
          "the helper is larger than " + std::to_string(platform::kMaximumHelperBytes) + " bytes");
    }
    writeAll(copy, std::span(piece).first(static_cast<std::size_t>(got)), name);
  }
}

void moveStaged(int staging, const std::string& from, int directory, const std::string& to) {
  if (::renameat(staging, from.c_str(), directory, to.c_str()) != 0)
    throw fileSystemError("cannot put " + to + " in place", errno);
}

bool unlinkIn(int directory, const std::string& name) {
  if (::unlinkat(directory, name.c_str(), 0) == 0) return true;
  if (errno == ENOENT) return false;
  throw fileSystemError("cannot remove " + name, errno);
}

void syncDirectory(int directory) {
  if (::fsync(directory) != 0) throw fileSystemError("cannot sync a directory to disk", errno);
}

/// Removes the staged file if an installation fails.
class StagingGuard {
 public:
  StagingGuard(int directory, std::string name) : directory_(directory), name_(std::move(name)) {}
  StagingGuard(const StagingGuard&) = delete;
  StagingGuard& operator=(const StagingGuard&) = delete;
  ~StagingGuard() {
    if (!name_.empty()) ::unlinkat(directory_, name_.c_str(), 0);
  }
  void dismiss() { name_.clear(); }

 private:
  int directory_;
  std::string name_;
};

}  // namespace

StagedHelper stageHelper(int stagingDirectory, int source, const std::string& label,
                         const ImageCheck& check) {
  checkIsRegular(source);
  const std::string name = stagingName(label);
  StagingGuard guard(stagingDirectory, name);
  const FileDescriptor copy = makeFile(stagingDirectory, name);
  copyHelper(source, copy.get(), name);
  const MappedFile image(copy.get(), name);
  HelperImage helper = parseHelperImage(image.bytes(), label);
  if (check) check(image.bytes());
  finishFile(copy.get(), name, 0755);
  guard.dismiss();
  return {std::move(helper.version), std::move(helper.services)};
}

void discardStagedHelper(int stagingDirectory, const std::string& label) {
  ::unlinkat(stagingDirectory, stagingName(label).c_str(), 0);
}

int helperStaging(const RootDirectories& directories) {
  return directories.staging ? directories.staging.get() : directories.tools.get();
}

int jobStaging(const RootDirectories& directories) {
  return directories.staging ? directories.staging.get() : directories.jobs.get();
}

platform::JobDescription HelperInstaller::install(int descriptor, const std::string& label,
                                                  const Approval& approve) {
  auto staged = stageHelper(helperStaging(directories_), descriptor, label);
  return putInPlace(label, std::move(staged.services), approve);
}

platform::JobDescription HelperInstaller::putInPlace(const std::string& label,
                                                     std::vector<std::string> services,
                                                     const Approval& approve) {
  const int tools = directories_.tools.get();
  const int helperStage = helperStaging(directories_);
  StagingGuard executableGuard(helperStage, stagingName(label));
  reached(InstallStep::ExecutableStaged);
  platform::JobDescription job = describe(label, std::move(services));
  if (approve) approve(job);
  StagingGuard jobGuard(jobStaging(directories_), stagingName(jobFileOf(label)));
  stageJobFile(jobStaging(directories_), job);
  reached(InstallStep::JobFileStaged);

  moveStaged(helperStage, stagingName(label), tools, label);
  executableGuard.dismiss();
  syncDirectory(tools);
  reached(InstallStep::ExecutableInPlace);
  putJobFileInPlace(label);
  jobGuard.dismiss();
  reached(InstallStep::Done);
  return job;
}

platform::JobDescription HelperInstaller::describe(const std::string& label,
                                                   std::vector<std::string> services) const {
  return {label, {root_.helperTool(label).string()}, std::move(services)};
}

void HelperInstaller::putJobFileInPlace(const std::string& label) {
  const int jobs = directories_.jobs.get();
  moveStaged(jobStaging(directories_), stagingName(jobFileOf(label)), jobs, jobFileOf(label));
  reached(InstallStep::JobFileInPlace);
  syncDirectory(jobs);
}

void HelperInstaller::finishInterrupted(const std::string& label) {
  const int tools = directories_.tools.get();
  const auto found = platform::readFileIn(directories_.jobs.get(), jobFileOf(label),
                                          platform::kMaximumJobFileBytes);
  if (!found) {
    if (unlinkIn(tools, label)) syncDirectory(tools);
    return;
  }
  const auto services = servicesOfHelper(tools, label);
  if (!services) return;
  const auto job = describe(label, *services);
  if (platform::encodeJobFile(job) == *found) return;
  stageJobFile(jobStaging(directories_), job);
  putJobFileInPlace(label);
}

bool HelperInstaller::remove(const std::string& label) {
  const bool hadJob = unlinkIn(directories_.jobs.get(), jobFileOf(label));
  if (hadJob) syncDirectory(directories_.jobs.get());
  const bool hadExecutable = unlinkIn(directories_.tools.get(), label);
  if (hadExecutable) syncDirectory(directories_.tools.get());
  return hadJob || hadExecutable;
}

void HelperInstaller::removeStagingFiles() {
  for (const int directory : {helperStaging(directories_), jobStaging(directories_)}) {
    for (const auto& name : platform::namesIn(directory)) {
      if (name.starts_with(kStagingPrefix)) ::unlinkat(directory, name.c_str(), 0);
    }
  }
}

std::vector<std::string> labelsOfJobFiles(int jobsDirectory) {
  std::vector<std::string> labels;
  for (const auto& name : platform::namesIn(jobsDirectory)) {
    if (!name.ends_with(kJobSuffix)) continue;
    std::string label = name.substr(0, name.size() - kJobSuffix.size());
    if (platform::SystemRoot::isValidLabel(label)) labels.push_back(std::move(label));
  }
  return labels;
}

}  // namespace jobd
