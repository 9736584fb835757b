// SPDX-License-Identifier: Apache-2.0

// The sockets of services, as a client finds them.
//
// Threading: any thread.
// Errors: one that cannot be examined has the reason in its `problem`.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/services/SystemRoot.h"

namespace tool {

/// The socket of a service of the job.
struct Endpoint {
  std::string service;
  std::string path;
  bool exists = false;
  uid_t owner = static_cast<uid_t>(-1);
  mode_t mode = 0;
  bool mayConnect = false;  ///< the file's mode lets this user connect
  std::string problem;      ///< why no client would connect to it, or empty
};

[[nodiscard]] bool mayConnectTo(const std::string& endpoint);
[[nodiscard]] std::vector<Endpoint> endpointsOf(const platform::SystemRoot& root,
                                                const std::vector<std::string>& services);

}  // namespace tool
