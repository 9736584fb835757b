// SPDX-License-Identifier: Apache-2.0

#include "bench/Router.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/foundation/NSString.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceEndpoints.h"
#include "tests/support/TestRouter.h"

extern char** environ;

namespace bench {
namespace {

using testsupport::RouterSession;

constexpr int kBareDescriptor = 4;
constexpr std::uint64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr std::size_t kMaxUnsent = std::size_t{1} << 20;

void sleepUntil(std::uint64_t nanoseconds) {
  if (monotonicNanoseconds() >= nanoseconds) return;  // late: as cheap as it can be
  const timespec when{static_cast<time_t>(nanoseconds / 1'000'000'000),
                      static_cast<long>(nanoseconds % 1'000'000'000)};
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr) == EINTR) {
  }
}

std::shared_ptr<platform::NSData> stampedReport() {
  return platform::NSData::dataWithLength(kReportBytes, [](std::span<std::uint8_t> room) {
    std::memset(room.data(), kReportFiller, room.size());
    const std::uint64_t now = monotonicNanoseconds();
    std::memcpy(room.data(), &now, sizeof now);
  });
}

std::shared_ptr<platform::NSData> plainReport() {
  return platform::NSData::dataWithLength(kReportBytes, [](std::span<std::uint8_t> room) {
    std::memset(room.data(), kReportFiller, room.size());
  });
}

void sendPaced(const Job& job, WLHIDEventRouterClientProtocol& client) {
  std::uint64_t due = monotonicNanoseconds();
  for (std::uint32_t i = 0; i < job.count; ++i) {
    sleepUntil(due += kSecond / job.perSecond);
    client.receivedData_forReportID(stampedReport(), 1);
  }
}

void sendStream(const Job& job, WLHIDEventRouterClientProtocol& client,
                platform::NSXPCConnection& connection) {
  const auto batch = connection.makeBatch();
  const auto batched = batch->proxyWithErrorHandler<WLHIDEventRouterClientProtocol>({});
  for (std::uint32_t sent = 0; sent < job.count;) {
    if (job.batch == 1) {
      client.receivedData_forReportID(plainReport(), 1);
    } else {
      for (unsigned i = 0; i < job.batch; ++i) batched->receivedData_forReportID(plainReport(), 1);
      batch->send();
    }
    sent += job.batch;
    if (sent % 64 == 0 && connection.unsentBytes() > kMaxUnsent) {
      connection.waitUntilUnsentBelow(kMaxUnsent / 2, std::chrono::milliseconds(10'000));
    }
  }
}

// Reports of a ping-pong are sent when the other connection of the same client sends a stop
// request.
std::mutex pingPongMutex;
std::weak_ptr<RouterSession> pingPong;

class BenchSession final : public RouterSession {
 public:
  using RouterSession::RouterSession;

  void stopRoutingService() override {
    std::shared_ptr<RouterSession> other;
    {
      const std::lock_guard lock(pingPongMutex);
      other = pingPong.lock();
    }
    if (other && other.get() != this) other->client->receivedData_forReportID(plainReport(), 1);
  }

 private:
  void answer(const testsupport::StartRequest& request, StartReply reply) override {
    reply(nullptr);
    const Job job = Job::decode(request.entryID);
    if (job.kind == Kind::PingPong) {
      const std::lock_guard lock(pingPongMutex);
      pingPong = weak_from_this();
    } else if (job.kind != Kind::Nothing) {
      std::thread([self = shared_from_this(), job] {
        if (job.kind == Kind::Paced) return sendPaced(job, *self->client);
        sendStream(job, *self->client, *self->connection);
      }).detach();
    }
  }
};

// --- the bare baseline
// -------------------------------------------------------------------------------------------------

bool writeWhole(int socket, const std::uint8_t* bytes, std::size_t length) {
  while (length > 0) {
    const ssize_t sent = ::send(socket, bytes, length, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    length -= static_cast<std::size_t>(sent);
  }
  return true;
}

/// Each frame has its length in front, so that a reader can split them.
std::vector<std::uint8_t> bareFrames(std::size_t count) {
  std::vector<std::uint8_t> frames(kReportFrameBytes * count, kReportFiller);
  const std::uint32_t length = kReportFrameBytes;
  for (std::size_t i = 0; i < count; ++i)
    std::memcpy(frames.data() + i * kReportFrameBytes, &length, sizeof length);
  return frames;
}

void serveBareStream(int socket, const Job& job) {
  const std::vector<std::uint8_t> frames = bareFrames(job.batch);
  for (std::uint32_t sent = 0; sent < job.count; sent += job.batch) {
    if (!writeWhole(socket, frames.data(), frames.size())) return;
  }
}

void serveBarePaced(int socket, const Job& job) {
  std::array<std::uint8_t, kReportFrameBytes> frame{};
  std::uint64_t due = monotonicNanoseconds();
  for (std::uint32_t i = 0; i < job.count; ++i) {
    sleepUntil(due += kSecond / job.perSecond);
    const std::uint64_t now = monotonicNanoseconds();
    std::memcpy(frame.data(), &now, sizeof now);
    if (!writeWhole(socket, frame.data(), frame.size())) return;
  }
}

// Pongs go to the socket that last asked for them, as the layer's do.
std::atomic<int> barePong = -1;

/// Signals that it is ready, and keeps the socket open until its peer closes it.
void serveBarePingPong(int socket) {
  barePong = socket;
  std::uint8_t byte = 0;
  if (writeWhole(socket, &byte, sizeof byte)) (void)::recv(socket, &byte, sizeof byte, 0);
}

void serveBarePing(int socket) {
  std::array<std::uint8_t, kReportFrameBytes> frame{};
  std::array<std::uint8_t, kEmptyFrameBytes> ping{};
  while (::recv(socket, ping.data(), ping.size(), MSG_WAITALL) ==
         static_cast<ssize_t>(ping.size())) {
    if (!writeWhole(barePong, frame.data(), frame.size())) return;
  }
}

void serveBare(int socket) {
  std::uint64_t encoded = 0;
  if (::recv(socket, &encoded, sizeof encoded, MSG_WAITALL) == sizeof encoded) {
    const Job job = Job::decode(encoded);
    switch (job.kind) {
      case Kind::Stream:
        serveBareStream(socket, job);
        break;
      case Kind::Paced:
        serveBarePaced(socket, job);
        break;
      case Kind::PingPong:
        serveBarePingPong(socket);
        break;
      case Kind::Ping:
        serveBarePing(socket);
        break;
      case Kind::Nothing:
        break;
    }
  }
  ::close(socket);
}

int listenAt(const std::string& path) {
  const int socket = platform::listenUnixSocket(path, SOCK_STREAM, /*backlog=*/4096, /*mode=*/0600);
  if (socket < 0)
    throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
  return socket;
}

pid_t spawnSelf(std::vector<std::string> arguments,
                const std::vector<platform::FileDescriptor>& sockets) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  for (std::size_t i = 0; i < sockets.size(); ++i) {
    ::posix_spawn_file_actions_adddup2(&actions, sockets[i].get(),
                                       kLayerDescriptor + static_cast<int>(i));
  }
  const std::string program = "/proc/self/exe";
  arguments.insert(arguments.begin(), program);
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  pid_t process = -1;
  const int error =
      ::posix_spawn(&process, program.c_str(), &actions, nullptr, words.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0)
    throw std::runtime_error(std::string("cannot start the router process: ") +
                             std::strerror(error));
  return process;
}

}  // namespace

std::uint64_t monotonicNanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

RoleProcess::RoleProcess() {
  std::string pattern = (std::filesystem::temp_directory_path() / "wlhid-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::runtime_error("cannot make a temporary directory");
  directory_ = pattern;
}

RoleProcess::~RoleProcess() {
  if (process_ > 0) {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void RoleProcess::start(std::vector<std::string> arguments, const std::vector<std::string>& paths) {
  std::vector<platform::FileDescriptor> sockets;
  for (const std::string& path : paths) {
    const platform::FileDescriptor socket(listenAt(path));
    // Moved up, so that placing one of them cannot overwrite another.
    sockets.emplace_back(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 10));
  }
  process_ = spawnSelf(std::move(arguments), sockets);
}

RouterProcess::RouterProcess() {
  start({"--role=router"}, {endpoint(), bareEndpoint()});
}

int RouterProcess::connectBare(const Job& job) const {
  const int socket = platform::connectUnixSocket(bareEndpoint(), SOCK_STREAM);
  if (socket < 0)
    throw std::runtime_error(std::string("cannot connect the bare socket: ") +
                             std::strerror(errno));
  ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) & ~O_NONBLOCK);
  const std::uint64_t encoded = job.encode();
  if (::send(socket, &encoded, sizeof encoded, MSG_NOSIGNAL) != sizeof encoded) {
    throw std::runtime_error("cannot write to the bare socket");
  }
  return socket;
}

double RoleProcess::processorSeconds() const {
  clockid_t clock{};
  timespec spent{};
  if (::clock_getcpuclockid(process_, &clock) != 0 || ::clock_gettime(clock, &spent) != 0) {
    throw std::runtime_error("cannot read the router process's processor time");
  }
  return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

int runRouterRole() {
  platform::NSXPCListenerLimits limits;  // the measurement has a thousand clients of one user
  limits.connectionsOfUser = limits.connections = 10'000;
  const auto router = testsupport::TestRouter::serve(
      kLayerDescriptor,
      [](const auto& connection) { return std::make_shared<BenchSession>(connection); }, limits);
  if (!router) return 1;
  ::fcntl(kBareDescriptor, F_SETFL, ::fcntl(kBareDescriptor, F_GETFL) & ~O_NONBLOCK);
  for (;;) {
    const int socket = ::accept4(kBareDescriptor, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) std::thread(serveBare, socket).detach();
  }
}

}  // namespace bench
