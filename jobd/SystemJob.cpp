// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "jobd/HelperImage.h"
#include "jobd/HelperProgram.h"
#include "jobd/MappedFile.h"
#include "platform/services/InstalledJob.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/services/VersionOrder.h"

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;

/// Nobody but the superuser may have written what is about to run.
void checkIsTheSystems(int file, const std::string& name) {
  struct stat status {};
  if (::fstat(file, &status) != 0) throw platform::fileSystemError("cannot examine " + name, errno);
  if (status.st_uid != platform::SystemRoot::systemOwner() ||
      (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       name + " is not the superuser's alone, so it is not run: install it again");
  }
}

FileDescriptor openImage(int helpers, const std::string& label, const std::string& path) {
  FileDescriptor image(
      ::openat(helpers, label.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!image) throw platform::fileSystemError("cannot open " + path, errno);
  checkIsTheSystems(image.get(), path);
  return image;
}

/// Empty for a helper that is missing or damaged: it is no version to go back from.
std::string versionOf(int helpers, const std::string& label) try {
  const FileDescriptor file = openImage(helpers, label, label);
  const MappedFile image(file.get(), label);
  return parseHelperImage(image.bytes(), label).version;
} catch (const ServiceError&) {
  return {};
}

/// The directory of the helper that the installed job names.
FileDescriptor openHelpers(int root, const platform::LayeredJobFile& job,
                           const std::string& label) {
  std::string reason;
  const auto description = platform::parseJobFile(job.bytes, label, &reason);
  auto helpers = platform::openPlace(root, job.layer->helpers);
  if (description)
    reason = platform::whyNotTheHelper(description->arguments.front(), helpers.get(), label,
                                       job.layer->helpers);
  if (!reason.empty())
    throw ServiceError(ServiceErrorCode::InvalidImage,
                       "the job file of " + label + " cannot be used: " + reason);
  if (!helpers)
    throw ServiceError(ServiceErrorCode::FileSystem, "the helper of " + label + " is missing");
  return helpers;
}

}  // namespace

std::string newestVersion(const platform::SystemRoot& root, const std::string& label) {
  const auto directory = platform::openRoot(root);
  std::string newest;
  for (const platform::JobLayer& layer : root.places().layers) {
    const auto helpers = platform::openPlace(directory.get(), layer.helpers);
    const std::string version = helpers ? versionOf(helpers.get(), label) : std::string();
    if (newest.empty() || platform::isNewer(version, newest)) newest = version;
  }
  return newest;
}

void checkIsSystemLabel(const std::string& label) {
  if (label == platform::kSystemJobLabel) return;
  throw ServiceError(ServiceErrorCode::NotSupported,
                     "only " + std::string(platform::kSystemJobLabel) +
                         " can be installed for all users of this system; install " + label +
                         " in a root of your own (WLHID_ROOT)");
}

void checkIsOnlyService(const std::string& label, const std::vector<std::string>& services) {
  const auto isItsOwn = [&](const std::string& service) {
    return service == label || service == label + ".control" || service == label + ".devices";
  };
  const bool offersLabel = std::find(services.begin(), services.end(), label) != services.end();
  if (offersLabel && std::all_of(services.begin(), services.end(), isItsOwn)) return;
  throw ServiceError(ServiceErrorCode::InvalidImage,
                     "for all users of this system, the helper may offer the services " + label +
                         ", " + label + ".control and " + label + ".devices and no other");
}

SystemProgram loadSystemProgram(const platform::SystemRoot& root, const std::string& label) {
  checkIsSystemLabel(label);
  const auto directory = platform::openRoot(root);
  const auto job = platform::findJobFile(directory.get(), root.places(), label);
  if (!job) throw ServiceError(ServiceErrorCode::NoSuchJob, "there is no job " + label);
  const auto helpers = openHelpers(directory.get(), *job, label);
  std::string path = root.path() / job->layer->helpers / label;
  const FileDescriptor file = openImage(helpers.get(), label, path);
  const MappedFile image(file.get(), path);
  const HelperImage helper = parseHelperImage(image.bytes(), label);
  checkIsOnlyService(label, helper.services);
  return {sealedProgram(label, helper.program), std::move(path)};
}

}  // namespace jobd
