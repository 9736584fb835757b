#include "tool/ScratchRoot.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/Authorization.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/SystemRoot.h"
#include "tool/Command.h"

namespace tool {

namespace {

constexpr int kDaemonPatience = 10'000;  // milliseconds

std::filesystem::path temporaryDirectory() {
  for (const char* name : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
    const char* value = ::secure_getenv(name);
    if (value != nullptr && *value == '/' && ::access(value, W_OK | X_OK) == 0) return value;
  }
  return "/tmp";
}

std::filesystem::path makeDirectory() {
  std::string name = temporaryDirectory() / "wlhid-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr)
    throw Failure("cannot make " + name + ": " + describeErrno(errno));
  return name;
}

void waitForEndOfFile(int descriptor) {
  char byte = 0;
  while (true) {
    const ssize_t count = ::read(descriptor, &byte, 1);
    if (count == 0 || (count < 0 && errno != EINTR)) return;
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

/// Ends the daemon, which would otherwise wait a while for further work, and waits until it has
/// gone.
void endJobDaemon(pid_t pid) {
  if (pid <= 0) return;
  const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (process < 0) return;
  ::syscall(SYS_pidfd_send_signal, process, SIGTERM, nullptr, 0);
  pollfd ended{process, POLLIN, 0};
  ::poll(&ended, 1, kDaemonPatience);
  ::close(process);
}

void removeEverything(const std::filesystem::path& directory) {
  const platform::SystemRoot root(directory);
  platform::SystemRoot::setCurrent(root);
  platform::setAuthorizationAgent(
      platform::fixedAuthorizationAgent(platform::errAuthorizationSuccess));
  const pid_t daemon = jobDaemonOf(root);
  if (WLHIDEventRouterClient::isInstalled()) {
    WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr, nullptr);
  }
  endJobDaemon(daemon);
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

/// The watching process: it outlives whatever ends the command, and cleans up.
[[noreturn]] void watch(int lifeOfCommand, const std::filesystem::path& root) {
  detachFromTerminal();
  waitForEndOfFile(lifeOfCommand);
  removeEverything(root);
  ::_exit(0);
}

}  // namespace

ScratchRoot::ScratchRoot() : path_(makeDirectory()) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw Failure("cannot make a pipe: " + describeErrno(errno));
  watcher_ = ::fork();
  if (watcher_ < 0) throw Failure("cannot start a process: " + describeErrno(errno));
  if (watcher_ == 0) {
    ::close(ends[1]);
    watch(ends[0], path_);
  }
  ::close(ends[0]);
  life_ = ends[1];
}

ScratchRoot::~ScratchRoot() {
  ::close(life_);
  while (::waitpid(watcher_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace tool
