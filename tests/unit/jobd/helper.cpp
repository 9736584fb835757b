// SPDX-License-Identifier: Apache-2.0

// The program in the helper images of these tests: of the processor that they are built for, which
// the system's own programs are not where an emulator runs the tests.
int main() {
  return 0;
}
