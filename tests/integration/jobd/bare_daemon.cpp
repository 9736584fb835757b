// SPDX-License-Identifier: Apache-2.0

// A program in place of the job daemon: it reports nothing and exits.
int main() {
  return 0;
}
