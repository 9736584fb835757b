// SPDX-License-Identifier: Apache-2.0

// What a session does with the authority's answers. What the clients receive, in order:
//
//   yes                             started; the reports.
//   yes, for some reports           started; these reports, with their values.
//   no                              refused -536870174: the reason. Nothing else.
//   no, as the device is gone       refused -536870208: the reason.
//   no answer yet                   nothing. Other clients, also of that device, are served.
//   a stop, a start or an end       as for a request that waits; the question is withdrawn, and a
//     meanwhile                     late answer changes nothing.
//   revoked while routing           what was sent before, nothing after; invalidated. The device is
//                                   free for others.
//   revoked while waiting           refused -536870174: the reason.
//     for a place
//
// A permit is held while the request waits or is routed, and dropped at a refusal, a stop, another
// start and the end of the connection.
#include <map>
#include <optional>

#include "RouterFixture.h"

namespace {

using router::RoutingAnswer;
using routertest::Client;
using routertest::Lines;
using testing::ElementsAre;

constexpr const char* kForever = "E: 0.0 2 07 01\nE: 0.01 2 07 02\n";
constexpr const char* kSlow = "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n";
constexpr const char* kStopped =
    "refused -536870165 the start request was given up: a stop request came";

/// Records each question and lets the test answer it, from the test's thread.
class ScriptedAuthority final : public router::RoutingAuthority,
                                public std::enable_shared_from_this<ScriptedAuthority> {
 public:
  struct Question {
    std::uint64_t device = 0;
    router::DeviceMode mode{};
    router::RoutingCaller::Decided decided;
    router::RoutingCaller::Revoked revoked;
  };

  std::shared_ptr<router::RoutingCaller> callerOf(const platform::NSXPCConnection&) override {
    if (refusesConnections) return nullptr;
    return std::make_shared<Caller>(shared_from_this());
  }

  std::optional<router::Classification> classOf(const router::DeviceDescription&) const override {
    return std::nullopt;
  }

  /// The `number`th question, from 1, once it has been asked.
  Question question(std::size_t number) {
    std::unique_lock lock(mutex_);
    const bool came =
        changed_.wait_for(lock, routertest::kPatience, [&] { return questions_.size() >= number; });
    EXPECT_TRUE(came) << "question " << number << " was not asked";
    return came ? questions_[number - 1] : Question();
  }
  void allow(std::size_t number) { question(number).decided({true, {}, router::allReports()}); }
  void awaitPermits(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, routertest::kPatience, [&] { return permits_ == count; }))
        << permits_ << " permits are held";
  }

  std::size_t beginnings() {
    const std::lock_guard lock(mutex_);
    return beginnings_;
  }

  bool refusesConnections = false;
  /// Given at once, inside the question.
  std::optional<RoutingAnswer> answer;

 private:
  class Permit final : public router::RoutingPermit {
   public:
    explicit Permit(std::shared_ptr<ScriptedAuthority> authority)
        : authority_(std::move(authority)) {
      authority_->count(1);
    }
    Permit(const Permit&) = delete;
    Permit& operator=(const Permit&) = delete;
    ~Permit() override { authority_->count(-1); }
    void noteBeginning() override {
      const std::lock_guard lock(authority_->mutex_);
      ++authority_->beginnings_;
    }

   private:
    const std::shared_ptr<ScriptedAuthority> authority_;
  };

  class Caller final : public router::RoutingCaller {
   public:
    explicit Caller(std::shared_ptr<ScriptedAuthority> authority)
        : authority_(std::move(authority)) {}
    std::unique_ptr<router::RoutingPermit> ask(const router::RoutingRequest& request,
                                               Decided decided, Revoked revoked) override {
      auto permit = std::make_unique<Permit>(authority_);
      authority_->add({request.device.registryEntryID, request.mode, decided, std::move(revoked)});
      if (authority_->answer) decided(*authority_->answer);
      return permit;
    }
    std::unique_ptr<router::RoutingPermit> askToEnd(std::uint64_t, Decided) override {
      return nullptr;
    }
    [[nodiscard]] std::string program() const override { return {}; }
    [[nodiscard]] std::string unit() const override { return {}; }

   private:
    const std::shared_ptr<ScriptedAuthority> authority_;
  };

  void add(Question question) {
    const std::lock_guard lock(mutex_);
    questions_.push_back(std::move(question));
    changed_.notify_all();
  }
  void count(int change) {
    const std::lock_guard lock(mutex_);
    permits_ += static_cast<std::size_t>(change);
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Question> questions_;
  std::size_t permits_ = 0;
  std::size_t beginnings_ = 0;
};

