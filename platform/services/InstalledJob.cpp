// SPDX-License-Identifier: Apache-2.0

#include "platform/services/InstalledJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSString.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"

namespace platform {
namespace {

std::shared_ptr<NSDictionary> none(std::string* reason, const std::string& text) {
  if (reason != nullptr) *reason = text;
  return nullptr;
}

std::string namedProgram(const NSDictionary& job) {
  const auto arguments = objectCast<NSArray>(job.objectForKey("ProgramArguments"));
  if (!arguments || arguments->count() == 0) return {};
  const auto path = objectCast<NSString>(arguments->objectAtIndex(0));
  return path ? path->UTF8String() : std::string();
}

/// Empty for a job that names no program: it cannot be started, which is reported elsewhere.
std::string whyAnotherProgram(const NSDictionary& job, int root, const std::string& label) {
  const std::string program = namedProgram(job);
  if (program.empty()) return {};
  const auto tools = openDirectoryBelow(root, "Library/PrivilegedHelperTools", false);
  return whyNotTheHelper(program, tools.get(), label);
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::string whyNotTheHelper(const std::string& path, int tools, const std::string& label) {
  struct stat named {};
  struct stat helper {};
  const bool isNamedThere = ::stat(path.c_str(), &named) == 0;
  const bool isHelperThere = ::fstatat(tools, label.c_str(), &helper, AT_SYMLINK_NOFOLLOW) == 0;
  if (isNamedThere == isHelperThere && (!isHelperThere || isSameFile(named, helper))) return {};
  return "it names the program " + path +
         ", which is not the helper that is run for it (Library/PrivilegedHelperTools/" + label +
         " of the root): install it again";
}

std::shared_ptr<NSDictionary> installedJob(const SystemRoot& root, const std::string& label,
                                           std::string* reason) {
  const auto directory = openRoot(root);
  if (!directory) return none(reason, "there is no system root " + root.path().string());
  const auto jobs = openDirectoryBelow(directory.get(), "Library/LaunchDaemons", false);
  const auto bytes =
      jobs ? readFileIn(jobs.get(), label + ".plist", kMaximumJobFileBytes) : std::nullopt;
  const std::string file = root.jobFile(label).string();
  if (!bytes) return none(reason, "there is no job file " + file);
  std::string problem;
  auto job = jobDictionary(*bytes, label, &problem);
  if (job) problem = whyAnotherProgram(*job, directory.get(), label);
  return problem.empty() ? job : none(reason, file + ": " + problem);
}

}  // namespace platform
