// SPDX-License-Identifier: Apache-2.0

// The command `wlhid`: what an application can ask of the framework, for people and scripts.
#include <csignal>

#include "tool/command/CommandLine.h"

int main(int argc, char** argv) {
  // A closed pipe and a file size limit are reported as errors of the write instead.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  return tool::runCommandLine(argc, argv);
}
