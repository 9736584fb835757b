// SPDX-License-Identifier: Apache-2.0

// A root's job, seen the same way by the daemon that runs it and the application that asks for it.
//
// A job file names a program, which an application reads to find out what is installed; the daemon
// runs the helper with the job's label. If the job file names another file, the two would not be
// the same program, so such a job is treated as not installed.
//
// Threading: any thread.
// Errors: ServiceError if files cannot be read; an invalid job gives null and a reason.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/services/SystemPlaces.h"
#include "platform/services/SystemRoot.h"

namespace platform {

/// Why the file at `path` is not the helper `label` in the open directory of helpers, which is the
/// `place` of the root; empty if it is, or if neither file exists.
[[nodiscard]] std::string whyNotTheHelper(const std::string& path, int tools,
                                          const std::string& label, std::string_view place);

/// A job file, and the layer that it was found in.
struct LayeredJobFile {
  const JobLayer* layer = nullptr;
  std::vector<std::uint8_t> bytes;
};

/// The job file of the first layer that has one for the label; nothing if none has.
[[nodiscard]] std::optional<LayeredJobFile> findJobFile(int rootDirectory,
                                                        const SystemPlaces& places,
                                                        const std::string& label);

/// The property list of the root's job; null if it is missing or invalid: a job of another layer
/// does not take the place of an invalid one. `reason` may be null.
[[nodiscard]] std::shared_ptr<NSDictionary> installedJob(const SystemRoot& root,
                                                         const std::string& label,
                                                         std::string* reason);

}  // namespace platform
