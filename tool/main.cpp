// The command `wlhid`: what an application can ask of the framework, for people and scripts.
#include <csignal>

#include "tool/command/CommandLine.h"

int main(int argc, char** argv) {
  // A reader that has gone away and a file that may not grow are noticed where something is
  // written.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  return tool::runCommandLine(argc, argv);
}
