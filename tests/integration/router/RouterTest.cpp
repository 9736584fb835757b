// SPDX-License-Identifier: Apache-2.0

// The router over real sockets: what a client sends, what it receives, and in which order.
#include "RouterFixture.h"
#include "router/ReportDecoder.h"
#include "tests/support/WholeRecording.h"

namespace {

using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using routertest::Client;
using routertest::kThreeReports;
using routertest::Lines;
using testing::ElementsAre;
using testing::HasSubstr;

class RouterTest : public routertest::RouterFixture {};

std::string manyLargeReports(std::size_t count, std::size_t bytes) {
  std::string text = "R: 2 05 01\n";
  for (std::size_t i = 0; i < count; ++i) {
    // All but the first have the same time: the recording has times, and they say "at once".
    text += (i == 0 ? "E: 0.0 " : "E: 0.000001 ") + std::to_string(bytes);
    for (std::size_t b = 0; b < bytes; ++b) text += " 5a";
    text += "\n";
  }
  return text;
}

TEST_F(RouterTest, PlaysARecordingToItsEndAndSaysFarewell) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  startRouter();
  Client client;
  client.start(id);
  EXPECT_THAT(client.log->await(7),
              ElementsAre("started", "data 7 07 02 ff", "values 9/1=0 9/2=1 1/48=-1",
                          "data 7 07 01", "values 9/1=1 9/2=0", "data 9 09 55", "invalidated"));
  // A client whose connection has ended asks again, and is told that this was all.
  Client again;
  again.start(id);
  EXPECT_THAT(again.log->await(1),
              ElementsAre("refused -536870169 the recording \"Mouse\" has been played to its end"));
  // The next request plays it from its beginning.
  again.start(id);
  EXPECT_THAT(again.log->await(4)[2], "data 7 07 02 ff");
}

TEST_F(RouterTest, ARecordingWithoutReportsEndsAtOnce) {
  const std::uint64_t id = addDevice("silent", "# no reports\n", "1", true);
  startRouter();
  Client client;
  client.start(id);
  client.log->awaitLine("invalidated");
  routerLog_->awaitLine("has been played to its end");
}

TEST_F(RouterTest, RefusesWhatItCannotRoute) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  startRouter();
  Client client;
  client.start(0x42);
  client.start(id, 2);
  client.start(id, 0, NSDictionary::dictionaryWithEntries({{str("left"), str("x")}}));
  EXPECT_THAT(client.log->await(3),
              ElementsAre("refused -536870208 no device has the registry entry ID 0x42",
                          "refused -536870206 unknown device mode 2",
                          "refused -536870206 the tag dictionary's key left is not a usage"));
  // None of these opened the device.
  client.start(id);
  EXPECT_EQ(client.log->await(5)[3], "started");
}

TEST_F(RouterTest, RequestsForAnUnknownDeviceReadNoRecording) {
  addDevice("long", "#" + std::string(200'000, 'x') + "\n" + kThreeReports);
  router::RouterLimits limits;
  limits.settling = std::chrono::milliseconds(0);
  startRouter(std::chrono::hours(1), limits);
  const int watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GE(::inotify_add_watch(watch, copyOf("long").c_str(), IN_OPEN), 0);
  Client client;
  for (int i = 0; i < 200; ++i) client.start(0x42);
  client.log->await(200);
  inotify_event event{};
  EXPECT_LT(::read(watch, &event, sizeof event), 0) << "it was opened";
  ::close(watch);
}

TEST_F(RouterTest, DevicesThatNobodyUsesAreNotKeptForEver) {
  const std::vector<std::uint64_t> devices = addMice(8);
  router::RouterLimits limits;
  limits.devices = 2;
  startRouter(std::chrono::hours(1), limits);
  for (const std::uint64_t id : devices) {
    Client client;
    client.start(id);
    client.log->awaitLine("invalidated");
  }
  // The log is held by this test, by the router and by each device that the router keeps: one more
  // than its limit if a session ends a moment later than its client sees.
  EXPECT_LE(routerLog_.use_count(), 2 + static_cast<long>(limits.devices) + 1);
}

TEST_F(RouterTest, OneClientCannotFillTheLog) {
  router::RouterLimits limits;
  limits.logLinesPerSession = {5, 0.001};
  startRouter(std::chrono::hours(1), limits);
  {
    Client client;
    for (int i = 0; i < 500; ++i) client.start(0x42);
    client.log->await(500);
  }
  routerLog_->awaitLine("has ended");
  const Lines lines = routerLog_->lines();
  EXPECT_LT(lines.size(), 20U);
  EXPECT_THAT(lines, testing::Contains(HasSubstr("495 lines about it were left out")));
}

TEST_F(RouterTest, AUsersClientsTogetherCannotFillTheLog) {
  router::RouterLimits limits;
  limits.logLinesPerUser = {10, 0.001};
  startRouter(std::chrono::hours(1), limits);
  for (int i = 0; i < 50; ++i) {
    Client client;
    client.start(0x42);
    client.log->await(1);
  }
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.empty(); });
  EXPECT_LT(routerLog_->count(), 20U);
}

