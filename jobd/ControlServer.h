// The daemon's control endpoint: takes requests, hands each to the handler, sends its reply.
//
// Threading: one thread. Ownership: owns its socket and connections. A Reply may be kept and called
// later, once; calling it
//   after its connection went does nothing.
// Errors: ServiceError when the endpoint cannot be opened. A caller who is somebody else, sends
// nonsense or stalls loses
//   its connection, and nothing else happens.
// Order: requests are handed on in the order in which they were complete.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "jobd/EventLoop.h"
#include "platform/services/Control.h"

namespace jobd {

class ControlServer {
 public:
  using Reply = std::function<void(const platform::ControlReply& reply)>;
  /// The descriptor is empty when none came along.
  using Handler = std::function<void(const platform::ControlRequest& request,
                                     platform::FileDescriptor descriptor, Reply reply)>;

  static constexpr std::size_t maximumConnections = 32;
  static constexpr std::chrono::milliseconds requestPatience{10'000};

  /// Listens as "jobd.sock" in the open directory. `quiet` is called whenever the last connection
  /// has gone.
  ControlServer(EventLoop& loop, int runDirectory, Handler handler, std::function<void()> quiet);

  [[nodiscard]] bool isQuiet() const { return connections_.empty(); }
  /// Whether the endpoint's file is still this one.
  [[nodiscard]] bool isInPlace() const;
  /// Takes the endpoint's name away. Whoever connected before is still there to be accepted: false,
  /// and the endpoint is opened anew, when somebody is.
  bool closeIfUnused();
  void removeEndpoint() const;

 private:
  struct Connection {
    platform::FileDescriptor socket;
    platform::FrameReader reader;
    EventLoop::Token watch;
    EventLoop::Token patience;
  };

  void listen();
  void acceptAll();
  void admit(platform::FileDescriptor socket);
  void readRequest(std::uint64_t id);
  void dispatch(std::uint64_t id, Connection& connection);
  void drop(std::uint64_t id);

  EventLoop& loop_;
  int runDirectory_;
  Handler handler_;
  std::function<void()> quiet_;
  platform::FileDescriptor socket_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
  EventLoop::Token watch_;
  std::map<std::uint64_t, Connection> connections_;
  std::uint64_t nextId_ = 1;
};

}  // namespace jobd
