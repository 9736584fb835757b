// SPDX-License-Identifier: Apache-2.0

// A router that is a script: becomes its interpreter, with the sockets and the environment that the
// job daemon has passed.
#include <unistd.h>

int main() {
  ::execl("/usr/bin/python3", "python3", "-I", "-B", WLHID_ROUTER_SCRIPT, nullptr);
  return 127;
}