TEST_F(RouterTest, WhatWasLeftOutOfTheLogIsToldThoughNobodyWritesAnyMore) {
  router::RouterLimits limits;
  limits.logLinesPerUser = {3, 2};
  startRouter(std::chrono::hours(1), limits);
  Client client;
  for (int i = 1; i <= 20; ++i) {
    client.start(0x42);
    client.log->await(static_cast<std::size_t>(i));
  }
  // If a later line of the user reports them, that line comes last.
  routerLog_->awaitLast(" lines about user ");
}

TEST_F(RouterTest, TooManyStartRequestsAreRefused) {
  router::RouterLimits limits;
  limits.startsPerUser = {3, 0.001};
  limits.startTimeout = std::chrono::milliseconds(0);
  startRouter(std::chrono::hours(1), limits);
  Client client;
  for (int i = 0; i < 5; ++i) client.start(0x42);
  const Lines lines = client.log->await(5);
  EXPECT_THAT(lines[2], HasSubstr("no device has the registry entry ID 0x42"));
  for (const std::size_t i : {3U, 4U}) {
    EXPECT_EQ(lines[i],
              "refused -536870187 too many start requests from this user; try again later");
  }
}

TEST_F(RouterTest, ARequestThatComesTooSoonWaitsForItsTurn) {
  router::RouterLimits limits;
  limits.startsPerUser = {1, 100};
  startRouter(std::chrono::hours(1), limits);
  Client client;
  for (std::size_t i = 1; i <= 20; ++i) {
    client.start(0x42);
    EXPECT_THAT(client.log->await(i).back(), HasSubstr("0x42"));
  }
}

TEST_F(RouterTest, AUserHasSoManyConnectionsAtMost) {
  router::RouterLimits limits;
  limits.sessionsPerUser = 2;
  startRouter(std::chrono::hours(1), limits);
  Client first;
  Client second;
  first.start(0x42);
  second.start(0x42);
  first.log->await(1);
  second.log->await(1);
  Client third;
  third.start(0x42);
  third.log->awaitLine("invalidated");
  routerLog_->awaitLine("has more than 2 connections");
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.size() == 2; });
  first.leave();
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.size() == 1; });
  Client fourth;
  fourth.start(0x42);
  EXPECT_THAT(fourth.log->await(1)[0], HasSubstr("0x42"));
}

