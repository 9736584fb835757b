// A router in this process, on a real endpoint in a directory of its own, reached by the real
// connection layer. The presence check is answered by a scripted platform.
//
// Threading: the router's methods run on its connections' queues; the harness may be asked from any
//   thread.
// Ownership: the harness keeps the router, the router its sessions until it drops or invalidates
//   them.
// Errors: std::runtime_error when the endpoint can't be made.
// Order: none.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/scripted/ScriptedPlatform.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/xpc/NSXPCListener.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/support/ClientTrace.h"

namespace test {

inline constexpr std::chrono::seconds kPatience{60};

/// One client's session.
class RouterSession final : public WLHIDEventRouterProtocol {
 public:
  using StartScript = std::function<void(RouterSession& session, StartReply reply)>;

  explicit RouterSession(StartScript onStart) : onStart_(std::move(onStart)) {}

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t newEntryID, std::uint64_t,
      const std::shared_ptr<platform::NSDictionary>& newTags,
      const std::shared_ptr<platform::NSDictionary>&, StartReply reply) override {
    {
      const std::lock_guard lock(mutex);
      ++starts;
      entryID = newEntryID;
      tags = newTags;
    }
    onStart_(*this, std::move(reply));
  }
  void stopRoutingService() override {
    const std::lock_guard lock(mutex);
    ++stops;
  }

  std::mutex mutex;
  std::shared_ptr<platform::NSXPCConnection> connection;
  std::shared_ptr<WLHIDEventRouterClientProtocol> client;
  int starts = 0;
  int stops = 0;
  bool ended = false;
  std::uint64_t entryID = 0;
  std::shared_ptr<platform::NSDictionary> tags;

 private:
  const StartScript onStart_;
};

class TestRouter final : public platform::NSXPCListenerDelegate {
 public:
  using StartReply = WLHIDEventRouterProtocol::StartReply;

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>&,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override {
    using platform::NSXPCInterface;
    const auto session =
        std::make_shared<RouterSession>([this](RouterSession& started, StartReply reply) {
          answerStart(started, std::move(reply));
        });
    connection->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    connection->setExportedObject<WLHIDEventRouterProtocol>(session);
    connection->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
    const std::weak_ptr<RouterSession> weak = session;
    connection->setInterruptionHandler([this, weak] { end(weak); });
    connection->setInvalidationHandler([this, weak] { end(weak); });
    session->connection = connection;
    session->client = connection->remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>(
        [](const auto&) {});
    {
      const std::lock_guard lock(mutex_);
      sessions_.push_back(session);
    }
    connection->resume();
    changed_.notify_all();
    return true;
  }

  /// What a start request is answered with; null: routing. Ahead of that, with `holdReplies`,
  /// nothing.
  void setAnswer(std::shared_ptr<platform::NSError> error) {
    const std::lock_guard lock(mutex_);
    answer_.swap(error);
  }
  void setHoldReplies(bool hold) {
    const std::lock_guard lock(mutex_);
    holdsReplies_ = hold;
  }
  [[nodiscard]] bool waitForHeldReply() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this] { return !heldReplies_.empty(); });
  }
  /// The held replies, for the caller to call or to drop.
  std::vector<StartReply> takeHeldReplies() {
    const std::lock_guard lock(mutex_);
    return std::exchange(heldReplies_, {});
  }
  [[nodiscard]] std::vector<std::shared_ptr<RouterSession>> sessions() {
    const std::lock_guard lock(mutex_);
    return sessions_;
  }
  /// Sessions that have started and not ended.
  [[nodiscard]] std::vector<std::shared_ptr<RouterSession>> routing() {
    std::vector<std::shared_ptr<RouterSession>> found;
    for (const auto& session : sessions()) {
      const std::lock_guard lock(session->mutex);
      if (session->starts > 0 && !session->ended) found.push_back(session);
    }
    return found;
  }
  [[nodiscard]] bool waitUntilEnded(const std::shared_ptr<RouterSession>& session) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&session] {
      const std::lock_guard sessionLock(session->mutex);
      return session->ended;
    });
  }
  /// Ends every session in good order: the clients see an invalidation.
  void invalidateSessions() {
    for (const auto& session : takeSessions()) session->connection->invalidate();
  }
  /// Ends every session without a word, as a crash does: the clients see an interruption.
  void dropSessions() {
    for (const auto& session : takeSessions()) {
      std::shared_ptr<platform::NSXPCConnection> connection;
      std::shared_ptr<WLHIDEventRouterClientProtocol> client;
      const std::lock_guard lock(session->mutex);
      connection.swap(session->connection);
      client.swap(session->client);
    }
  }
  void releaseSessions() { (void)takeSessions(); }

 private:
  std::vector<std::shared_ptr<RouterSession>> takeSessions() {
    const std::lock_guard lock(mutex_);
    return std::exchange(sessions_, {});
  }
  void answerStart(RouterSession&, StartReply reply) {
    std::shared_ptr<platform::NSError> answer;
    {
      const std::lock_guard lock(mutex_);
      if (holdsReplies_) {
        heldReplies_.push_back(std::move(reply));
        reply = nullptr;
      }
      answer = answer_;
    }
    if (reply) reply(answer);
    changed_.notify_all();
  }
  void end(const std::weak_ptr<RouterSession>& weak) {
    if (const auto session = weak.lock()) {
      const std::lock_guard lock(session->mutex);
      session->ended = true;
    }
    { const std::lock_guard lock(mutex_); }
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<RouterSession>> sessions_;
  std::vector<StartReply> heldReplies_;
  std::shared_ptr<platform::NSError> answer_;
  bool holdsReplies_ = false;
};

/// Leads the one service name to the harness's socket.
class TestEndpoints final : public platform::ServiceEndpoints {
 public:
  explicit TestEndpoints(std::string socketPath) : socketPath_(std::move(socketPath)) {}
  platform::ServiceConnectResult connectToService(std::string_view service) override;

 private:
  const std::string socketPath_;
};

/// A directory that goes with the object.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Puts the router's endpoint in place and takes it away again.
class RouterHarness {
 public:
  RouterHarness();
  ~RouterHarness();
  RouterHarness(const RouterHarness&) = delete;
  RouterHarness& operator=(const RouterHarness&) = delete;

  [[nodiscard]] TestRouter& router() { return *router_; }
  /// Another one than the router, held weakly.
  void setListenerDelegate(const std::shared_ptr<platform::NSXPCListenerDelegate>& delegate) {
    listener_->setDelegate(delegate);
  }

 private:
  ScratchDirectory directory_;
  std::shared_ptr<TestRouter> router_ = std::make_shared<TestRouter>();
  std::shared_ptr<platform::NSXPCListener> listener_;
  std::shared_ptr<platform::ServiceEndpoints> previousEndpoints_;
};

/// Waits until no connection of this process is left: no thread, no descriptor.
[[nodiscard]] bool waitUntilNoConnectionIsLeft();

}  // namespace test
