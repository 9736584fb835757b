// SPDX-License-Identifier: Apache-2.0

// A router in this process, on a real endpoint, that does at random what routers do to clients.
//
// Threading: any thread.
// Ownership: keeps the router and the held-back replies.
// Errors: std::runtime_error if the endpoint cannot be created.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include "platform/services/ServiceEndpoints.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestRouter.h"

namespace stress {

using Random = std::mt19937_64;

using testsupport::RouterSession;
using testsupport::TestRouter;

class RaceRouter final {
 public:
  /// What it does with connections and start requests.
  enum class Temper {
    Calm,        ///< accepts everything, answers at once and sends a report with ID 1
    Moody,       ///< sometimes refuses; answers, fails, holds back or drops requests
    Unfriendly,  ///< refuses every connection
  };
  using StartReply = WLHIDEventRouterProtocol::StartReply;

  /// Replaces the process's service endpoints during its life.
  static std::shared_ptr<RaceRouter> make();
  RaceRouter(const RaceRouter&) = delete;
  RaceRouter& operator=(const RaceRouter&) = delete;
  ~RaceRouter();

  void setTemper(Temper temper) { temper_ = temper; }
  void answer(RouterSession& session, StartReply reply);

  /// Ends one session without a farewell, as a crash would.
  void killOne(Random& random);
  /// Ends one session in good order.
  void endOne(Random& random);
  void deliver(Random& random);
  /// Answers, fails or drops one held-back reply.
  void settleOne(Random& random);
  void settleAll();
  /// Sends a report with that ID to every session.
  void deliverToAll(std::uint32_t reportID);
  /// Sessions that route.
  [[nodiscard]] std::size_t routing() const;
  [[nodiscard]] std::size_t connections() const { return router_->sessionCount(); }
  /// Connections that were offered, accepted or refused.
  [[nodiscard]] std::uint64_t arrivals() const { return router_->arrivals(); }
  [[nodiscard]] std::uint64_t killed() const { return killed_; }

 private:
  RaceRouter() = default;
  [[nodiscard]] std::shared_ptr<RouterSession> anyOne(Random& random) const;
  [[nodiscard]] std::shared_ptr<RouterSession> takeOne(Random& random);
  [[nodiscard]] bool refusesNext();
  [[nodiscard]] std::uint64_t draw();

  const testsupport::TemporaryDirectory directory_;
  std::shared_ptr<TestRouter> router_;
  std::shared_ptr<platform::ServiceEndpoints> previousEndpoints_;
  std::atomic<Temper> temper_{Temper::Calm};
  std::atomic<std::uint64_t> killed_{0};
  std::mutex mutex_;
  Random random_{std::random_device{}()};
  std::vector<StartReply> held_;
};

}  // namespace stress
