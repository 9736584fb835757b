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
std::string whyAnotherProgram(const NSDictionary& job, int root, const std::string& label,
                              std::string_view helpers) {
  const std::string program = namedProgram(job);
  if (program.empty()) return {};
  const auto tools = openPlace(root, helpers);
  return whyNotTheHelper(program, tools.get(), label, helpers);
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::string whyNotTheHelper(const std::string& path, int tools, const std::string& label,
                            std::string_view place) {
  struct stat named {};
  struct stat helper {};
  const bool isNamedThere = ::stat(path.c_str(), &named) == 0;
  const bool isHelperThere = ::fstatat(tools, label.c_str(), &helper, AT_SYMLINK_NOFOLLOW) == 0;
  if (isNamedThere == isHelperThere && (!isHelperThere || isSameFile(named, helper))) return {};
  return "it names the program " + path + ", which is not the helper that is run for it (" +
         std::string(place) + "/" + label + " of the root): install it again";
}

std::optional<LayeredJobFile> findJobFile(int rootDirectory, const SystemPlaces& places,
                                          const std::string& label) {
  for (const JobLayer& layer : places.layers) {
    const auto jobs = openPlace(rootDirectory, layer.jobs);
    auto bytes =
        jobs ? readFileIn(jobs.get(), label + ".plist", kMaximumJobFileBytes) : std::nullopt;
    if (bytes) return LayeredJobFile{&layer, std::move(*bytes)};
  }
  return std::nullopt;
}

std::shared_ptr<NSDictionary> installedJob(const SystemRoot& root, const std::string& label,
                                           std::string* reason) {
  const auto directory = openRoot(root);
  if (!directory) return none(reason, "there is no system root " + root.path().string());
  const auto found = findJobFile(directory.get(), root.places(), label);
  if (!found) return none(reason, "there is no job file " + root.jobFile(label).string());
  std::string problem;
  auto job = jobDictionary(found->bytes, label, &problem);
  if (job) problem = whyAnotherProgram(*job, directory.get(), label, found->layer->helpers);
  if (problem.empty()) return job;
  const auto file = root.path() / found->layer->jobs / (label + ".plist");
  return none(reason, file.string() + ": " + problem);
}

}  // namespace platform
