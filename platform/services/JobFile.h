// The file that describes a job: <root>/Library/LaunchDaemons/<label>.plist.
//
// Threading: pure functions, any thread.
// Errors: a file that does not describe the job of its name gives nothing, and a reason.
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
  std::vector<std::string>
      arguments;  ///< ProgramArguments; the first is the installed executable's absolute path
  std::vector<std::string>
      services;  ///< the names under MachServices that are true, in the file's order
};

/// The property list of a job file whose "Label" is `label`. `reason` may be null.
[[nodiscard]] std::shared_ptr<NSDictionary> jobDictionary(std::span<const std::uint8_t> bytes,
                                                          std::string_view label,
                                                          std::string* reason);

/// A job that can be kept: a label, 1 to 64 arguments with an absolute path first, 1 to 16 services
/// that it may offer.
[[nodiscard]] std::optional<JobDescription> parseJobFile(std::span<const std::uint8_t> bytes,
                                                         std::string_view label,
                                                         std::string* reason);

/// Whether a job may offer a service: its own label, or a name below it ("com.x.control" for
/// "com.x"). Any other name is somebody else's.
[[nodiscard]] bool mayOffer(std::string_view label, std::string_view service);

/// The names under "MachServices" of a job's dictionary or a helper's embedded list: 1 to 16 valid
/// ones that the job may offer, none twice.
[[nodiscard]] std::optional<std::vector<std::string>> machServices(const NSDictionary& job,
                                                                   std::string_view label,
                                                                   std::string* reason);

/// The file's bytes, an XML property list. Throws ServiceError for text that such a list cannot
/// hold.
[[nodiscard]] std::vector<std::uint8_t> encodeJobFile(const JobDescription& job);

}  // namespace platform
