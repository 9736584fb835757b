// The daemon's control endpoint: takes requests, hands each to the handler, sends its reply.
//
// A request that changes a job gets through only on a connection that was given leave to change
// that job. The leave belongs to the connection, covers one removal and one bless, and runs out.
//
// Threading: one thread. Ownership: owns its socket and connections. A Reply may be kept and called
// later, once; calling it after its connection went does nothing.
// Errors: ServiceError when the endpoint cannot be opened. A caller who is somebody else, sends
// nonsense or stalls loses its connection, and nothing else happens.
// Order: requests are handed on in the order in which they were complete, those of one connection
// each after the reply to the one before.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "jobd/EventLoop.h"
#include "jobd/Leave.h"
#include "platform/services/Control.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

/// How much callers may ask for at a time. When there are too many connections, the oldest that has
/// not sent its whole request makes room, so that idle ones keep nobody out.
struct ControlLimits {
  std::size_t connections = 64;
  std::size_t connectionsOfAUser = 16;
  std::chrono::milliseconds requestPatience{5'000};  ///< for a request to be complete
  std::chrono::milliseconds leaveLifetime{10'000};   ///< for a request that uses a leave
};

class ControlServer {
 public:
  using Reply = std::function<void(const platform::ControlReply& reply)>;
  /// The descriptor is empty when none came along.
  using Handler = std::function<void(const platform::ControlRequest& request,
                                     platform::FileDescriptor descriptor, Reply reply)>;

  /// Listens as "jobd.sock" in the open directory. `quiet` is called whenever the last connection
  /// has gone.
  ControlServer(EventLoop& loop, int runDirectory, Authority authority, Handler handler,
                std::function<void()> quiet, const ControlLimits& limits = {});

  [[nodiscard]] bool isQuiet() const { return connections_.empty(); }
  /// Whether the endpoint's file is still this one.
  [[nodiscard]] bool isInPlace() const;
  /// Takes the endpoint's name away. Whoever connected before is still there to be accepted: false,
  /// and the endpoint is opened anew, when somebody is.
  bool closeIfUnused();
  void removeEndpoint() const;

 private:
  struct Connection {
    platform::PeerCredentials caller;
    platform::FileDescriptor socket;
    platform::FrameReader reader;
    EventLoop::Token watch;  ///< while a request is awaited
    EventLoop::Token patience;
    std::optional<Leave> leave;
  };
  using Connections = std::map<std::uint64_t, Connection>;

  void listen();
  void acceptAll();
  bool makeRoomFor(uid_t user);
  [[nodiscard]] std::map<uid_t, std::size_t> connectionCounts() const;
  [[nodiscard]] bool hasRoomFor(uid_t user) const;
  void takeWhatHasCome();
  void takeWhatHasCome(std::uint64_t id);
  bool dropIdleOf(uid_t user);
  void admit(platform::FileDescriptor socket, const platform::PeerCredentials& caller);
  void awaitRequest(std::uint64_t id, std::chrono::milliseconds patience);
  platform::FrameReader::State readRequest(std::uint64_t id);
  void dispatch(std::uint64_t id, Connection& connection);
  void authorize(std::uint64_t id, const std::string& label);
  void answer(std::uint64_t id, const platform::ControlReply& reply);
  void drop(std::uint64_t id);

  EventLoop& loop_;
  int runDirectory_;
  Authority authority_;
  Handler handler_;
  std::function<void()> quiet_;
  ControlLimits limits_;
  platform::FileDescriptor socket_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
  EventLoop::Token watch_;
  Connections connections_;  ///< by number, so in the order of their coming
  std::uint64_t nextId_ = 1;
};

/// A reply that says no more than that it went well, or what went wrong.
[[nodiscard]] platform::ControlReply controlReply(
    platform::ServiceErrorCode code = platform::ServiceErrorCode::None,
    const std::string& message = {});

}  // namespace jobd