TEST_F(RouterTest, ClientsThatDoNotReadAreBoundedTogether) {
  constexpr std::size_t kReport = 4096;
  const std::uint64_t flood = addDevice("flood", manyLargeReports(50, kReport), "1000", true);
  // Together less than the part of one client: it loses nothing, no matter when its turn comes.
  const std::uint64_t few = addDevice("few", manyLargeReports(5, kReport), "1000");
  router::RouterLimits limits;
  limits.sessionsPerUser = 5;
  limits.backlogPerUser = std::size_t{256} << 10;
  startRouter(std::chrono::hours(1), limits);
  std::vector<std::unique_ptr<Client>> slow;
  for (int i = 0; i < 4; ++i) {
    slow.push_back(std::make_unique<Client>());
    slow.back()->receiver->beBrief();
    slow.back()->receiver->hold();
    slow.back()->start(flood);
  }
  const auto status = awaitStatus([](const router::RouterStatus& s) {
    return std::count_if(s.sessions.begin(), s.sessions.end(),
                         [](const auto& each) { return each.lost > 100; }) == 4;
  });
  std::size_t delivered = 0;
  for (const auto& each : status.sessions) delivered += each.delivered * kReport;
  EXPECT_LT(delivered, limits.backlogPerClient) << "what each of them could have alone";
  Client other;
  other.receiver->beBrief();
  other.start(few);
  EXPECT_THAT(other.log->await(7),
              ElementsAre("started", "data", "data", "data", "data", "data", "invalidated"));
}

TEST_F(RouterTest, RecordingsBehindALinkAreNotPlayed) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  const auto recordings = copyOf("mouse").parent_path();
  std::filesystem::rename(recordings, directory_ / "elsewhere");
  std::filesystem::create_directory_symlink(directory_ / "elsewhere", recordings);
  startRouter();
  Client client;
  client.start(id);
  EXPECT_THAT(client.log->await(1)[0], HasSubstr("no device has the registry entry ID"));
  EXPECT_THAT(routerLog_->lines(),
              testing::Contains(HasSubstr("cannot open the directory recordings")));
}

TEST_F(RouterTest, ADevicePlaysOnWhenItIsRemoved) {
  const std::uint64_t id = addDevice("mouse", kThreeReports, "1", true);
  startRouter();
  Client client;
  client.start(id);
  client.log->await(3);
  EXPECT_TRUE(router::removeReplayDevice(root(), "mouse"));
  EXPECT_FALSE(std::filesystem::exists(copyOf("mouse")));
  client.log->await(20);
}

TEST_F(RouterTest, WhatIsWrongWithAConfigurationIsLoggedOnce) {
  addDevice("mouse", kThreeReports);
  std::filesystem::remove(copyOf("mouse"));
  startRouter();
  Client client;
  for (int i = 0; i < 20; ++i) client.start(0x42);
  client.log->await(20);
  const Lines lines = routerLog_->lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.starts_with("ignored: "); }),
            1);
}

TEST_F(RouterTest, ADeviceThatIsAddedLaterIsFound) {
  startRouter();
  Client client;
  client.start(0x42);
  client.log->await(1);
  client.start(addDevice("late", kThreeReports));
  EXPECT_EQ(client.log->await(2)[1], "started");
}

TEST_F(RouterTest, ARecordingThatCannotBePlayedIsAnsweredWithItsLine) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  std::ofstream(copyOf("mouse"), std::ios::app) << "E: 0.3 2 07\n";
  startRouter();
  Client client;
  client.start(id);
  EXPECT_THAT(client.log->await(1), ElementsAre("refused -536870198 " + copyOf("mouse").string() +
                                                ":7: 2 bytes are announced, 1 follow"));
}

TEST_F(RouterTest, NothingIsLostAtFullSpeed) {
  for (const char* name : {"qemu-usb-kbd", "qemu-usb-mouse", "qemu-usb-tablet"}) {
    SCOPED_TRACE(name);
    const char* source = ::getenv("WLHID_SOURCE_DIR");
    const auto path = std::filesystem::path(source == nullptr ? "." : source) / "recordings" /
                      (std::string(name) + ".hid");
    const test::WholeRecording recording = test::readRecording(path);
    router::ReportDecoder decoder(std::make_shared<const router::ReportDescriptor>(
        router::ReportDescriptor::parse(recording.header.reportDescriptor)));
    Lines expected = {"started"};
    for (std::size_t i = 0; i < recording.reports.size(); ++i) {
      std::string data = "data 0";
      for (const std::uint8_t byte : recording.reports[i])
        data += platform::stringWithFormat(" %02x", byte);
      std::string values = "values";
      for (const auto& v : decoder.decode(recording.reports[i])) {
        values += platform::stringWithFormat(" %u/%u=%lld", v.usagePage, v.usage, v.integerValue);
      }
      expected.push_back(data);
      expected.push_back(values);
    }
    expected.emplace_back("invalidated");
    const std::uint64_t id = addRecording(name, path, "max", false);
    startRouter();
    Client client;
    client.start(id);
    EXPECT_EQ(client.log->await(expected.size()), expected);
    router_.reset();
  }
}

