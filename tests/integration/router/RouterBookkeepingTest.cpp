// SPDX-License-Identifier: Apache-2.0

// What the router remembers about its clients, and how it reports it: in its log, in its status and
// to those that come again.
#include <cinttypes>
#include <cstdio>
#include <set>

#include "RouterFixture.h"
#include "tests/support/OtherUser.h"

namespace {

using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using routertest::Client;
using routertest::kThreeReports;
using routertest::Lines;
using testing::ElementsAre;
using testing::HasSubstr;

class RouterBookkeeping : public routertest::RouterFixture {};

TEST_F(RouterBookkeeping, WhoOnlyConnectsIsInTheStatusToo) {
  startRouter();
  Client client;
  client.stop();  // nothing to stop, but there is a connection
  const auto status =
      awaitStatus([](const router::RouterStatus& s) { return s.sessions.size() == 1; });
  EXPECT_EQ(status.sessions[0].pid, ::getpid());
  EXPECT_EQ(status.sessions[0].device, std::nullopt);
  EXPECT_EQ(status.sessions[0].delivered, 0U);
}

TEST_F(RouterBookkeeping, AllUsersTogetherHaveSoManyConnectionsAtMost) {
  router::RouterLimits limits;
  limits.sessions = 1;
  startRouter(std::chrono::hours(1), limits);
  Client first;
  first.start(0x42);
  first.log->await(1);
  Client second;
  second.start(0x42);
  second.log->awaitLine("invalidated");
  routerLog_->awaitLine("refused: user " + std::to_string(::geteuid()) +
                        " has more than 1 connections");
}

TEST_F(RouterBookkeeping, SessionsAreCountedFromOneAndTheLogTellsTheirStory) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  const auto who = [](int number) {
    return "session " + std::to_string(number) + " (process " + std::to_string(::getpid()) +
           ", user " + std::to_string(::geteuid()) + ")";
  };
  {
    Client client;
    client.start(id, 1);
    client.log->await(3);
    client.stop();
    client.start(id);
    client.log->await(6);
  }
  routerLog_->awaitLine("has ended");
  Client second;
  second.start(0x42);
  second.log->await(1);
  const std::string device = platform::stringWithFormat("routes device 0x%llx (Mouse)", id);
  const Lines lines = routerLog_->lines();
  ASSERT_EQ(lines.size(), 8U);
  EXPECT_THAT(lines[0], testing::EndsWith(" started: root " + directory_.string() + ", 1 devices"));
  EXPECT_THAT(
      Lines(lines.begin() + 1, lines.begin() + 7),
      ElementsAre(who(1) + " begins", who(1) + ": " + device + " exclusively", who(1) + ": stops",
                  who(1) + ": " + device, who(1) + ": has ended", who(2) + " begins"));
  EXPECT_THAT(lines[7], HasSubstr(who(2) + ": cannot route: "));
  EXPECT_THAT(lines[7], HasSubstr("no device has the registry entry ID 0x42"));
}

TEST_F(RouterBookkeeping, StoppingSaysFarewellToTheLogToo) {
  startRouter();
  router_->stop();
  EXPECT_EQ(routerLog_->lines().back(), "router ends");
  router_->stop();
  router_.reset();
  const Lines lines = routerLog_->lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "router ends"), 1);
}

TEST_F(RouterBookkeeping, OneThatNeverServedEndsInSilence) {
  router::RouterOptions options;
  options.log = [log = routerLog_](std::string_view line) { log->add(std::string(line)); };
  router_ = std::make_unique<router::Router>(
      root(), platform::NSXPCListener::initWithListeningDescriptor(listen()), options);
  router_->stop();
  router_.reset();
  EXPECT_EQ(routerLog_->lines(), Lines());
}

TEST_F(RouterBookkeeping, BeingIdleIsLoggedOnceAndTheStatusGoesOnUntilTheStop) {
  startRouter(std::chrono::milliseconds(1));
  routerLog_->awaitLine("nobody is connected");
  EXPECT_TRUE(awaitStatus([](const router::RouterStatus& s) { return s.isRunning; }).isRunning);
  Client refused;
  refused.start(0x42);
  refused.log->awaitLine("invalidated");
  router_->stop();
  const Lines lines = routerLog_->lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "nobody is connected"), 1);
  EXPECT_EQ(lines.size(), 3U);
}

TEST_F(RouterBookkeeping, TheEndOfARecordingIsToldToItsOwnClientAboutItsOwnDevice) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  const std::uint64_t other = addDevice("other", "E: 0.0 2 07 01\n");
  startRouter();
  for (const std::uint64_t device : {id, other}) {
    Client client;
    client.start(device);
    client.log->awaitLine("invalidated");
  }
  Client again;
  again.start(other);
  again.start(id);
  EXPECT_THAT(again.log->await(2), testing::Each(HasSubstr("has been played to its end")));
}

