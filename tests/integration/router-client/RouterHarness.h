// SPDX-License-Identifier: Apache-2.0

// A router in this process, on a real endpoint in its own directory, reached through the real
// connection layer. The presence check is answered by a scripted platform.
//
// Threading: any thread.
// Ownership: the harness keeps the router and the replies that are held back.
// Errors: std::runtime_error if the endpoint cannot be created.
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

/// The answers to start requests: preset, or given later by the test.
class StartAnswers {
 public:
  using StartReply = WLHIDEventRouterProtocol::StartReply;

  /// The answer to a start request; null: routing. With `hold`, requests are not answered yet.
  void setAnswer(std::shared_ptr<platform::NSError> error);
  void setHoldReplies(bool hold);
  [[nodiscard]] bool waitForHeldReply();
  /// The replies held back, for the caller to call or to drop.
  std::vector<StartReply> takeHeldReplies();
  /// That of the last request; the same goes for the next function.
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

/// Installs the router's endpoint and removes it again.
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

/// Waits until no connection of this process is left: no thread and no descriptor.
[[nodiscard]] bool waitUntilNoConnectionIsLeft();

}  // namespace test
