// SPDX-License-Identifier: Apache-2.0

#include "jobd/HelperProgram.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "platform/services/NullTerminated.h"
#include "platform/services/ServiceError.h"

#ifndef MFD_EXEC
#define MFD_EXEC 0x0010U
#endif

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::fileSystemError;

void restoreSignals() {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

FileDescriptor sealedProgram(const std::string& name, std::span<const std::uint8_t> program) {
  constexpr unsigned flags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  FileDescriptor file(::memfd_create(name.c_str(), flags | MFD_EXEC));
  if (!file && errno == EINVAL)
    file.reset(::memfd_create(name.c_str(), flags));  // before Linux 6.3
  if (!file) throw fileSystemError("cannot load the program of " + name, errno);
  while (!program.empty()) {
    const ssize_t written = ::write(file.get(), program.data(), program.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw fileSystemError("cannot load the program of " + name, errno);
    program = program.subspan(static_cast<std::size_t>(written));
  }
  if (::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) !=
      0) {
    throw fileSystemError("cannot seal the program of " + name, errno);
  }
  return file;
}

void giveUpRights() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

void runProgram(int program, std::vector<std::string> arguments,
                std::vector<std::string> environment) {
  restoreSignals();
  ::fexecve(program, platform::nullTerminated(arguments).data(),
            platform::nullTerminated(environment).data());
  throw fileSystemError("cannot run the program", errno);
}

}  // namespace jobd
