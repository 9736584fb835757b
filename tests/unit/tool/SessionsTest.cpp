// SPDX-License-Identifier: Apache-2.0

// wlhid sessions, and what wlhid status and wlhid devices say on the system's own root.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "router/RouterStatus.h"
#include "tests/unit/tool/SystemVerbTest.h"

namespace tool {
namespace {

using router::SessionStatus;
using testing::EndsWith;
using testing::HasSubstr;

const SessionStatus kPen{5, 4000000, 0x1f, "A Pen", true, 1, 2, 12, "/usr/bin/pen", "pen.scope"};
const SessionStatus kIdle{6, 4000001, std::nullopt, "", false, 0, 0, 345};
constexpr const char* kTable =
    "SESSION  USER     PROCESS  PROGRAM       ROUTES\n"
    "12       4000000  5        /usr/bin/pen  0x1f A Pen, exclusively\n"
    "345      4000001  6        ?             nothing\n";

router::RouterStatus statusWith(std::vector<SessionStatus> sessions) {
  router::RouterStatus status;
  status.pid = 77;
  status.version = "1.0";
  status.lost = 2;
  status.sessions = std::move(sessions);
  return status;
}

class SessionsTest : public VerbTest {
 protected:
  void runRouter(std::vector<SessionStatus> sessions) {
    std::filesystem::create_directories(router::routerStatusFile(root_).parent_path());
    file_.emplace(root_);
    file_->write(statusWith(std::move(sessions)));
  }
  std::optional<router::RouterStatusFile> file_;
};

TEST_F(SessionsTest, OfARouterThatDoesNotRunThereAreNone) {
  const Outcome outcome = run(addSessionsVerb, {"sessions"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "No sessions.\n");
  EXPECT_EQ(run(addSessionsVerb, {"sessions", "--json"}).out, "[]\n");
}

TEST_F(SessionsTest, OnAUsersRootTheyAreThoseOfTheStatusFile) {
  runRouter({kPen, kIdle});
  EXPECT_EQ(run(addSessionsVerb, {"sessions"}).out, kTable);
  const auto json = nlohmann::json::parse(run(addSessionsVerb, {"sessions", "--json"}).out);
  EXPECT_EQ(json[0], (nlohmann::json{{"session", 12},
                                     {"pid", 5},
                                     {"uid", 4000000},
                                     {"program", "/usr/bin/pen"},
                                     {"unit", "pen.scope"},
                                     {"registryEntryID", 0x1f},
                                     {"deviceName", "A Pen"},
                                     {"exclusive", true},
                                     {"delivered", 1},
                                     {"lost", 2}}));
  EXPECT_EQ(json[1]["program"], nullptr);
}

TEST_F(SessionsTest, OnlyANumberCanBeEnded) {
  EXPECT_TRUE(isRefusal(run(addSessionsVerb, {"sessions", "end", "x"}), 2,
                        "\"x\" is not a session's number"));
}

class SystemSessionsTest : public SystemVerbTest {};

TEST_F(SystemSessionsTest, TheRouterSaysWhichThereAre) {
  const auto router = routerThatSays(router::dictionaryOf(statusWith({kPen, kIdle})));
  EXPECT_EQ(run(addSessionsVerb, {"sessions"}).out, kTable);
}

TEST_F(SystemSessionsTest, OneIsEndedByTheRouter) {
  const auto router = routerThatReplies(nullptr);
  const Outcome outcome = run(addSessionsVerb, {"sessions", "end", "12"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "Session 12 has been ended.\n");
  const auto sent = platform_.trace().events(platform::TraceKind::Message);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].arguments, std::vector<std::string>{"12"});
}

TEST_F(SystemSessionsTest, ARefusalIsShown) {
  const auto router = routerThatReplies(platform::NSError::errorWithDomain_code_userInfo(
      platform::str("HIDEventRouterDomain"), -536870174,
      platform::NSDictionary::dictionaryWithEntries(
          {{platform::str(platform::NSLocalizedDescriptionKey),
            platform::str("session 12 is not one of yours")}})));
  EXPECT_TRUE(isRefusal(run(addSessionsVerb, {"sessions", "end", "12"}), 1,
                        "the session was not ended: session 12 is not one of yours "
                        "(HIDEventRouterDomain -536870174)"));
}

TEST_F(SystemSessionsTest, ARouterThatIsNotThereIsAComplaint) {
  const FakeRouter router(platform_, [](platform::ScriptedConnection& connection) {
    connection.deliverInvalidation();
  });
  const Outcome outcome = run(addSessionsVerb, {"sessions"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err,
              HasSubstr("the router cannot be asked: none answers at "
                        "com.quillmar.hideventrouter.control (see why: wlhid doctor)"));
}

TEST_F(SystemSessionsTest, StatusAsksTheRouter) {
  installVersion("1.0");
  const auto router = routerThatSays(router::dictionaryOf(statusWith({kPen})));
  const Outcome outcome = run(addStatusVerb, {"status"});
  EXPECT_THAT(outcome.out,
              EndsWith("Running       process 77, version 1.0, 1 session, 2 reports lost\n"
                       "              0x1f A Pen, exclusively: 1 report delivered, 2 lost, for "
                       "process 5\n"));
}

TEST_F(SystemSessionsTest, StatusGoesOnWithoutAnAnswer) {
  installVersion("1.0");
  const FakeRouter router(platform_, [](platform::ScriptedConnection& connection) {
    connection.deliverInvalidation();
  });
  const Outcome outcome = run(addStatusVerb, {"status"});
  EXPECT_THAT(outcome.err, HasSubstr("the router cannot be asked: "));
  EXPECT_THAT(outcome.out, HasSubstr("installed, version 1.0"));
}

TEST_F(SystemSessionsTest, StatusAsksNoRouterThatIsNotInstalled) {
  EXPECT_EQ(run(addStatusVerb, {"status"}).err, "");
  EXPECT_EQ(platform_.connectionCount(), 0U);
}

TEST_F(SystemSessionsTest, DevicesAreListedWithTheirClassAndWhatYouMay) {
  router::ListedDevice pen;
  pen.device.registryEntryID = 0x10008;
  pen.device.name = "Pen";
  pen.device.bus = 3;
  pen.deviceClass = router::DeviceClass::Ordinary;
  pen.reason = "no rule applies";
  pen.permission = router::DevicePermission::Yes;
  pen.explanation = "you may";
  {
    const auto router = routerWith({pedal(), pen});
    EXPECT_EQ(run(addDevicesVerb, {"devices", "-v"}).out,
              "REGISTRY ENTRY ID  NAME   BUS:VENDOR:PRODUCT  CLASS      MAY YOU ROUTE IT?\n"
              "0x10007            Pedal  0003:05f3:00ff      sensitive  an administrator has to "
              "agree each time\n"
              "  sensitive: keys: report 1\n"
              "0x10008            Pen    0003:0000:0000      ordinary   you may\n"
              "  ordinary: no rule applies\n");
  }
}

TEST_F(SystemSessionsTest, DevicesAreListedWithoutARouterToo) {
  const FakeRouter router(platform_, [](platform::ScriptedConnection& connection) {
    connection.deliverInvalidation();
  });
  const Outcome outcome = run(addDevicesVerb, {"devices"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, HasSubstr("the router cannot be asked: "));
  EXPECT_NE(outcome.out, "");
}

TEST_F(SystemSessionsTest, DevicesAsJson) {
  auto mixed = pedal();
  mixed.ordinaryReports = {2, 5};
  const auto router = routerWith({mixed});
  const auto json = nlohmann::json::parse(run(addDevicesVerb, {"devices", "--json"}).out);
  EXPECT_EQ(json[0]["registryEntryID"], 0x10007);
  EXPECT_EQ(json[0]["unique"], nullptr);
  EXPECT_EQ(json[0]["class"], "sensitive");
  EXPECT_EQ(json[0]["reason"], "keys: report 1");
  EXPECT_EQ(json[0]["ordinaryReports"], (nlohmann::json{2, 5}));
  EXPECT_EQ(json[0]["permission"], "administrator");
  EXPECT_EQ(json[0]["explanation"], "an administrator has to agree each time");
}

}  // namespace
}  // namespace tool
