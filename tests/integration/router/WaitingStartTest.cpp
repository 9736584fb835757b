// SPDX-License-Identifier: Apache-2.0

// Start requests that wait, for a turn or for a place at a device in exclusive use, and what may
// happen meanwhile. What the clients receive, in order:
//
//   a stop comes              refused -536870165: a stop came. Nothing else; the log: "stops".
//   another start comes       refused -536870165: another start request came; then the answer to
//                             that one, and its reports. The log has only that one.
//   the connection ends       nothing. The log: "has ended".
//   the router stops          error 4099; invalidated. The session ends at once. If the owner's
//                             session ends first, started instead.
//   a place becomes free      started; the reports.
//   none becomes free in time refused -536870203: in use by another client.
//   two wait, one place       the one that came first: started; no effect on the other.
//   its turn comes            started or refused, as if it had come now.
//
// A client that gives up keeps neither a place nor a turn.
#include "RouterFixture.h"

namespace {

using routertest::Client;
using routertest::Lines;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSlow = "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n";
constexpr const char* kStopped =
    "refused -536870165 the start request was given up: a stop request came";
constexpr const char* kReplaced =
    "refused -536870165 the start request was given up: another start request came";

class WaitingStart : public routertest::RouterFixture {
 protected:
  /// A wait for a place or a turn takes longer than any test.
  static router::RouterLimits patient() {
    router::RouterLimits limits;
    limits.handoverGrace = std::chrono::hours(1);
    limits.startTimeout = std::chrono::hours(1);
    return limits;
  }
  /// One turn at once; the second one takes a quarter of an hour, and one request may wait for it.
  static router::RouterLimits oneTurn() {
    router::RouterLimits limits = patient();
    limits.startsPerUser = {1, 0.001};
    limits.startTimeout = std::chrono::seconds(1500);
    return limits;
  }
  void startRouterWith(const router::RouterLimits& limits) {
    startRouter(std::chrono::hours(1), limits);
  }
  static void takeAlone(Client& client, std::uint64_t device) {
    client.start(device, 1);
    client.log->await(3);
  }
  static void expectAPlace(Client& client, std::uint64_t device) {
    client.start(device, 1);
    EXPECT_THAT(client.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
  }
  void awaitSessions(std::size_t count) {
    awaitStatus([&](const router::RouterStatus& s) { return s.sessions.size() == count; });
  }
  [[nodiscard]] std::size_t linesWith(const std::string& part) const {
    const Lines lines = routerLog_->lines();
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(),
        [&](const std::string& line) { return line.find(part) != std::string::npos; }));
  }
};

TEST_F(WaitingStart, ForAPlaceIsGivenUpByAStop) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client waiting;
  waiting.start(id);
  waiting.stop();
  EXPECT_THAT(waiting.log->await(1), ElementsAre(kStopped));
  routerLog_->awaitLine("stops");
  EXPECT_EQ(linesWith("cannot route"), 0U);
  // It has the device neither now nor when it becomes free.
  owner.stop();
  Client next;
  expectAPlace(next, id);
  EXPECT_THAT(waiting.log->lines(), ElementsAre(kStopped));
}

TEST_F(WaitingStart, ForAPlaceIsGivenUpByAnotherStart) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  const std::uint64_t other = addDevice("other", "E: 0.0 2 07 03\nE: 100000.0 2 07 02\n", "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client waiting;
  waiting.start(id, 1);
  waiting.start(other);
  const Lines lines = {kReplaced, "started", "data 7 07 03", "values 9/1=1 9/2=1"};
  EXPECT_EQ(waiting.log->await(4), lines);
  owner.stop();
  Client next;
  expectAPlace(next, id);
  EXPECT_EQ(waiting.log->lines(), lines);
  EXPECT_EQ(linesWith("cannot route"), 0U) << "it is replaced quietly";
}

TEST_F(WaitingStart, ForAPlaceIsGivenUpAgainAndAgain) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client waiting;
  for (int i = 0; i < 5; ++i) waiting.start(id, 1);
  EXPECT_THAT(waiting.log->await(4), testing::Each(kReplaced));
  owner.leave();
  EXPECT_THAT(waiting.log->await(7)[4], "started");
  waiting.stop();
  Client next;
  expectAPlace(next, id);
}

TEST_F(WaitingStart, ForAPlaceEndsWithItsConnection) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client waiting;
  waiting.start(id, 1);
  waiting.leave();
  routerLog_->awaitLine("has ended");
  awaitSessions(1);
  owner.stop();
  Client next;
  expectAPlace(next, id);
  EXPECT_EQ(linesWith("routes device"), 2U);
}

