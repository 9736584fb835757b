// SPDX-License-Identifier: Apache-2.0

// How the router that systemd runs fares, as the daemon of the system's own root reports it.
#pragma once

#include <string>

#include "platform/services/Control.h"

namespace jobd {

struct RouterReport {
  platform::JobStatus status;  ///< without label and services; as far as it is known
  std::string problem;         ///< why no connection will start it; empty where one will
};

}  // namespace jobd
