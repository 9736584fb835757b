// SPDX-License-Identifier: Apache-2.0

// A helper for tests that exits as soon as it is started.
#include <iostream>

int main() {
  std::cerr << "no device, giving up" << std::endl;
  return 3;
}
