// SPDX-License-Identifier: Apache-2.0

// What the kernel says of a thread of this process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace testsupport {

struct ThreadState {
  bool isAsleep = false;
  /// How often it has gone to sleep.
  std::uint64_t sleeps = 0;
};

inline ThreadState stateOfThread(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  ThreadState state;
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (name == "State:") state.isAsleep = words >> name && name == "S";
    if (name == "voluntary_ctxt_switches:") words >> state.sleeps;
  }
  return state;
}

}  // namespace testsupport
