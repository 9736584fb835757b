// SPDX-License-Identifier: Apache-2.0

// A router in this process, on the real connection layer: it serves a listening socket and keeps a
// session for each client until its connection has ended. What a session answers and sends is up to
// the test, which derives from RouterSession and says how sessions are made.
//
// Threading: sessions are made on the listener's thread and called on their connections' queues;
//   everything else may be called from any thread.
// Ownership: the router keeps its sessions, a session keeps its connection. A session that is no
//   longer kept drops its connection.
// Errors: std::runtime_error if it cannot listen.
// Order: sessions are in the order in which their clients connected.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/xpc/NSXPCListener.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace testsupport {

struct StartRequest {
  std::uint64_t entryID;
  const std::shared_ptr<platform::NSDictionary>& tags;
};

/// One client's session.
class RouterSession : public WLHIDEventRouterProtocol,
                      public std::enable_shared_from_this<RouterSession> {
 public:
  /// Gives the connection the plain interfaces of both protocols; a derived class may set others.
  explicit RouterSession(std::shared_ptr<platform::NSXPCConnection> accepted);

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<platform::NSDictionary>& tags,
      const std::shared_ptr<platform::NSDictionary>& types, StartReply reply) final;
  void stopRoutingService() override;

  const std::shared_ptr<platform::NSXPCConnection> connection;
  const std::shared_ptr<WLHIDEventRouterClientProtocol> client;
  std::atomic<int> starts{0};
  std::atomic<int> stops{0};
  std::atomic<bool> isRouting{false};  ///< set by the derived class; cleared by a stop request

 private:
  friend class TestRouter;
  virtual void answer(const StartRequest& request, StartReply reply) = 0;

  bool hasEnded_ = false;  // guarded by the router's mutex
};

class TestRouter final : public platform::NSXPCListenerDelegate,
                         public std::enable_shared_from_this<TestRouter> {
 public:
  using Sessions = std::vector<std::shared_ptr<RouterSession>>;
  /// Makes the session of a new client, whose connection is not resumed yet; null refuses the
  /// client.
  using MakeSession = std::function<std::shared_ptr<RouterSession>(
      const std::shared_ptr<platform::NSXPCConnection>&)>;

  /// Listens at `path` with that backlog.
  static std::shared_ptr<TestRouter> listen(const std::string& path, int backlog,
                                            MakeSession makeSession,
                                            const platform::NSXPCListenerLimits& limits = {});
  /// Takes over a listening socket; null if there is none.
  static std::shared_ptr<TestRouter> serve(int descriptor, MakeSession makeSession,
                                           const platform::NSXPCListenerLimits& limits = {});
  explicit TestRouter(MakeSession makeSession) : makeSession_(std::move(makeSession)) {}
  TestRouter(const TestRouter&) = delete;
  TestRouter& operator=(const TestRouter&) = delete;
  ~TestRouter() override;

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

  [[nodiscard]] platform::NSXPCListener& listener() const { return *listener_; }
  /// How many clients have connected, including those that were refused.
  [[nodiscard]] std::uint64_t arrivals() const;
  [[nodiscard]] Sessions sessions() const;
  [[nodiscard]] std::size_t sessionCount() const;
  [[nodiscard]] bool waitUntilEnded(const std::shared_ptr<RouterSession>& session,
                                    std::chrono::seconds patience);
  /// Releases a session to the caller; false if the router no longer keeps it.
  [[nodiscard]] bool release(const std::shared_ptr<RouterSession>& session);
  /// Closes every session gracefully: the clients see an invalidation.
  void invalidateSessions();
  /// Drops every session, as a crash does: the clients see an interruption.
  void dropSessions();

 private:
  void end(const std::weak_ptr<RouterSession>& session);
  [[nodiscard]] Sessions takeSessions();

  const MakeSession makeSession_;
  std::shared_ptr<platform::NSXPCListener> listener_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t arrivals_ = 0;
  Sessions sessions_;
};

}  // namespace testsupport
