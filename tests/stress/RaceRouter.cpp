// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/RaceRouter.h"

#include <algorithm>

#include "platform/foundation/NSError.h"
#include "tests/support/OneEndpoint.h"

namespace stress {
namespace {

std::shared_ptr<platform::NSError> refusal(std::uint64_t drawn) {
  constexpr std::int64_t kNotPermitted = -536870174;
  constexpr std::int64_t kNoDevice = -536870208;
  return platform::NSError::errorWithDomain_code_userInfo(
      platform::str("NSOSStatusErrorDomain"), drawn % 2 == 0 ? kNotPermitted : kNoDevice, nullptr);
}

void deliver(const RouterSession& session, std::uint32_t reportID) {
  session.client->receivedData_forReportID(
      platform::NSData::dataWithBytes(std::vector<std::uint8_t>{1, 2, 3}), reportID);
}

class RaceSession final : public RouterSession {
 public:
  RaceSession(std::shared_ptr<platform::NSXPCConnection> accepted, std::weak_ptr<RaceRouter> router)
      : RouterSession(std::move(accepted)), router_(std::move(router)) {}

 private:
  void answer(const testsupport::StartRequest&, StartReply reply) override {
    if (const auto router = router_.lock()) router->answer(*this, std::move(reply));
  }

  const std::weak_ptr<RaceRouter> router_;
};

}  // namespace

std::shared_ptr<RaceRouter> RaceRouter::make() {
  constexpr int kBacklog = 128;
  std::shared_ptr<RaceRouter> race(new RaceRouter);
  const std::string path = (race->directory_.path() / "router.sock").string();
  race->router_ = TestRouter::listen(
      path, kBacklog,
      [weak = std::weak_ptr(race)](const auto& connection) -> std::shared_ptr<RouterSession> {
        const auto owner = weak.lock();
        if (!owner || owner->refusesNext()) return nullptr;
        return std::make_shared<RaceSession>(connection, owner);
      });
  using Outcome = testsupport::OneEndpoint::Outcome;
  race->previousEndpoints_ = platform::serviceEndpoints().exchange(
      std::make_shared<testsupport::OneEndpoint>(WLHIDEventRouterLabel, path, Outcome::TryAgain));
  return race;
}

RaceRouter::~RaceRouter() {
  if (previousEndpoints_) platform::serviceEndpoints().exchange(previousEndpoints_);
}

std::uint64_t RaceRouter::draw() {
  const std::lock_guard lock(mutex_);
  return random_();
}

bool RaceRouter::refusesNext() {
  const Temper temper = temper_;
  return temper == Temper::Unfriendly || (temper == Temper::Moody && draw() % 50 == 0);
}

void RaceRouter::answer(RouterSession& session, StartReply reply) {
  const std::uint64_t drawn = temper_ == Temper::Calm ? 0 : draw() % 16;
  if (drawn < 8) {
    session.isRouting = true;
    reply(nullptr);
    stress::deliver(session, 1);
  } else if (drawn < 11) {
    reply(refusal(drawn));
  } else if (drawn < 14) {
    const std::lock_guard lock(mutex_);
    held_.push_back(std::move(reply));
  }
  // Otherwise it is dropped unanswered.
}

std::shared_ptr<RouterSession> RaceRouter::anyOne(Random& random) const {
  const TestRouter::Sessions all = router_->sessions();
  return all.empty() ? nullptr : all[random() % all.size()];
}

std::shared_ptr<RouterSession> RaceRouter::takeOne(Random& random) {
  const auto session = anyOne(random);
  return session && router_->release(session) ? session : nullptr;
}

void RaceRouter::killOne(Random& random) {
  const auto session = takeOne(random);  // the connection goes with it
  if (session) killed_.fetch_add(1);
}

void RaceRouter::endOne(Random& random) {
  if (const auto session = takeOne(random)) session->connection->invalidate();
}

void RaceRouter::deliver(Random& random) {
  if (const auto session = anyOne(random)) stress::deliver(*session, 2);
}

void RaceRouter::settleOne(Random& random) {
  StartReply reply;
  {
    const std::lock_guard lock(mutex_);
    if (held_.empty()) return;
    std::swap(held_[random() % held_.size()], held_.back());
    reply = std::move(held_.back());
    held_.pop_back();
  }
  const std::uint64_t drawn = random() % 4;
  if (drawn == 0) return;  // dropped
  reply(drawn == 1 ? refusal(random()) : nullptr);
}

void RaceRouter::settleAll() {
  std::vector<StartReply> replies;
  {
    const std::lock_guard lock(mutex_);
    replies.swap(held_);
  }
  for (const StartReply& reply : replies) reply(nullptr);
}

void RaceRouter::deliverToAll(std::uint32_t reportID) {
  for (const auto& session : router_->sessions()) stress::deliver(*session, reportID);
}

std::size_t RaceRouter::routing() const {
  const TestRouter::Sessions all = router_->sessions();
  return static_cast<std::size_t>(
      std::ranges::count_if(all, [](const auto& session) { return session->isRouting.load(); }));
}

}  // namespace stress
