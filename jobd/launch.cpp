// SPDX-License-Identifier: Apache-2.0

// wlhid-launch: becomes the installed router.
//
//   wlhid-launch LABEL
//
// systemd runs it with the router's sockets, as the router's user. Of its environment it passes on
// what describes the sockets, and of its descriptors the sockets and the streams. Exit status 1 if
// there is no program that may be run.
#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "jobd/HelperProgram.h"
#include "jobd/LogTable.h"
#include "jobd/SystemJob.h"
#include "platform/foundation/StandardError.h"

namespace {

constexpr unsigned kFirstPassedDescriptor = 3;  // defined by the protocol for passing sockets
constexpr unsigned kMaximumPassedDescriptors = 16;

std::vector<std::string> passedEnvironment() {
  std::vector<std::string> environment{std::string(jobd::kJobPath)};
  for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
    if (const char* value = ::secure_getenv(name))
      environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

unsigned passedDescriptors() {
  const char* const text = ::secure_getenv("LISTEN_FDS");
  if (text == nullptr) return 0;
  unsigned count = 0;
  const std::string_view all(text);
  const auto [end, error] = std::from_chars(all.data(), all.data() + all.size(), count);
  const bool isNumber = error == std::errc() && end == all.data() + all.size();
  if (!isNumber || count > kMaximumPassedDescriptors)
    throw std::runtime_error("LISTEN_FDS is not a small number");
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 2) throw std::runtime_error("it needs one argument, the label of the job");
    ::close_range(kFirstPassedDescriptor + passedDescriptors(), ~0U, 0);
    jobd::giveUpRights();
    const auto loaded = jobd::loadSystemProgram(platform::SystemRoot("/"), argv[1]);
    jobd::runProgram(loaded.program.get(), {loaded.path, "--system"}, passedEnvironment());
  } catch (const std::exception& error) {
    platform::writeLineToStandardError(
        platform::LogLine::of<jobd::row::cannotLaunch>(error.what()));
    return 1;
  }
}