TEST_F(RouterBookkeeping, TheEndOfARecordingIsForgottenAfterAWhile) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  router::RouterLimits limits;
  limits.endedRoutingLifetime = std::chrono::seconds(0);
  startRouter(std::chrono::hours(1), limits);
  for (int i = 0; i < 2; ++i) {
    Client client;
    client.start(id);
    EXPECT_EQ(client.log->await(1)[0], "started");
    client.log->awaitLine("invalidated");
  }
}

TEST_F(RouterBookkeeping, OfTheEndsOfRecordingsTheLatestAreRemembered) {
  const std::vector<std::uint64_t> devices = addMice(3);
  router::RouterLimits limits;
  limits.sessions = 2;
  startRouter(std::chrono::hours(1), limits);
  for (const std::uint64_t device : devices) {
    Client client;
    client.start(device);
    client.log->awaitLine("invalidated");
    awaitStatus([](const router::RouterStatus& s) { return s.sessions.empty(); });
  }
  Client again;
  again.start(devices[2]);
  again.start(devices[1]);
  again.start(devices[0]);
  const Lines lines = again.log->await(3);
  EXPECT_THAT(lines[0], HasSubstr("has been played to its end"));
  EXPECT_THAT(lines[1], HasSubstr("has been played to its end"));
  EXPECT_EQ(lines[2], "started");
}

TEST_F(RouterBookkeeping, AStatusThatCannotBeWrittenIsLoggedOnceUntilItCanAgain) {
  const auto inTheWay = directory_ / "var";
  const auto failures = [this] {
    const Lines lines = routerLog_->lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.starts_with("cannot write the status file: ");
    });
  };
  const auto visit = [] {
    Client client;
    client.start(0x42);
    client.log->await(1);
  };
  std::ofstream(inTheWay) << "in the way";
  startRouter();
  for (int i = 0; i < 3; ++i) visit();
  routerLog_->awaitLine("cannot write the status file: ");
  std::filesystem::remove(inTheWay);
  Client client;
  client.stop();
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.size() == 1; });
  EXPECT_EQ(failures(), 1);
  std::filesystem::remove_all(inTheWay);
  std::ofstream(inTheWay) << "in the way";
  for (int i = 0; i < 1000 && failures() < 2; ++i) visit();
  router_->stop();
  EXPECT_EQ(failures(), 2);
}

TEST_F(RouterBookkeeping, AProblemThatWasSolvedAndComesBackIsLoggedAgain) {
  const auto file = directory_ / "etc/hideventrouter/broken.plist";
  startRouter();
  Client client;
  const auto ask = [&] {
    const std::size_t answers = client.log->count() + 1;
    client.start(0x42);
    client.log->await(answers);
  };
  for (int i = 0; i < 2; ++i) {
    testsupport::writeFile(file, "nonsense");
    ask();
    ask();
    std::filesystem::remove(file);
    ask();
  }
  const Lines lines = routerLog_->lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "ignored: " + file.string() + ": is not a property list with a dictionary"),
            2);
}

TEST_F(RouterBookkeeping, LinesAboutASessionThatWereLeftOutAreToldWithItsNextLine) {
  router::RouterLimits limits;
  limits.logLinesPerSession = {2, 20};
  startRouter(std::chrono::hours(1), limits);
  Client client;
  for (std::size_t i = 1; i < 100'000; ++i) {
    const Lines lines = routerLog_->lines();
    if (std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
          return line.find(" lines about it were left out") != std::string::npos;
        }))
      break;
    client.start(0x42);
    client.log->await(i);
  }
  const Lines lines = routerLog_->lines();
  EXPECT_THAT(lines, testing::Contains(HasSubstr("lines about it were left out")));
  EXPECT_THAT(lines, testing::Not(testing::Contains(HasSubstr(": 0 lines about"))));
  EXPECT_THAT(lines, testing::Not(testing::Contains(HasSubstr("has ended"))));
}

TEST_F(RouterBookkeeping, ClassesOfAnyKindMayStandInBothDictionaries) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  startRouter();
  Client client;
  const auto any = [](std::uint64_t key) {
    return NSDictionary::dictionaryWithEntries(
        {{NSNumber::numberWithUnsignedLongLong(key),
          platform::NSArray::arrayWithObjects(
              {platform::NSURL::fileURLWithPath(str("/a")),
               platform::KQIOObject::objectWithRegistryEntryID_name(1, nullptr)})}});
  };
  client.startWith(id, any(1 << 16 | 0x30), any(1));
  EXPECT_EQ(client.log->await(1)[0], "started");
}

/// How the connection of a silent client ends.
std::string endOfConnectionTo(const std::string& path) {
  const int socket = platform::connectUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC);
  if (socket < 0) return "not connected";
  const timeval patience{routertest::kPatience.count(), 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  std::array<char, 256> farewell{};
  ssize_t count = 0;
  do count = ::read(socket, farewell.data(), farewell.size());
  while (count > 0);
  return count == 0 ? "ended" : "still there";
}

