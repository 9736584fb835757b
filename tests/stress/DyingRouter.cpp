// SPDX-License-Identifier: Apache-2.0

// A router that never gets far: it dies at its start or, with DIES_ON_CONNECTION, at its first
// connection.
#include <sys/socket.h>

#include <cstdlib>

int main() {
#ifdef DIES_ON_CONNECTION
  constexpr int kFirstPassedDescriptor = 3;
  static_cast<void>(::accept(kFirstPassedDescriptor, nullptr, nullptr));
#endif
  std::abort();
}
