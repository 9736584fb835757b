// SPDX-License-Identifier: Apache-2.0

// The job of the system's own root: what may be installed there, and how it is started.
//
// systemd starts it through wlhid-launch, as the router's own user. The program comes from the
// image of the first layer that has the job (SystemPlaces.h), so it is the one that an application
// sees as installed.
//
// Threading: one thread.
// Errors: ServiceError.
#pragma once

#include <string>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"

namespace jobd {

/// Throws NotSupported for any label but the router's: a unit of systemd belongs to each job, and
/// the package brings only that one.
void checkIsSystemLabel(const std::string& label);

/// Throws InvalidImage unless the label is a service and the only others are its control service
/// and its device directory: systemd listens for no more.
void checkIsOnlyService(const std::string& label, const std::vector<std::string>& services);

/// The newest version of all layers; empty if there is none.
[[nodiscard]] std::string newestVersion(const platform::SystemRoot& root, const std::string& label);

struct SystemProgram {
  platform::FileDescriptor program;  ///< sealed
  std::string path;                  ///< of the image
};

/// The program of the installed job. Its files and their directories must be the superuser's and
/// writable by nobody else, and the image must be complete.
[[nodiscard]] SystemProgram loadSystemProgram(const platform::SystemRoot& root,
                                              const std::string& label);

}  // namespace jobd
