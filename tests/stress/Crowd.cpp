// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/Crowd.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <vector>

#include "tests/conformance/wire/WireMessages.h"

namespace stress {
namespace {

struct Order {
  std::uint64_t count = 0;  ///< 0: disperse
  char path[108] = {};
};

class Peers {
 public:
  ~Peers() { disperse(); }
  std::uint64_t gather(const Order& order) {
    const auto& hello = conformance::prelude(conformance::Receiver::Router);
    while (sockets_.size() < order.count && add(order, hello)) {
    }
    return sockets_.size();
  }
  void disperse() {
    for (const int socket : sockets_) ::close(socket);
    sockets_.clear();
  }

 private:
  bool add(const Order& order, std::span<const std::uint8_t> hello) {
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, order.path, sizeof order.path);
    const int peer = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (peer < 0) return false;
    // If the listener accepts no more, connect waits: but not forever.
    const timeval limit{2, 0};
    ::setsockopt(peer, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      return ::close(peer), false;
    const std::size_t said = sockets_.size() % 3 * hello.size() / 2;
    sockets_.push_back(peer);
    return ::send(peer, hello.data(), said, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
  }

  std::vector<int> sockets_;
};

[[noreturn]] void serve(int socket) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  Peers peers;
  for (Order order; ::recv(socket, &order, sizeof order, MSG_WAITALL) == sizeof order;) {
    if (order.count == 0) peers.disperse();
    const std::uint64_t connected = order.count == 0 ? 0 : peers.gather(order);
    ::send(socket, &connected, sizeof connected, MSG_NOSIGNAL);
  }
  peers.disperse();
  ::_exit(0);
}

}  // namespace

Crowd::Crowd() {
  int sockets[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
    throw std::runtime_error("cannot create a socket pair");
  process_ = ::fork();
  if (process_ < 0) throw std::runtime_error("cannot fork");
  ::close(sockets[process_ == 0 ? 0 : 1]);
  if (process_ == 0) serve(sockets[1]);
  socket_ = sockets[0];
}

Crowd::~Crowd() {
  ::close(socket_);
  ::waitpid(process_, nullptr, 0);
}

std::size_t Crowd::gather(const std::string& path, std::size_t count) {
  Order order{count, {}};
  if (path.size() >= sizeof order.path) throw std::runtime_error("the endpoint's path is too long");
  std::memcpy(order.path, path.data(), path.size());
  std::uint64_t connected = 0;
  if (::send(socket_, &order, sizeof order, MSG_NOSIGNAL) != sizeof order ||
      ::recv(socket_, &connected, sizeof connected, MSG_WAITALL) != sizeof connected)
    throw std::runtime_error("the crowd's process has ended");
  return connected;
}

void Crowd::disperse() {
  const Order order;
  std::uint64_t connected = 0;
  if (::send(socket_, &order, sizeof order, MSG_NOSIGNAL) != sizeof order ||
      ::recv(socket_, &connected, sizeof connected, MSG_WAITALL) != sizeof connected)
    throw std::runtime_error("the crowd's process has ended");
}

}  // namespace stress
