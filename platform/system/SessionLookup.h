// SPDX-License-Identifier: Apache-2.0

// To which login session a process belongs, by its control group.
//
// Threading: any thread.
// Errors: nothing, if the process is in no session or nobody knows.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace platform::system {

/// Where it is looked up; replaced in tests.
struct SessionLookup {
  std::function<std::optional<std::string>(pid_t)> sessionOfProcess;
  /// Whose session or user manager the process belongs to.
  std::function<std::optional<uid_t>(pid_t)> ownerOfProcess;
  /// The user's graphical session, or whichever comes next.
  std::function<std::optional<std::string>(uid_t)> displayOfUser;

  /// The system's control groups and logind's files.
  [[nodiscard]] static SessionLookup ofSystem();

  /// A process of a user manager, which is in no session itself, belongs to its user's display
  /// session. This is polkit's rule too, so both speak of the same session.
  [[nodiscard]] std::optional<std::string> find(pid_t process) const;
};

}  // namespace platform::system
