// SPDX-License-Identifier: Apache-2.0

#include "tests/integration/router-client/RouterHarness.h"

#include <thread>
#include <utility>

#include "tests/support/OneEndpoint.h"

namespace test {
namespace {

class AnsweredSession final : public RouterSession {
 public:
  AnsweredSession(std::shared_ptr<platform::NSXPCConnection> accepted,
                  std::shared_ptr<StartAnswers> answers)
      : RouterSession(std::move(accepted)), answers_(std::move(answers)) {}

 private:
  void answer(const StartRequest& request, StartReply reply) override {
    answers_->answer(request, std::move(reply));
  }

  const std::shared_ptr<StartAnswers> answers_;
};

}  // namespace

void StartAnswers::setAnswer(std::shared_ptr<platform::NSError> error) {
  const std::lock_guard lock(mutex_);
  answer_.swap(error);
}

void StartAnswers::setHoldReplies(bool hold) {
  const std::lock_guard lock(mutex_);
  holdsReplies_ = hold;
}

bool StartAnswers::waitForHeldReply() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [this] { return !heldReplies_.empty(); });
}

std::vector<StartAnswers::StartReply> StartAnswers::takeHeldReplies() {
  const std::lock_guard lock(mutex_);
  return std::exchange(heldReplies_, {});
}

std::uint64_t StartAnswers::entryID() {
  const std::lock_guard lock(mutex_);
  return entryID_;
}

std::shared_ptr<platform::NSDictionary> StartAnswers::tags() {
  const std::lock_guard lock(mutex_);
  return tags_;
}

void StartAnswers::answer(const StartRequest& request, StartReply reply) {
  std::shared_ptr<platform::NSError> answer;
  {
    const std::lock_guard lock(mutex_);
    entryID_ = request.entryID;
    tags_ = request.tags;
    if (holdsReplies_) {
      heldReplies_.push_back(std::move(reply));
      return changed_.notify_all();
    }
    answer = answer_;
  }
  reply(answer);
}

RouterHarness::RouterHarness() {
  constexpr int kBacklog = 64;
  const std::string path = (directory_.path() / "router.sock").string();
  router_ = TestRouter::listen(path, kBacklog, [answers = answers_](const auto& connection) {
    return std::make_shared<AnsweredSession>(connection, answers);
  });
  previousEndpoints_ = platform::serviceEndpoints().exchange(
      std::make_shared<testsupport::OneEndpoint>(WLHIDEventRouterLabel, path));
}

RouterHarness::~RouterHarness() {
  router_->listener().invalidate();
  answers_->takeHeldReplies();
  router_->dropSessions();
  platform::serviceEndpoints().exchange(previousEndpoints_);
}

bool waitUntilNoConnectionIsLeft() {
  // There is no event to wait for; the limit applies only if the count never gets there.
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (platform::liveConnectionCount() != 0) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace test