TEST_F(WaitingStart, ForAPlaceEndsWithTheRouter) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client waiting;
  waiting.start(0x42);
  waiting.start(id, 1);
  waiting.log->await(1);
  router_->stop();
  EXPECT_EQ(linesWith("did not end in time"), 0U);
  waiting.log->awaitLine("invalidated");
  const Lines lines = waiting.log->lines();
  EXPECT_EQ(lines.back(), "invalidated");
  EXPECT_THAT(lines[1], testing::AnyOf("error 4099", "started"));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "error 4099") +
                std::count(lines.begin(), lines.end(), "started"),
            1)
      << "it is answered once";
}

TEST_F(WaitingStart, ForAPlaceHasItWhenTheOwnerStopsOrLeaves) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  for (const bool leaves : {false, true}) {
    Client owner;
    takeAlone(owner, id);
    Client waiting;
    waiting.start(id, 1);
    waiting.start(id, 1);
    waiting.log->awaitLine(kReplaced);
    leaves ? owner.leave() : owner.stop();
    EXPECT_THAT(waiting.log->await(4),
                ElementsAre(kReplaced, "started", "data 7 07 01", "values 9/1=1 9/2=0"));
    waiting.stop();
  }
}

TEST_F(WaitingStart, OfTwoForOnePlaceOneHasItAndTheOtherWaitsOn) {
  const std::uint64_t id = addDevice("slow", kSlow, "1");
  startRouterWith(patient());
  Client owner;
  takeAlone(owner, id);
  Client first;
  Client second;
  first.start(id, 1);
  second.start(id, 1);
  owner.stop();
  awaitStatus([](const router::RouterStatus& s) {
    return s.sessions.size() == 3 && (s.sessions[1].device || s.sessions[2].device);
  });
  Client& lucky = first.log->count() > 0 ? first : second;
  Client& other = &lucky == &first ? second : first;
  lucky.log->await(3);
  EXPECT_EQ(other.log->lines(), Lines());
  lucky.leave();
  EXPECT_THAT(other.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
}

TEST_F(WaitingStart, ForATurnIsGivenUpByAStopAndNeedsNoTurn) {
  startRouterWith(oneTurn());
  Client first;
  first.start(0x42);
  EXPECT_THAT(first.log->await(1)[0], HasSubstr("0x42"));
  for (int i = 0; i < 2; ++i) {
    Client waiting;
    waiting.start(0x42);
    waiting.stop();
    // If the previous request were still in the line, there would be no turn for this one.
    EXPECT_THAT(waiting.log->await(1), ElementsAre(kStopped));
  }
  EXPECT_EQ(linesWith("cannot route"), 1U);
}

TEST_F(WaitingStart, ForATurnIsGivenUpByAnotherStart) {
  startRouterWith(oneTurn());
  Client client;
  for (int i = 0; i < 4; ++i) client.start(0x42);
  client.stop();
  const Lines lines = client.log->await(4);
  EXPECT_THAT(lines[0], HasSubstr("0x42"));
  EXPECT_THAT(Lines(lines.begin() + 1, lines.end()), ElementsAre(kReplaced, kReplaced, kStopped));
}

TEST_F(WaitingStart, ForATurnEndsWithItsConnectionAndNeedsNoTurn) {
  startRouterWith(oneTurn());
  Client first;
  first.start(0x42);
  first.log->await(1);
  {
    Client waiting;
    waiting.start(0x42);
    waiting.leave();
    routerLog_->awaitLine("has ended");
  }
  Client next;
  next.start(0x42);
  next.stop();
  EXPECT_THAT(next.log->await(1), ElementsAre(kStopped));
}

TEST_F(WaitingStart, ForATurnEndsWithTheRouter) {
  startRouterWith(oneTurn());
  Client client;
  client.start(0x42);
  client.start(0x42);
  client.log->await(1);
  router_->stop();
  const Lines lines = client.log->await(3);
  EXPECT_THAT(Lines(lines.begin() + 1, lines.end()), ElementsAre("error 4099", "invalidated"));
  EXPECT_EQ(linesWith("did not end in time"), 0U);
}

TEST_F(WaitingStart, ForATurnIsAnsweredWhenItComes) {
  router::RouterLimits limits = patient();
  limits.startsPerUser = {1, 20};
  startRouterWith(limits);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 10; ++i) {
    clients.push_back(std::make_unique<Client>());
    clients.back()->start(0x42);
  }
  for (const auto& client : clients)
    EXPECT_THAT(client->log->await(1), ElementsAre(HasSubstr("0x42")));
}

TEST_F(WaitingStart, AStopWithNothingToStopAnswersNobody) {
  startRouterWith(patient());
  Client client;
  client.stop();
  client.start(0x42);
  client.stop();
  client.start(0x43);
  const Lines lines = client.log->await(2);
  EXPECT_THAT(lines, ElementsAre(HasSubstr("0x42"), HasSubstr("0x43")));
  EXPECT_EQ(linesWith("stops"), 0U);
}

}  // namespace
