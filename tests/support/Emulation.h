// SPDX-License-Identifier: Apache-2.0

// What an emulator that runs one program of another processor may not do. A test that needs it asks
// first, and is skipped where the answer is no. Without an emulator every answer is yes, so that a
// test which then does not get what it needs fails.
#pragma once

#include <elf.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

namespace testsupport {

#ifdef WLHID_EMULATED
inline constexpr bool kIsEmulated = true;
#else
inline constexpr bool kIsEmulated = false;
#endif

/// What of the start of an ELF file tells for which processor it is.
inline std::array<char, EI_NIDENT + 4> processorOf(const std::string& program) {
  std::array<char, EI_NIDENT + 4> start{};
  std::ifstream(program, std::ios::binary).read(start.data(), start.size());
  start[EI_OSABI] = start[EI_ABIVERSION] = 0;
  start[EI_NIDENT] = start[EI_NIDENT + 1] = 0;  // the type: both are executable
  return start;
}

/// Whether that is a program of the processor that this one is of.
inline bool isOfThisProcessor(const std::string& program) {
  return !kIsEmulated || processorOf(program) == processorOf("/proc/self/exe");
}

/// Whether executing a program of this processor runs it.
inline bool runsProgramsOfThisProcessor() {
  if (!kIsEmulated) return true;
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    ::execl(program.c_str(), program.c_str(), "--gtest_list_tests", nullptr);
    ::_exit(127);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Whether posix_spawn says that a program cannot be executed. It learns that from memory that it
/// shares with the child, so not where the child has a copy.
inline bool spawnSaysWhatFailed() {
  if (!kIsEmulated) return true;
  const char* const program = "/nowhere";
  std::array<char*, 2> arguments{const_cast<char*>(program), nullptr};
  pid_t child = -1;
  if (::posix_spawn(&child, program, nullptr, nullptr, arguments.data(), environ) != 0) return true;
  ::waitpid(child, nullptr, 0);
  return false;
}

}  // namespace testsupport
