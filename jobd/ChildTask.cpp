// SPDX-License-Identifier: Apache-2.0

#include "jobd/ChildTask.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <utility>

extern "C" {
#include <sys/pidfd.h>  // lacks the declaration of C linkage in some versions of the C library
}

namespace jobd {
namespace {

using platform::ServiceErrorCode;

// A pipe holds this much at once, so the child never waits for the daemon to read.
constexpr std::size_t kLongestResult = 4096;

/// Otherwise a child that hangs would keep the daemon's lock, endpoints and callers' connections.
void closeAllBut(std::vector<int> kept) {
  std::sort(kept.begin(), kept.end());
  unsigned next = 3;
  for (const int descriptor : kept) {
    const auto number = static_cast<unsigned>(descriptor);
    if (number > next) ::close_range(next, number - 1, 0);
    next = std::max(next, number + 1);
  }
  ::close_range(next, ~0U, 0);
}

std::string resultOf(const ChildTask::Work& work) {
  try {
    return "0 " + work();
  } catch (const platform::ServiceError& error) {
    return std::to_string(static_cast<std::int64_t>(error.code())) + " " + error.what();
  } catch (const std::exception& error) {
    return std::to_string(static_cast<std::int64_t>(ServiceErrorCode::FileSystem)) + " " +
           error.what();
  }
}

/// A write may be partial.
bool writeAll(int pipe, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(pipe, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Everything that an ended child wrote.
std::string readAll(int pipe) {
  std::string text;
  std::array<char, kLongestResult> buffer{};
  for (;;) {
    const ssize_t got = ::read(pipe, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

/// Runs in the child. The daemon has a single thread, so any function may be called here.
[[noreturn]] void runInChild(const ChildTask::Plan& plan, int result, pid_t daemon) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != daemon) ::_exit(1);
  std::vector<int> kept = plan.descriptors;
  kept.push_back(result);
  closeAllBut(std::move(kept));
  const std::string text = resultOf(plan.work).substr(0, kLongestResult);
  ::_exit(writeAll(result, text) ? 0 : 1);
}

}  // namespace

ChildTask::ChildTask(EventLoop& loop, const Plan& plan, Done done, std::function<void()> gone)
    : name_(plan.name), done_(std::move(done)), gone_(std::move(gone)) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
    throw platform::fileSystemError("cannot make a pipe", errno);
  result_.reset(ends[0]);
  const platform::FileDescriptor resultOfChild(ends[1]);
  const pid_t daemon = ::getpid();
  identifier_ = ::fork();
  if (identifier_ < 0) throw platform::fileSystemError("cannot begin " + name_, errno);
  if (identifier_ == 0) runInChild(plan, resultOfChild.get(), daemon);
  process_.reset(::pidfd_open(identifier_, 0));
  if (!process_) {
    const int error = errno;
    ::kill(identifier_, SIGKILL);
    ::waitpid(identifier_, nullptr, 0);
    throw platform::fileSystemError("cannot watch " + name_, error);
  }
  endWatch_ = loop.watch(process_.get(), EPOLLIN, [this] { takeEnd(); });
  timeout_ = loop.after(plan.timeout, [this] { giveUp(); });
}

/// A child that hangs in the kernel may take long to die, so its end is not awaited.
ChildTask::~ChildTask() {
  if (!process_) return;
  ::pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
  ::waitpid(identifier_, nullptr, WNOHANG);
}

void ChildTask::giveUp() {
  ::pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
  const auto done = std::exchange(done_, nullptr);
  done(
      {ServiceErrorCode::TimedOut, name_ + " took too long: a file that it reads does not answer"});
}

/// The output of a child that failed may be incomplete and is ignored.
ChildTask::Outcome ChildTask::readOutcome(int status) const {
  const bool endedWell = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  const std::string text = endedWell ? readAll(result_.get()) : std::string();
  std::int64_t code = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  if (error != std::errc() || end == text.data() + text.size())
    return {ServiceErrorCode::FileSystem, name_ + " failed: its process ended without a result"};
  return {static_cast<ServiceErrorCode>(code),
          text.substr(static_cast<std::size_t>(end - text.data()) + 1)};
}

void ChildTask::takeEnd() {
  int status = 0;
  if (::waitpid(identifier_, &status, WNOHANG) != identifier_) return;
  endWatch_.end();
  timeout_.end();
  process_.reset();
  if (const auto done = std::exchange(done_, nullptr)) done(readOutcome(status));
  const auto gone = std::exchange(gone_, nullptr);
  gone();  // may destroy this object
}

}  // namespace jobd
