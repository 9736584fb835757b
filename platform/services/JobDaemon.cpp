// SPDX-License-Identifier: Apache-2.0

#include "platform/services/JobDaemon.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <vector>

#include "platform/foundation/NSBundle.h"
#include "platform/services/NullTerminated.h"
#include "platform/services/RootFiles.h"
#include "platform/services/UnixSocket.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kStartTimeout{15'000};
constexpr int kAttempts = 3;

std::string daemonProgram() {
  if (const char* chosen = secure_getenv("WLHID_JOBD"); chosen != nullptr && *chosen == '/')
    return chosen;
  const auto bundle = NSBundle::mainBundle()->bundlePath();
  if (!bundle)
    throw ServiceError(ServiceErrorCode::DaemonUnavailable,
                       "cannot find the job daemon: the main bundle's path is unknown");
  return bundle->UTF8String() + "/Contents/Helpers/wlhid-jobd";
}

/// Waits until `descriptor` can be read; false if `deadline` passes first.
bool waitReadable(int descriptor, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd entry{descriptor, POLLIN, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(left));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

/// What the daemon writes to its readiness pipe: just a newline when it is ready, else the cause of
/// its failure.
std::string readiness(int pipe) {
  const auto deadline = Clock::now() + kStartTimeout;
  std::string said;
  while (said.find('\n') == std::string::npos) {
    if (!waitReadable(pipe, deadline)) return "it did not become ready in time";
    std::array<char, 512> buffer{};
    const ssize_t got = ::read(pipe, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return said.empty() ? "it exited before it was ready" : said;
    said.append(buffer.data(), static_cast<std::size_t>(got));
    if (said.size() > 4096) break;
  }
  return said.substr(0, said.find('\n'));
}

class SpawnPlan {
 public:
  SpawnPlan() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  /// Standard streams on /dev/null, `readyPipe` as descriptor 3, no other descriptors; default
  /// signal handling.
  void setUp(int readyPipe) {
    ::posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDWR, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, 0, 1);
    ::posix_spawn_file_actions_adddup2(&actions_, 0, 2);
    ::posix_spawn_file_actions_adddup2(&actions_, readyPipe, 3);
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, 4);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setflags(&attributes_,
                               POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  }

  int run(pid_t& child, const std::string& program, char* const* arguments,
          char* const* environment) {
    return ::posix_spawn(&child, program.c_str(), &actions_, &attributes_, arguments, environment);
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

/// Waits for the child. One that has not done its work hangs or is not a daemon at all, and is
/// killed first.
void reap(pid_t child, bool didItsWork) {
  siginfo_t info{};
  // If the application ignores SIGCHLD there is no child to wait for, and its process ID may
  // already be another process's.
  if (::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0) return;
  if (!didItsWork) ::kill(child, SIGKILL);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

/// There systemd listens for the daemon, and starts it.
ServiceError notInstalled(const SystemRoot& root) {
  return {ServiceErrorCode::DaemonUnavailable,
          "the system's job daemon is not there: nobody listens at " +
              root.controlEndpoint().string() +
              ". Install the package wlhid-router, or, if it is installed, start the socket with "
              "systemctl start wlhid-jobd.socket"};
}

void checkOwner(const FileDescriptor& socket, const SystemRoot& root) {
  const auto peer = peerCredentials(socket.get());
  if (peer && isTrustedUser(peer->user)) return;
  throw ServiceError(ServiceErrorCode::NotPermitted,
                     "the job daemon of " + root.path().string() + " belongs to another user");
}

}  // namespace

FileDescriptor JobDaemon::connect() const {
  const auto rootDirectory = openRoot(root_);
  if (!rootDirectory) return {};
  const auto run = openPlace(rootDirectory.get(), root_.places().run);
  if (!run) return {};
  auto socket = connectUnixSocketAt(run.get(), "jobd.sock", SOCK_STREAM);
  if (socket) checkOwner(socket, root_);
  return socket;
}

FileDescriptor JobDaemon::connectOrStart() const {
  if (auto socket = connect()) return socket;
  if (root_.isSystem()) throw notInstalled(root_);
  start();
  return connect();
}

void JobDaemon::ensureRunning() const {
  static_cast<void>(connectOrStart());
}

void JobDaemon::start() const {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw fileSystemError("cannot make a pipe", errno);
  const FileDescriptor readEnd(ends[0]);
  FileDescriptor writeEnd(ends[1]);

  const std::string program = daemonProgram();
  std::vector<std::string> arguments{program, "--root", root_.path().string(), "--ready-fd", "3"};
  std::vector<std::string> environment;  // empty: the daemon uses none
  SpawnPlan plan;
  plan.setUp(writeEnd.get());
  pid_t child = -1;
  const int error = plan.run(child, program, platform::nullTerminated(arguments).data(),
                             platform::nullTerminated(environment).data());
  writeEnd.reset();
  if (error != 0)
    throw ServiceError(ServiceErrorCode::DaemonUnavailable,
                       "cannot start " + program + ": " + errorText(error));
  // The child is only the daemon's parent and exits at once.
  const std::string cause = readiness(readEnd.get());
  reap(child, cause.empty());
  if (!cause.empty())
    throw ServiceError(ServiceErrorCode::DaemonUnavailable,
                       "the job daemon did not start: " + cause);
}

std::optional<ControlReply> ControlConnection::tryAsk(const ControlRequest& request,
                                                      int descriptor) {
  if (!sendFrame(socket_.get(), encode(request), descriptor)) return std::nullopt;
  const auto deadline = Clock::now() + timeout_;
  FrameReader reader;
  for (;;) {
    if (!waitReadable(socket_.get(), deadline)) {
      throw ServiceError(ServiceErrorCode::TimedOut, "the job daemon did not answer in time");
    }
    switch (reader.readFrom(socket_.get())) {
      case FrameReader::State::NeedMore:
        continue;
      case FrameReader::State::Ended:
        return std::nullopt;
      case FrameReader::State::Malformed:
        throw ServiceError(ServiceErrorCode::Protocol, "the job daemon's reply is malformed");
      case FrameReader::State::Complete:
        break;
    }
    if (auto reply = decodeControlReply(reader.content())) return reply;
    throw ServiceError(ServiceErrorCode::Protocol, "the job daemon's reply cannot be read");
  }
}

bool ControlConnection::hasEnded() const {
  pollfd entry{socket_.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;  // the daemon sends nothing unasked
}

ControlReply ControlConnection::ask(const ControlRequest& request, int descriptor) {
  if (auto reply = tryAsk(request, descriptor)) return std::move(*reply);
  throw ServiceError(ServiceErrorCode::DaemonUnavailable,
                     "the job daemon closed the connection before it answered; try again");
}

std::pair<ControlConnection, ControlReply> JobDaemon::openWith(const ControlRequest& request,
                                                               int descriptor) const {
  // A daemon without jobs may exit just as it is asked; another one is then started. A daemon with
  // many callers closes the connection of one that it has not heard from yet.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    auto socket = connectOrStart();
    if (!socket) continue;
    ControlConnection connection(std::move(socket), root_.isSystem()
                                                        ? ControlConnection::kPersonTimeout
                                                        : ControlConnection::kReplyTimeout);
    if (auto reply = connection.tryAsk(request, descriptor))
      return {std::move(connection), std::move(*reply)};
  }
  throw ServiceError(ServiceErrorCode::DaemonUnavailable,
                     "the job daemon exited before it answered");
}

ControlReply JobDaemon::ask(const ControlRequest& request, int descriptor) const {
  return openWith(request, descriptor).second;
}

ControlConnection JobDaemon::authorize(const std::string& label) const {
  return authorize(ControlRequest{ControlRequest::Operation::Authorize, label});
}

ControlConnection JobDaemon::authorize(const ControlRequest& request) const {
  auto [connection, reply] = openWith(request, -1);
  if (!reply.succeeded()) throw ServiceError(reply.code, reply.message);
  return std::move(connection);
}

std::optional<ControlReply> JobDaemon::status() const {
  // A daemon with many callers closes the connection of one that it has not heard from yet.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    auto socket = connect();
    if (!socket) return std::nullopt;
    if (auto reply = ControlConnection(std::move(socket)).tryAsk(ControlRequest{}, -1))
      return reply;
  }
  return std::nullopt;
}

}  // namespace platform