TEST_F(RouterTest, AtFullSpeedASlowClientIsWaitedFor) {
  const std::uint64_t id = addDevice("large", manyLargeReports(200, 32768));
  startRouter();
  Client client;
  client.receiver->beBrief();
  client.receiver->hold();
  client.start(id);
  client.log->awaitLine("started");
  Client quick;
  quick.start(0x42);  // answered: the client that is refused does not hold up the router
  quick.log->await(1);
  client.receiver->release();
  EXPECT_EQ(client.log->await(202).size(), 202U);
  EXPECT_EQ(client.log->lines().back(), "invalidated");
}

TEST_F(RouterTest, AtItsOwnPaceADeviceLosesWhatASlowClientDoesNotTake) {
  const std::uint64_t id = addDevice("large", manyLargeReports(50, 32768), "1000", true);
  startRouter();
  Client slow;
  slow.receiver->beBrief();
  slow.receiver->hold();
  slow.start(id);
  const auto status = awaitStatus([](const router::RouterStatus& s) { return s.lost > 0; });
  ASSERT_EQ(status.sessions.size(), 1U);
  EXPECT_EQ(status.sessions[0].device, id);
  EXPECT_EQ(status.sessions[0].lost, status.lost);
  EXPECT_GT(status.sessions[0].delivered, 0U);
  routerLog_->awaitLine("is too slow: ");
  slow.leave();
  slow.receiver->release();
  // A loss outlives the session that had it.
  const auto after = awaitStatus([](const router::RouterStatus& s) { return s.sessions.empty(); });
  EXPECT_GE(after.lost, status.lost);
}

TEST_F(RouterTest, ATagDictionaryLimitsTheValues) {
  const std::uint64_t id = addDevice("mouse", kThreeReports);
  startRouter();
  Client client;
  client.start(id, 0,
               NSDictionary::dictionaryWithEntries(
                   {{NSNumber::numberWithUnsignedLongLong(1 << 16 | 0x30), str("x")},
                    {str("0x90002"), str("right")}}));
  EXPECT_THAT(client.log->await(7),
              ElementsAre("started", "data 7 07 02 ff", "values 9/2=1 1/48=-1", "data 7 07 01",
                          "values 9/2=0", "data 9 09 55", "invalidated"));
}

TEST_F(RouterTest, StopEndsTheInputAndStartBeginsAnew) {
  // The second report is far in the future.
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  Client client;
  client.start(id);
  client.log->await(3);
  client.stop();
  client.stop();
  client.start(id);
  const Lines once = {"started", "data 7 07 01", "values 9/1=1 9/2=0"};
  Lines twice = once;
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(client.log->await(6), twice);
}

TEST_F(RouterTest, ASecondStartReplacesTheFirst) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  const std::uint64_t other = addDevice("other", "E: 0.0 2 07 03\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  Client client;
  client.start(id, 1);
  client.start(id, 1);
  client.log->awaitLine("started");
  client.start(other);
  client.log->awaitLine("data 7 07 03");
  // The first device is free again.
  Client second;
  second.start(id, 1);
  EXPECT_THAT(second.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
  EXPECT_THAT(client.log->lines(), testing::Not(testing::Contains("interrupted")));
}

TEST_F(RouterTest, AnExclusiveDeviceIsOneClientsUntilItLeaves) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  Client owner;
  owner.start(id, 1);
  owner.log->await(3);
  Client other;
  other.start(id, 0);
  EXPECT_THAT(other.log->await(1),
              ElementsAre("refused -536870203 the device \"Mouse\" is in use by another client"));
  owner.leave();
  routerLog_->awaitLine("has ended");
  other.start(id, 0);
  EXPECT_EQ(other.log->await(4)[1], "started");
}