class RoutingPermission : public routertest::RouterFixture {
 protected:
  RoutingPermission() { authority_ = asked_; }
  void startPatientRouter() {
    router::RouterLimits limits;
    limits.handoverGrace = std::chrono::hours(1);
    startRouter(std::chrono::hours(1), limits);
  }
  [[nodiscard]] bool logHas(const std::string& part) const {
    const Lines lines = routerLog_->lines();
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
  }

  const std::shared_ptr<ScriptedAuthority> asked_ = std::make_shared<ScriptedAuthority>();
};

TEST_F(RoutingPermission, AYesStartsTheRouting) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  Client client;
  client.start(id, 1);
  const auto question = asked_->question(1);
  EXPECT_EQ(question.device, id);
  EXPECT_EQ(question.mode, router::DeviceMode::Exclusive);
  EXPECT_THAT(client.log->lines(), ElementsAre());
  asked_->allow(1);
  EXPECT_THAT(client.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
  asked_->awaitPermits(1);
  client.stop();
  asked_->awaitPermits(0);
  EXPECT_EQ(asked_->beginnings(), 1U);
}

TEST_F(RoutingPermission, AYesMayComeWithinTheQuestion) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  asked_->answer = RoutingAnswer{true, {}, router::allReports()};
  startRouter();
  Client client;
  client.start(id);
  EXPECT_THAT(client.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
  asked_->awaitPermits(1);
  client.leave();
  asked_->awaitPermits(0);
}

TEST_F(RoutingPermission, ANoIsTheAnswerWithItsReason) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  Client client;
  client.start(id);
  asked_->question(1).decided({false, "nobody may", router::allReports()});
  EXPECT_THAT(client.log->await(1), ElementsAre("refused -536870174 nobody may"));
  asked_->awaitPermits(0);
  routerLog_->awaitLine("cannot route");
  // It holds no place: another client gets the device for itself.
  Client other;
  other.start(id, 1);
  asked_->allow(2);
  EXPECT_EQ(other.log->await(1).front(), "started");
}

TEST_F(RoutingPermission, ADeviceThatHasGoneIsNobodysNo) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  Client client;
  client.start(id);
  asked_->question(1).decided({.reason = "the device has gone away", .isGone = true});
  EXPECT_THAT(client.log->await(1), ElementsAre("refused -536870208 the device has gone away"));
  asked_->awaitPermits(0);
}

TEST_F(RoutingPermission, IsLimitedToTheReportsThatItCovers) {
  const std::string text =
      "R: 29 05 01 09 05 a1 01 85 01 75 08 95 01 09 30 81 02 85 02 09 31 81 02 85 03 09 32 81 02 "
      "c0\n"
      "N: Three\nI: 3 0001 0002\nE: 0.0 2 01 11\nE: 0.0 2 02 22\nE: 0.0 2 03 33\nE: 0.0 2 02 44\n"
      "E: 100000.0 2 01 55\n";
  const std::uint64_t id = addDevice("three", text, "1");
  startRouter();
  Client client;
  client.start(id);
  router::ReportIDs covered;
  covered.set(2);
  asked_->question(1).decided({true, {}, covered});
  EXPECT_THAT(client.log->await(5), ElementsAre("started", "data 2 02 22", "values 1/49=34",
                                                "data 2 02 44", "values 1/49=68"));
  // A client that may have everything gets everything meanwhile.
  Client other;
  other.start(id);
  asked_->allow(2);
  EXPECT_EQ(other.log->await(1).front(), "started");
}

