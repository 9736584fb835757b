// A router in this process, on a real endpoint in a directory of its own, reached by the real
// connection layer. The presence check is answered by a scripted platform.
//
// Threading: the harness may be asked from any thread.
// Ownership: the harness keeps the router and the replies that are held back.
// Errors: std::runtime_error when the endpoint can't be made.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/scripted/ScriptedPlatform.h"
#include "platform/services/ServiceEndpoints.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestRouter.h"

namespace test {

using testsupport::RouterSession;
using testsupport::StartRequest;
using testsupport::TestRouter;

inline constexpr std::chrono::seconds kPatience{60};

/// What start requests are answered with: what was set, or what the test says later.
class StartAnswers {
 public:
  using StartReply = WLHIDEventRouterProtocol::StartReply;

  /// What a start request is answered with; null: routing. Ahead of that, with `hold`, nothing.
  void setAnswer(std::shared_ptr<platform::NSError> error);
  void setHoldReplies(bool hold);
  [[nodiscard]] bool waitForHeldReply();
  /// The held replies, for the caller to call or to drop.
  std::vector<StartReply> takeHeldReplies();
  /// The last request's, as is the next.
  [[nodiscard]] std::uint64_t entryID();
  [[nodiscard]] std::shared_ptr<platform::NSDictionary> tags();

  void answer(const StartRequest& request, StartReply reply);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<StartReply> heldReplies_;
  std::shared_ptr<platform::NSError> answer_;
  bool holdsReplies_ = false;
  std::uint64_t entryID_ = 0;
  std::shared_ptr<platform::NSDictionary> tags_;
};

/// Puts the router's endpoint in place and takes it away again.
class RouterHarness {
 public:
  RouterHarness();
  ~RouterHarness();
  RouterHarness(const RouterHarness&) = delete;
  RouterHarness& operator=(const RouterHarness&) = delete;

  [[nodiscard]] TestRouter& router() { return *router_; }
  [[nodiscard]] StartAnswers& answers() { return *answers_; }

 private:
  const testsupport::TemporaryDirectory directory_;
  const std::shared_ptr<StartAnswers> answers_ = std::make_shared<StartAnswers>();
  std::shared_ptr<TestRouter> router_;
  std::shared_ptr<platform::ServiceEndpoints> previousEndpoints_;
};

/// Waits until no connection of this process is left: no thread, no descriptor.
[[nodiscard]] bool waitUntilNoConnectionIsLeft();

}  // namespace test
