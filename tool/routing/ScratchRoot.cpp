// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/ScratchRoot.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/services/JobDaemon.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

constexpr int kDaemonTimeout = 10'000;  // milliseconds
constexpr std::chrono::milliseconds kPauseBetweenTries{10};

std::filesystem::path temporaryDirectory() {
  for (const char* name : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
    const char* value = ::secure_getenv(name);
    if (value != nullptr && *value == '/' && ::access(value, W_OK | X_OK) == 0) return value;
  }
  return "/tmp";
}

/// Empty, with errno set, if it cannot be created.
std::string makeDirectory() {
  std::string name = temporaryDirectory() / "wlhid-XXXXXX";
  return ::mkdtemp(name.data()) == nullptr ? std::string() : name;
}

void waitForEndOfFile(int descriptor) {
  char byte = 0;
  while (true) {
    const ssize_t count = ::read(descriptor, &byte, 1);
    if (count == 0 || (count < 0 && errno != EINTR)) return;
  }
}

/// Up to the end of file or the first failure.
std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void detachFromTerminal() {
  ::setsid();
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nothing, stream);
}

/// The process ID of the root's job daemon, or -1.
pid_t jobDaemonOf(const platform::SystemRoot& root) {
  try {
    const auto reply = platform::JobDaemon(root).status();
    return reply ? static_cast<pid_t>(reply->daemonProcessIdentifier) : -1;
  } catch (const platform::ServiceError&) {
    return -1;
  }
}

/// Starts the daemon before the command can ask for anything. So the command never starts one
/// itself, and killing the command cannot leave behind a daemon that was just starting.
void startJobDaemon(const platform::SystemRoot& root) {
  try {
    platform::JobDaemon(root).ensureRunning();
  } catch (const std::exception&) {
    // Installing will report it.
  }
}

bool waitForEnd(int process, int milliseconds) {
  pollfd ended{process, POLLIN, 0};
  int ready = 0;
  do {
    ready = ::poll(&ended, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

/// Ends the daemon, and with it its jobs, and waits until it is gone.
void endJobDaemon(pid_t pid) {
  if (pid <= 0) return;
  const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (process < 0) return;
  for (const int number : {SIGTERM, SIGKILL}) {
    ::syscall(SYS_pidfd_send_signal, process, number, nullptr, 0);
    if (waitForEnd(process, kDaemonTimeout)) break;
  }
  ::close(process);
}

/// Retries, because a job killed with its daemon may still be writing.
void removeDirectory(const std::filesystem::path& directory) {
  constexpr int kTries = 200;
  for (int i = 0; i < kTries; ++i) {
    std::error_code error;
    std::filesystem::remove_all(directory, error);
    if (!std::filesystem::exists(directory, error) && !error) return;
    std::this_thread::sleep_for(kPauseBetweenTries);
  }
}

void report(int descriptor, const std::string& text) {
  static_cast<void>(!::write(descriptor, text.data(), text.size()));
  ::close(descriptor);
}

/// The watching process: creates the root, outlives the command however that ends, and cleans up.
/// It answers with the root's path, or with "!" and the cause of failure.
[[noreturn]] void watch(int lifeOfCommand, int answer) {
  detachFromTerminal();
  const std::string path = makeDirectory();
  if (path.empty()) {
    report(answer, "!cannot make a directory in " + temporaryDirectory().string() + ": " +
                       describeErrno(errno));
    ::_exit(1);
  }
  const platform::SystemRoot root(path);
  startJobDaemon(root);
  report(answer, path);
  waitForEndOfFile(lifeOfCommand);
  endJobDaemon(jobDaemonOf(root));
  removeDirectory(path);
  ::_exit(0);
}

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw Failure("cannot make a pipe: " + describeErrno(errno));
  return ends;
}

}  // namespace

ScratchRoot::ScratchRoot() {
  const auto life = makePipe();
  const auto answer = makePipe();
  watcher_ = ::fork();
  if (watcher_ < 0) throw Failure("cannot start a process: " + describeErrno(errno));
  if (watcher_ == 0) {
    ::close(life[1]);
    ::close(answer[0]);
    watch(life[0], answer[1]);
  }
  ::close(life[0]);
  ::close(answer[1]);
  life_ = life[1];
  const std::string said = readAll(answer[0]);
  ::close(answer[0]);
  if (said.empty() || said.front() == '!') {
    end();
    throw Failure(said.empty() ? "the process that cleans up ended unexpectedly" : said.substr(1));
  }
  path_ = said;
}

ScratchRoot::~ScratchRoot() {
  end();
}

void ScratchRoot::end() const {
  ::close(life_);
  while (::waitpid(watcher_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace tool
