// SPDX-License-Identifier: Apache-2.0

// Very many peers of one endpoint, in a process of their own so that their descriptors and memory
// do not count as those of the process under test.
//
// Threading: one thread; create it before the process has a second one, since it forks.
// Ownership: the child process ends with this object.
// Errors: std::runtime_error.
// Order: gather before disperse.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace stress {

class Crowd {
 public:
  Crowd();
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd();

  /// Connects up to `count` peers to the socket at `path`. A third of them says nothing, a third
  /// stops inside its hello, a third sends a complete one. Returns how many are connected (those in
  /// the kernel's queue of a listener that accepts no more count as connected).
  std::size_t gather(const std::string& path, std::size_t count);
  /// Closes them all at once.
  void disperse();

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace stress
