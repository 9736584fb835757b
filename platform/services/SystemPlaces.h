// SPDX-License-Identifier: Apache-2.0

// Where jobs, helpers, endpoints and the log are below a root: one table for a user's root, one for
// the system's own, which follows the file hierarchy of the distribution.
//
// The system's own root has two layers of jobs: those of packages, and those that applications
// install (bless). Of two jobs with the same label the one that an application installed counts;
// removing it uncovers the package's.
//
// Threading: constants.
#pragma once

#include <span>
#include <string_view>

namespace platform {

/// The only job of the system's own root.
inline constexpr std::string_view kSystemJobLabel = "com.quillmar.hideventrouter";

/// Directories below the root.
struct JobLayer {
  std::string_view jobs;     ///< job files
  std::string_view helpers;  ///< the executables that they name
};

struct SystemPlaces {
  /// The first layer that has a job file for a label decides. New jobs are written to the first.
  std::span<const JobLayer> layers;
  std::string_view run;            ///< endpoints
  std::string_view routerStatus;   ///< the router's status file
  std::string_view log;            ///< "system.log"
  std::string_view deviceSources;  ///< of a user's root; the system's devices are the kernel's
  std::string_view staging;        ///< of the system's own root: what is being installed
  std::string_view trustedKeys;    ///< of the system's own root: whose helpers may be installed
};

/// Of a user's root.
[[nodiscard]] const SystemPlaces& placesOfAUser();
/// Of the system's own root.
[[nodiscard]] const SystemPlaces& placesOfTheSystem();

}  // namespace platform