TEST_F(RouterTest, ClientsShareADeviceAndEachIsToldWhenItGoes) {
  const std::uint64_t id = addDevice("mouse", "E: 0.0 2 07 01\nE: 0.2 2 07 02\n", "1");
  startRouter();
  Client a;
  Client b;
  a.start(id);
  b.start(id);
  a.log->awaitLine("invalidated");
  b.log->awaitLine("invalidated");
  EXPECT_EQ(a.log->lines().front(), "started");
  EXPECT_EQ(b.log->lines().front(), "started");
}

TEST_F(RouterTest, ARepeatedDeviceGoesRound) {
  const std::uint64_t id = addDevice("round", "E: 0.0 2 07 01\nE: 0.001 2 07 02\n", "100", true);
  startRouter();
  Client client;
  client.start(id);
  const Lines lines = client.log->await(1 + 4 * 5);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(lines[1 + 4 * i], "data 7 07 01");
    EXPECT_EQ(lines[3 + 4 * i], "data 7 07 02");
  }
}

TEST_F(RouterTest, TheStatusTellsWhoRoutesWhat) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  const auto empty = awaitStatus([](const router::RouterStatus&) { return true; });
  EXPECT_EQ(empty.pid, ::getpid());
  EXPECT_FALSE(empty.version.empty());
  Client client;
  client.start(id, 1);
  const auto status = awaitStatus([](const router::RouterStatus& s) {
    return s.sessions.size() == 1 && s.sessions[0].device.has_value();
  });
  EXPECT_EQ(status.sessions[0].pid, ::getpid());
  EXPECT_EQ(status.sessions[0].uid, ::geteuid());
  EXPECT_EQ(status.sessions[0].device, id);
  EXPECT_EQ(status.sessions[0].deviceName, "Mouse");
  EXPECT_TRUE(status.sessions[0].exclusive);
  client.stop();
  awaitStatus([](const router::RouterStatus& s) {
    return s.sessions.size() == 1 && !s.sessions[0].device;
  });
  client.leave();
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.empty(); });
  router_->stop();
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
}

TEST_F(RouterTest, WhenItStopsItSaysFarewellToAll) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  startRouter();
  Client routing;
  Client idle;
  routing.start(id);
  routing.log->await(3);
  idle.start(0x42);
  idle.log->await(1);
  router_->stop();
  EXPECT_EQ(routing.log->await(4)[3], "invalidated");
  EXPECT_EQ(idle.log->await(2)[1], "invalidated");
  router_->stop();
}

TEST_F(RouterTest, IsIdleOnceNobodyHasBeenConnectedForAWhile) {
  startRouter(std::chrono::milliseconds(1));
  pollfd idle{router_->idleDescriptor(), POLLIN, 0};
  ASSERT_EQ(
      ::poll(&idle, 1, static_cast<int>(std::chrono::milliseconds(routertest::kPatience).count())),
      1);
  // From now on it refuses gracefully, so that a client tries again and reaches the next router.
  Client client;
  client.start(0x42);
  EXPECT_EQ(client.log->await(2).back(), "invalidated");
  EXPECT_THAT(client.log->lines().front(), HasSubstr("error 4099"));
}

TEST_F(RouterTest, ManyQuickStopsAndStartsSettle) {
  const std::uint64_t id = addDevice("round", "E: 0.0 2 07 01\nE: 0.001 2 07 02\n", "1000", true);
  startRouter();
  for (int i = 0; i < 200; ++i) {
    Client client;
    client.receiver->beBrief();
    client.start(id, i % 2);
    if (i % 3 == 0) client.log->awaitLine("started");
    if (i % 5 == 0) client.stop();
  }
  awaitStatus([](const router::RouterStatus& s) { return s.sessions.empty(); });
  Client last;
  last.receiver->beBrief();
  last.start(id, 1);
  EXPECT_EQ(last.log->await(2)[0], "started");
}

}  // namespace
