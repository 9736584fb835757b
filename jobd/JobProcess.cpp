// SPDX-License-Identifier: Apache-2.0

#include "jobd/JobProcess.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "jobd/HelperImage.h"
#include "jobd/MappedFile.h"
#include "platform/foundation/StandardError.h"
#include "platform/services/NullTerminated.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"

extern "C" {
#include <sys/pidfd.h>  // lacks the declaration of C linkage in some versions of the C library
}

#ifndef MFD_EXEC
#define MFD_EXEC 0x0010U
#endif

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::fileSystemError;

constexpr int kFirstPassedDescriptor = 3;  // defined by the protocol for passing sockets

/// The program as an anonymous file that can no longer be changed.
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

std::string descriptorNames(const std::vector<ListeningSocket>& sockets) {
  std::string names;
  for (const auto& socket : sockets) names += socket.service + ":";
  return names.append(platform::kRootDescriptorName);
}

/// The program of the image `name` in the open directory.
FileDescriptor loadProgram(int directory, const std::string& name) {
  const FileDescriptor file(
      ::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT)
    throw platform::ServiceError(platform::ServiceErrorCode::FileSystem,
                                 "its executable is missing");
  if (!file) throw fileSystemError("its executable cannot be opened", errno);
  const MappedFile image(file.get(), "its executable");
  return sealedProgram(name, programOfImage(image.bytes()));
}

/// Gives up what a job does not need and could do harm with: core files, which would contain what
/// was typed, and privileges from set-user-ID programs and the like.
void giveUpRights() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

/// The whole environment of a job: the protocol for passing sockets. Nothing of the daemon's own
/// environment is passed on.
std::vector<std::string> jobEnvironment(const ProcessPlan& plan) {
  return {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
          "LISTEN_FDS=" + std::to_string(plan.sockets->size() + 1),
          "LISTEN_FDNAMES=" + descriptorNames(*plan.sockets),
          "LISTEN_PID=" + std::to_string(::getpid())};
}

/// Arranges descriptors as the program expects them: streams, sockets, the root, then the directory
/// of images, and nothing else. All of them are first moved above the final numbers, so that none
/// is overwritten before it has moved.
int arrangeDescriptors(const ProcessPlan& plan, int output) {
  std::vector<int> passed;
  for (const auto& each : *plan.sockets) passed.push_back(each.socket.get());
  passed.push_back(plan.root);
  const int count = static_cast<int>(passed.size());
  const int final = kFirstPassedDescriptor + count;
  const int above = final + 1;
  const int toolsAbove = ::fcntl(plan.tools, F_DUPFD_CLOEXEC, above);
  const int outputAbove = ::fcntl(output, F_DUPFD_CLOEXEC, above);
  for (int& each : passed) each = ::fcntl(each, F_DUPFD_CLOEXEC, above);
  const int null = ::open("/dev/null", O_RDONLY);
  ::dup2(null, 0);
  ::dup2(outputAbove, 1);
  ::dup2(outputAbove, 2);
  for (int i = 0; i < count; ++i)
    ::dup2(passed[static_cast<std::size_t>(i)], kFirstPassedDescriptor + i);
  ::dup3(toolsAbove, final, O_CLOEXEC);
  ::close_range(static_cast<unsigned>(final) + 1, ~0U, 0);
  return final;
}

void restoreSignals() {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

void run(const ProcessPlan& plan, int tools) {
  std::vector<std::string> arguments = plan.arguments;
  std::vector<std::string> environment = jobEnvironment(plan);
  const FileDescriptor program = loadProgram(tools, plan.label);
  restoreSignals();
  ::fexecve(program.get(), platform::nullTerminated(arguments).data(),
            platform::nullTerminated(environment).data());
  throw fileSystemError("cannot run the program", errno);
}

/// Runs in the child. The daemon has a single thread, so any function may be called here. The image
/// is read here as well, so that the daemon does not wait for files.
[[noreturn]] void becomeJob(const ProcessPlan& plan, int output, pid_t daemon) {
  ::setsid();
  // Jobs are killed with their daemon: its successor could neither end nor replace them.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != daemon) ::_exit(127);
  giveUpRights();
  const int tools = arrangeDescriptors(plan, output);
  try {
    run(plan, tools);
  } catch (const std::exception& error) {
    platform::writeLineToStandardError(
        platform::LogLine::of<row::cannotStart>(plan.label, error.what()));
  }
  ::_exit(127);
}

}  // namespace

std::string JobEnd::text() const {
  using platform::LogLine;
  return (isSignal ? LogLine::of<row::killed>(number) : LogLine::of<row::exited>(number)).text();
}

JobProcess::JobProcess(EventLoop& loop, SystemLog& log, const ProcessPlan& plan, Ended ended)
    : log_(log), label_(plan.label), ended_(std::move(ended)) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw fileSystemError("cannot make a pipe", errno);
  output_.reset(ends[0]);
  const FileDescriptor outputOfJob(ends[1]);
  ::fcntl(output_.get(), F_SETFL, O_NONBLOCK);  // only the daemon's end

  const pid_t daemon = ::getpid();
  identifier_ = ::fork();
  if (identifier_ < 0) throw fileSystemError("cannot start " + label_, errno);
  if (identifier_ == 0) becomeJob(plan, outputOfJob.get(), daemon);
  process_.reset(::pidfd_open(identifier_, 0));
  if (!process_) {
    const int error = errno;
    ::kill(identifier_, SIGKILL);
    ::waitpid(identifier_, nullptr, 0);
    throw fileSystemError("cannot watch " + label_, error);
  }
  outputWatch_ = loop.watch(output_.get(), EPOLLIN, [this] { takeOutput(std::size_t{64} * 1024); });
  endWatch_ = loop.watch(process_.get(), EPOLLIN, [this] { takeEnd(); });
}

void JobProcess::signal(int number) const {
  ::pidfd_send_signal(process_.get(), number, nullptr, 0);
}

/// A line written in pieces must not look like several: only the first piece has no mark.
void JobProcess::writeLine(std::string_view line) {
  if (!lines_.continuesLine()) return log_.write(label_, identifier_, line);
  log_.write(label_, identifier_, std::string(kContinuationMark).append(line));
}

/// Reads at most `most` bytes, so that a job that writes without end does not starve the others.
void JobProcess::takeOutput(std::size_t most) {
  std::array<char, 16384> buffer;
  for (std::size_t taken = 0; taken < most;) {
    const ssize_t got = ::read(output_.get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) outputWatch_.end();
    if (got <= 0) return;
    taken += static_cast<std::size_t>(got);
    lines_.feed({buffer.data(), static_cast<std::size_t>(got)},
                [this](std::string_view line) { writeLine(line); });
  }
}

void JobProcess::takeEnd() {
  siginfo_t info{};
  if (::waitid(P_PIDFD, static_cast<id_t>(process_.get()), &info, WEXITED | WNOHANG) != 0 ||
      info.si_pid == 0)
    return;
  endWatch_.end();
  // As much as the pipe can hold, and no more: processes that it left behind may still be writing.
  takeOutput(1U << 20);
  lines_.finish([this](std::string_view line) { writeLine(line); });
  outputWatch_.end();
  const Ended ended = std::move(ended_);
  ended({info.si_code != CLD_EXITED, info.si_status});  // may destroy this object
}

}  // namespace jobd
