// Very many peers of one endpoint, in a process of their own so that their descriptors and memory
// are not those of the process under test.
//
// Threading: one thread; made before the process has a second one, for it forks. Ownership: the
// child process ends with this object. Errors: std::runtime_error. Order: gather before disperse.
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
  /// stops inside its hello, a third says a whole one. Returns how many are connected (the kernel's
  /// queue of a listener that accepts no more counts as connected).
  std::size_t gather(const std::string& path, std::size_t count);
  /// Closes them all at once.
  void disperse();

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace stress
