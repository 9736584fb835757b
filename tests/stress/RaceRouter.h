// A router in this process, on a real endpoint, that does at random what routers do to clients.
//
// Threading: any thread. Ownership: keeps its sessions and the replies that it holds back.
// Errors: std::runtime_error when the endpoint cannot be made. Order: none.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "platform/services/ServiceEndpoints.h"
#include "platform/xpc/NSXPCListener.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace stress {

using Random = std::mt19937_64;

class RaceSession;

class RaceRouter final : public platform::NSXPCListenerDelegate,
                         public std::enable_shared_from_this<RaceRouter> {
 public:
  /// What it does with connections and start requests.
  enum class Temper {
    Calm,        ///< takes everything, answers at once and sends a report with ID 1
    Moody,       ///< refuses now and then, answers, fails, holds back or drops
    Unfriendly,  ///< refuses every connection
  };
  using StartReply = WLHIDEventRouterProtocol::StartReply;

  /// Replaces the process's service endpoints for as long as it lives.
  static std::shared_ptr<RaceRouter> make();
  ~RaceRouter() override;

  void setTemper(Temper temper) { temper_ = temper; }
  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

  /// One session ends without a word, as by a crash.
  void killOne(Random& random);
  /// One session ends in good order.
  void endOne(Random& random);
  void deliver(Random& random);
  /// Answers, fails or drops one reply that was held back.
  void settleOne(Random& random);
  void settleAll();
  /// A report with that ID to every session.
  void deliverToAll(std::uint32_t reportID);
  /// Sessions that route.
  [[nodiscard]] std::size_t routing() const;
  [[nodiscard]] std::size_t connections() const;
  [[nodiscard]] std::uint64_t accepted() const { return accepted_; }
  [[nodiscard]] std::uint64_t killed() const { return killed_; }

 private:
  friend class RaceSession;
  RaceRouter() = default;
  [[nodiscard]] std::shared_ptr<RaceSession> takeOne(Random& random);
  void answer(const std::shared_ptr<RaceSession>& session, StartReply reply);
  void ended(const std::weak_ptr<RaceSession>& session);
  [[nodiscard]] std::uint64_t draw();

  std::filesystem::path directory_;
  std::shared_ptr<platform::NSXPCListener> listener_;
  std::shared_ptr<platform::ServiceEndpoints> previousEndpoints_;
  std::atomic<Temper> temper_{Temper::Calm};
  std::atomic<std::uint64_t> accepted_{0};
  std::atomic<std::uint64_t> killed_{0};
  mutable std::mutex mutex_;
  Random random_{std::random_device{}()};
  std::vector<std::shared_ptr<RaceSession>> sessions_;
  std::vector<StartReply> held_;
};

}  // namespace stress
