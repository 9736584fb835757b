// SPDX-License-Identifier: Apache-2.0

// The daemon's control endpoint: receives requests, passes each to the handler and sends its reply.
//
// On a user's root it is the daemon's own socket, for the root's owner and the superuser. On the
// system's own root systemd passes the socket, and callers of any user are served.
//
// A request that changes a job is accepted only on a connection that has permission to change that
// job. The permission belongs to the connection, covers one removal and one bless, and expires.
// Other requests are the handler's to decide.
//
// Threading: one thread.
// Ownership: owns its socket and connections. A Reply may be kept and called later, once; it does
//   nothing if its connection has gone.
// Errors: ServiceError if the endpoint cannot be opened. A caller that is another user, sends
//   malformed data or stalls loses its connection; nothing else happens.
// Order: requests are handled in the order in which they are complete; on one connection, each
//   after the reply to the one before.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "jobd/Caller.h"
#include "jobd/EventLoop.h"
#include "jobd/Permission.h"
#include "platform/services/Control.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

/// Limits for callers. When there are too many connections, the oldest one that has not sent a
/// whole request is dropped, so idle ones lock nobody out.
struct ControlLimits {
  std::size_t connections = 64;
  std::size_t connectionsPerUser = 16;
  std::chrono::milliseconds requestTimeout{5'000};       ///< for a request to be complete
  std::chrono::milliseconds permissionLifetime{10'000};  ///< for a request that uses a permission
};

class ControlServer {
 public:
  using Reply = std::function<void(const platform::ControlReply& reply)>;
  /// The descriptor is empty if none came with the request.
  using Handler = std::function<void(const Caller& caller, const platform::ControlRequest& request,
                                     platform::FileDescriptor descriptor, Reply reply)>;

  /// Listens as "jobd.sock" in the open directory. `quiet` is called whenever the last connection
  /// has ended.
  ControlServer(EventLoop& loop, int runDirectory, Authority authority, Handler handler,
                std::function<void()> quiet, const ControlLimits& limits = {});

  /// Serves callers of any user on a listening, non-blocking socket, which has no name here.
  ControlServer(EventLoop& loop, platform::FileDescriptor listening, Authority authority,
                Handler handler, std::function<void()> quiet, const ControlLimits& limits = {});

  [[nodiscard]] bool isQuiet() const { return connections_.empty(); }
  /// Whether the endpoint's file is still the one that was created here.
  [[nodiscard]] bool isInPlace() const;
  /// Removes the endpoint's name. If callers had connected before that, returns false and opens the
  /// endpoint anew. A passed socket stays open in systemd, so a later caller is not lost.
  bool closeIfUnused();
  void removeEndpoint() const;

 private:
  struct Connection {
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { endRequest(); }
    void endRequest() {
      if (presence) presence->end();
    }

    platform::PeerCredentials caller;
    std::shared_ptr<CallerPresence> presence;  ///< of the request that is worked on
    platform::FileDescriptor socket;
    platform::FrameReader reader;
    EventLoop::Token watch;  ///< while a request is awaited
    EventLoop::Token timeout;
    std::optional<Permission> permission;
  };
  using Connections = std::map<std::uint64_t, Connection>;

  void listen();
  void acceptAll();
  [[nodiscard]] std::optional<platform::PeerCredentials> admissibleCaller(int socket) const;
  bool makeRoomFor(uid_t user);
  [[nodiscard]] std::map<uid_t, std::size_t> connectionCounts() const;
  [[nodiscard]] bool hasRoomFor(uid_t user) const;
  void readPendingRequests();
  void readPendingRequest(std::uint64_t id);
  bool dropIdleOf(uid_t user);
  void admit(platform::FileDescriptor socket, const platform::PeerCredentials& caller);
  void awaitRequest(std::uint64_t id, std::chrono::milliseconds timeout);
  platform::FrameReader::State readRequest(std::uint64_t id);
  void dispatch(std::uint64_t id, Connection& connection);
  void authorize(std::uint64_t id, const platform::ControlRequest& request);
  void takeDecision(std::uint64_t id, const platform::ControlRequest& request,
                    const Decision& decision);
  void answer(std::uint64_t id, const platform::ControlReply& reply);
  void drop(std::uint64_t id);

  EventLoop& loop_;
  int runDirectory_ = -1;  ///< of the daemon's own socket
  Authority authority_;
  Handler handler_;
  std::function<void()> quiet_;
  ControlLimits limits_;
  platform::FileDescriptor socket_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
  EventLoop::Token watch_;
  Connections connections_;  ///< by number, so in order of arrival
  std::uint64_t nextId_ = 1;
};

/// A reply without data: success, or an error with its message.
[[nodiscard]] platform::ControlReply controlReply(
    platform::ServiceErrorCode code = platform::ServiceErrorCode::None,
    const std::string& message = {});

}  // namespace jobd
