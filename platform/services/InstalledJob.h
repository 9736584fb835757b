// A root's job as everybody has to see it: the daemon that runs it and the application that asks
// for it.
//
// A job's file names a program, which an application reads to learn what is installed; the daemon
// runs the helper of the job's label. A job whose file names any other file would make the one say
// what is not true of the other, so it counts as no job.
//
// Threading: any thread.
// Errors: ServiceError where files cannot be read; a job that is none gives nothing, and a reason.
#pragma once

#include <memory>
#include <string>

#include "platform/foundation/NSDictionary.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// Why the file at `path` is not the helper `label` in the open directory of helpers; empty when it
/// is, and when neither is there.
[[nodiscard]] std::string whyNotTheHelper(const std::string& path, int tools,
                                          const std::string& label);

/// The property list of the root's job; null when there is none that can be kept. `reason` may be
/// null.
[[nodiscard]] std::shared_ptr<NSDictionary> installedJob(const SystemRoot& root,
                                                         const std::string& label,
                                                         std::string* reason);

}  // namespace platform
