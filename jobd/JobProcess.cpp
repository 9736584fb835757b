// SPDX-License-Identifier: Apache-2.0

#include "jobd/JobProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "jobd/HelperImage.h"
#include "jobd/HelperProgram.h"
#include "jobd/MappedFile.h"
#include "platform/foundation/StandardError.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"

extern "C" {
#include <sys/pidfd.h>  // lacks the declaration of C linkage in some versions of the C library
}

namespace jobd {
namespace {

using platform::FileDescriptor;
using platform::fileSystemError;

constexpr int kFirstPassedDescriptor = 3;  // defined by the protocol for passing sockets

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

/// The whole environment of a job: the protocol for passing sockets. Nothing of the daemon's own
/// environment is passed on.
std::vector<std::string> jobEnvironment(const ProcessPlan& plan) {
  return {std::string(kJobPath), "LISTEN_FDS=" + std::to_string(plan.sockets->size() + 1),
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

void run(const ProcessPlan& plan, int tools) {
  const FileDescriptor program = loadProgram(tools, plan.label);
  runProgram(program.get(), plan.arguments, jobEnvironment(plan));
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