TEST_F(RouterBookkeeping, AnotherUsersConnectionIsRefused) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can act as another user";
  startRouter();
  const std::string path = directory_ / "router.sock";
  ASSERT_EQ(::chmod(directory_.c_str(), 0711), 0);
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  EXPECT_EQ(testsupport::asUser(testsupport::kOtherUser, [&] { return endOfConnectionTo(path); }),
            "ended");
  routerLog_->awaitLine("refused: process ");
  EXPECT_THAT(routerLog_->lines().back(),
              testing::EndsWith(" of user " + std::to_string(testsupport::kOtherUser)));
}

TEST_F(RouterBookkeeping, DevicesInUseAreKeptHoweverManyThereAre) {
  const std::string slow = "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n";
  const std::uint64_t id = addDevice("one", slow, "1");
  const std::uint64_t other = addDevice("two", slow, "1");
  router::RouterLimits limits;
  limits.devices = 1;
  startRouter(std::chrono::hours(1), limits);
  Client owner;
  owner.start(id, 1);
  owner.log->awaitLine("started");
  Client second;
  second.start(other);
  second.log->awaitLine("started");
  Client third;
  third.start(id);
  EXPECT_THAT(third.log->await(1)[0], HasSubstr("is in use by another client"));
}

TEST_F(RouterBookkeeping, ADeviceThatNobodyUsesMakesRoomForTheNext) {
  const std::string slow = "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n";
  const std::uint64_t devices[] = {addDevice("one", slow, "1"), addDevice("two", slow, "1"),
                                   addDevice("three", slow, "1")};
  router::RouterLimits limits;
  limits.devices = 1;
  startRouter(std::chrono::hours(1), limits);
  Client client;
  std::set<long> holders;  // of the log: this test, the router and each device that is kept
  for (const std::uint64_t id : devices) {
    const std::size_t lines = client.log->count() + 3;
    client.start(id);
    client.log->await(lines);
    holders.insert(routerLog_.use_count());
  }
  EXPECT_EQ(holders.size(), 1U);
}

TEST_F(RouterBookkeeping, StoppingEndsAWaitForATurn) {
  router::RouterLimits limits;
  limits.startsPerUser = {1, 0.001};
  limits.startTimeout = std::chrono::hours(1);
  startRouter(std::chrono::hours(1), limits);
  Client client;
  client.start(0x42);
  client.log->await(1);
  client.start(0x42);  // its turn is a quarter of an hour away
  router_->stop();
  client.log->awaitLine("invalidated");
  EXPECT_THAT(routerLog_->lines(),
              testing::Not(testing::Contains(HasSubstr("did not end in time"))));
}

TEST_F(RouterBookkeeping, ItIsIdleOnlyAfterTheLastHasLeft) {
  constexpr std::chrono::seconds kIdle{2};
  startRouter(kIdle);
  auto client = std::make_unique<Client>();
  client->start(0x42);
  client->log->await(1);
  const auto left = std::chrono::steady_clock::now();
  client.reset();
  pollfd idle{router_->idleDescriptor(), POLLIN, 0};
  ASSERT_EQ(::poll(&idle, 1, 30'000), 1);
  EXPECT_GE(std::chrono::steady_clock::now(), left + kIdle)
      << "it had not been idle for long enough";
}

struct Loss {
  std::uint64_t more = 0;
  std::uint64_t inAll = 0;
};

std::vector<Loss> lossesIn(const Lines& lines) {
  std::vector<Loss> losses;
  for (const std::string& line : lines) {
    const std::size_t numbers = line.find(" is too slow: ");
    Loss loss;
    if (line.starts_with("session 1 ") && numbers != std::string::npos &&
        std::sscanf(line.c_str() + numbers,
                    " is too slow: %" SCNu64 " more reports lost, %" SCNu64 " in all", &loss.more,
                    &loss.inAll) == 2)
      losses.push_back(loss);
  }
  return losses;
}

TEST_F(RouterBookkeeping, LossesAreAddedUpAndToldOnceASecond) {
  std::string text = "R: 2 05 01\nE: 0.0 1 5a\n";
  for (int i = 0; i < 20; ++i) {
    text += "E: 0.000001 32768";
    for (int b = 0; b < 32768; ++b) text += " 5a";
    text += "\n";
  }
  const std::uint64_t id = addDevice("large", text, "1000", true);
  router::RouterLimits limits;
  limits.backlogPerClient = 1 << 20;
  const auto begin = std::chrono::steady_clock::now();
  startRouter(std::chrono::hours(1), limits);
  Client slow;
  slow.receiver->beBrief();
  slow.receiver->hold();
  slow.start(id);
  awaitStatus([&](const router::RouterStatus& s) {
    return lossesIn(routerLog_->lines()).size() >= 2 && s.sessions.size() == 1 &&
           s.sessions[0].lost == s.lost && s.lost > 0;
  });
  const auto losses = lossesIn(routerLog_->lines());
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(static_cast<double>(losses.size()), passed.count() + 1);
  std::uint64_t sum = 0;
  for (const Loss& loss : losses) {
    EXPECT_GT(loss.more, 0U);
    sum += loss.more;
    EXPECT_EQ(loss.inAll, sum);
  }
}

}  // namespace
