// SPDX-License-Identifier: Apache-2.0

// The file that describes a job: <root>/Library/LaunchDaemons/<label>.plist.
//
// Threading: any thread.
// Errors: a file that does not describe the job it is named for gives nothing and a reason.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSDictionary.h"

namespace platform {

struct JobDescription {
  std::string label;
  /// ProgramArguments; the first is the installed executable's absolute path.
  std::vector<std::string> arguments;
  /// The enabled names under MachServices, in file order.
  std::vector<std::string> services;
};

/// The property list of a job file, whose "Label" must be `label`. `reason` may be null.
[[nodiscard]] std::shared_ptr<NSDictionary> jobDictionary(std::span<const std::uint8_t> bytes,
                                                          std::string_view label,
                                                          std::string* reason);

/// A valid job: a label, 1 to 64 arguments that start with an absolute path, and 1 to 16 services
/// that it may offer.
[[nodiscard]] std::optional<JobDescription> parseJobFile(std::span<const std::uint8_t> bytes,
                                                         std::string_view label,
                                                         std::string* reason);

/// Whether a job may offer a service: its own label or a name below it ("com.x.control" for
/// "com.x"). Any other name belongs to another job.
[[nodiscard]] bool mayOffer(std::string_view label, std::string_view service);

/// The names under "MachServices" in a job's dictionary or a helper's embedded list: 1 to 16 valid,
/// distinct names that the job may offer.
[[nodiscard]] std::optional<std::vector<std::string>> machServices(const NSDictionary& job,
                                                                   std::string_view label,
                                                                   std::string* reason);

/// The file's bytes, an XML property list. Throws ServiceError for text that such a list cannot
/// contain.
[[nodiscard]] std::vector<std::uint8_t> encodeJobFile(const JobDescription& job);

}  // namespace platform
