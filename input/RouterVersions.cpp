// SPDX-License-Identifier: Apache-2.0

#include "input/RouterVersions.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/InstalledJob.h"
#include "platform/services/ServiceManagement.h"
#include "platform/services/SystemRoot.h"

namespace wlhid {

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSString;
using platform::objectCast;
using platform::SystemRoot;

constexpr std::string_view kBundleVersionKey = "CFBundleVersion";

RouterCopy incomplete(const std::string& path, CopyState state, std::string problem) {
  return {path, {}, state, std::move(problem), nullptr};
}

/// Why the file cannot be read.
std::string whyUnreadable(const std::string& path) {
  const platform::FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0)
    return path + ": " + std::generic_category().message(errno);
  if (S_ISDIR(status.st_mode)) return path + ": " + std::generic_category().message(EISDIR);
  if (!S_ISREG(status.st_mode)) return path + ": not a regular file";
  return path + ": cannot be read";
}

/// Read as the presence check does: the file, its section, the list in it, the version.
RouterCopy copyAt(const std::string& path, const std::string& whyNoPath) {
  if (path.empty()) return incomplete(path, CopyState::NoPath, whyNoPath);
  const auto data = platform::NSData::dataWithContentsOfFile(NSString::stringWithUTF8(path));
  if (!data) return incomplete(path, CopyState::Unreadable, whyUnreadable(path));
  const auto bytes = KQPrivilegedHelperManager::extractInfoPlistFromData(data);
  if (!bytes)
    return incomplete(path, CopyState::NoEmbeddedList, path + ": has no embedded property list");
  const auto list =
      platform::NSPropertyListSerialization::propertyListWithData_options_format_error(
          bytes, 0, nullptr, nullptr);
  if (!list)
    return incomplete(path, CopyState::BadList, path + ": its embedded property list is damaged");
  const auto dictionary = objectCast<NSDictionary>(list);
  const auto version = dictionary ? dictionary->objectForKey(kBundleVersionKey) : nullptr;
  if (!version)
    return incomplete(path, CopyState::NoVersion,
                      path + ": its embedded property list has no version");
  return {path, version->description(), CopyState::Complete, {}, version};
}

std::string bundleCopyPath() {
  const auto bundle = platform::NSBundle::mainBundle()->bundlePath();
  if (!bundle) return {};
  return bundle->UTF8String() + "/Contents/Library/LaunchServices/" +
         std::string(WLHIDEventRouterLabel);
}

std::string executableOf(const NSDictionary& job) {
  const auto arguments = objectCast<NSArray>(job.objectForKey("ProgramArguments"));
  if (!arguments || arguments->count() == 0) return {};
  const auto path = objectCast<NSString>(arguments->objectAtIndex(0));
  return path ? path->UTF8String() : std::string();
}

std::string whyNoJob(const SystemRoot& root) {
  std::string reason = "there is one now";
  static_cast<void>(platform::installedJob(root, std::string(WLHIDEventRouterLabel), &reason));
  return reason;
}

std::string jobProblem() {
  try {
    return whyNoJob(SystemRoot::current());
  } catch (const std::exception& error) {
    return error.what();
  }
}

std::vector<std::string> servicesOf(const NSDictionary& job) {
  std::vector<std::string> names;
  const auto services = objectCast<NSDictionary>(job.objectForKey("MachServices"));
  if (!services) return names;
  for (const auto& [name, value] : services->entries()) names.push_back(name->description());
  return names;
}

}  // namespace

RouterVersions readRouterVersions() {
  RouterVersions versions;
  versions.bundle = copyAt(bundleCopyPath(), "the location of this program is unknown");
  const auto job = platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd,
                                                 platform::str(WLHIDEventRouterLabel));
  if (!job) {
    versions.jobProblem = jobProblem();
    return versions;
  }
  versions.installed = copyAt(executableOf(*job), "the job names no executable");
  versions.services = servicesOf(*job);
  return versions;
}

}  // namespace wlhid