TEST_F(RoutingPermission, AQuestionKeepsNobodyElseWaiting) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startPatientRouter();
  Client asking;
  asking.start(id);
  asked_->question(1);
  Client other;
  other.start(id, 1);
  asked_->allow(2);
  EXPECT_EQ(other.log->await(3)[1], "data 7 07 01");
  EXPECT_THAT(asking.log->lines(), ElementsAre());
  // The answer does not give it the place that it could not have had before.
  asked_->allow(1);
  other.stop();
  EXPECT_EQ(asking.log->await(1).front(), "started");
}

TEST_F(RoutingPermission, AStopWithdrawsTheQuestion) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  Client client;
  client.start(id);
  const auto question = asked_->question(1);
  client.stop();
  EXPECT_THAT(client.log->await(1), ElementsAre(kStopped));
  asked_->awaitPermits(0);
  question.decided({true, {}, router::allReports()});
  question.revoked("too late");
  client.start(id);
  asked_->allow(2);
  EXPECT_THAT(client.log->await(4),
              ElementsAre(kStopped, "started", "data 7 07 01", "values 9/1=1 9/2=0"));
}

TEST_F(RoutingPermission, AnotherStartWithdrawsTheQuestion) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  Client client;
  client.start(id);
  const auto first = asked_->question(1);
  client.start(id);
  asked_->question(2);
  first.decided({true, {}, router::allReports()});
  first.decided({false, "no", router::allReports()});
  asked_->awaitPermits(1);
  EXPECT_THAT(client.log->await(1),
              ElementsAre("refused -536870165 the start request was given up: another start "
                          "request came"));
  asked_->allow(2);
  EXPECT_EQ(client.log->await(2)[1], "started");
}

TEST_F(RoutingPermission, TheEndOfTheConnectionWithdrawsTheQuestion) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouter();
  {
    Client client;
    client.start(id);
    asked_->question(1);
  }
  asked_->awaitPermits(0);
  asked_->allow(1);
  asked_->question(1).revoked("too late");
  Client other;
  other.start(id, 1);
  asked_->allow(2);
  EXPECT_EQ(other.log->await(1).front(), "started");
}

TEST_F(RoutingPermission, ARevocationEndsTheDelivery) {
  const std::uint64_t id = addDevice("endless", kForever, "1", true);
  startRouter();
  Client client;
  client.start(id, 1);
  asked_->allow(1);
  client.log->await(5);
  asked_->question(1).revoked("the screen is locked");
  client.log->awaitLast("invalidated");
  asked_->awaitPermits(0);
  routerLog_->awaitLine("no longer routes");
  EXPECT_TRUE(logHas("the screen is locked"));
  const std::size_t count = client.log->count();
  Client other;
  other.start(id, 1);
  asked_->allow(2);
  other.log->await(5);
  EXPECT_EQ(client.log->count(), count) << "nothing came later";
}

TEST_F(RoutingPermission, ARevocationForAnEarlierStartChangesNothing) {
  const std::uint64_t id = addDevice("endless", kForever, "1", true);
  startRouter();
  Client client;
  client.start(id);
  const auto first = asked_->question(1);
  asked_->allow(1);
  client.log->await(3);
  client.start(id);
  asked_->allow(2);
  asked_->awaitPermits(1);
  first.revoked("too late");
  client.log->await(client.log->count() + 10);
  EXPECT_FALSE(logHas("no longer routes"));
}

TEST_F(RoutingPermission, ARevocationWhileWaitingForAPlaceRefuses) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startPatientRouter();
  Client owner;
  owner.start(id, 1);
  asked_->allow(1);
  owner.log->await(1);
  Client waiting;
  waiting.start(id);
  asked_->allow(2);
  asked_->question(2).revoked("logged out");
  EXPECT_THAT(waiting.log->await(1), ElementsAre("refused -536870174 logged out"));
  asked_->awaitPermits(1);
  EXPECT_EQ(asked_->beginnings(), 1U) << "of the owner";
  owner.stop();
  Client next;
  next.start(id, 1);
  asked_->allow(3);
  EXPECT_EQ(next.log->await(1).front(), "started");
}

TEST_F(RoutingPermission, ACallerThatCannotBeIdentifiedIsRefused) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  asked_->refusesConnections = true;
  startRouter();
  Client client;
  client.start(id);
  routerLog_->awaitLine("refused: process");
  client.log->await(1);
  EXPECT_NE(client.log->lines().front(), "started");
}

}  // namespace
