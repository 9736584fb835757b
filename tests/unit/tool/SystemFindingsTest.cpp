// SPDX-License-Identifier: Apache-2.0

// What there is on the system's own root besides what every root has.
#include "tool/findings/SystemFindings.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "platform/services/ServiceEndpoints.h"
#include "router/RouterStatus.h"
#include "tests/support/OtherUser.h"
#include "tests/unit/tool/SystemVerbTest.h"
#include "tool/findings/Inventory.h"
#include "tool/report/ShownFindings.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;
using testing::HasSubstr;
using testing::StartsWith;

class SystemFindingsTest : public SystemVerbTest {
 protected:
  SystemFindingsTest() {
    fs::permissions(directory_.path(), fs::perms(0755));
    fs::permissions(root_.path(), fs::perms(0755));
  }
  void putUnit(const std::string& directory, const std::string& unit) const {
    fs::create_directories(root_.path() / directory);
    testsupport::writeFile(root_.path() / directory / unit, "");
  }
  void mask(const std::string& unit) const {
    fs::create_directories(root_.path() / "etc/systemd/system");
    fs::create_symlink("/dev/null", root_.path() / "etc/systemd/system" / unit);
  }
  [[nodiscard]] FileDescriptor listenAt(const std::string& service) const {
    const fs::path path = root_.endpoint(service);
    fs::create_directories(path.parent_path());
    FileDescriptor socket(platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 4, 0755));
    EXPECT_TRUE(socket) << path;
    return socket;
  }
  /// A router that tells its status, and then its devices.
  [[nodiscard]] std::unique_ptr<FakeRouter> routerThatTells(
      const std::vector<router::ListedDevice>& devices) {
    router::RouterStatus status;
    status.pid = 77;
    status.version = "1.0";
    return std::make_unique<FakeRouter>(platform_, [=](platform::ScriptedConnection& connection) {
      for (const Object& dictionary :
           {Object(router::dictionaryOf(status)), Object(router::dictionaryOf(devices))}) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (connection.pendingRequests() == 0) {
          std::this_thread::yield();
          if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "it was not asked";
            return;
          }
        }
        platform::XPCValues values;
        values.append(dictionary);
        values.append(Object());
        connection.deliverReply(values);
      }
    });
  }
  [[nodiscard]] SystemFindings findings(bool isInstalled = false) const {
    return takeSystemFindings(root_, isInstalled);
  }
};

TEST_F(SystemFindingsTest, AnEmptyRootHasNoSocketsAndNothingWrongWithItsPlaces) {
  const SystemFindings found = findings(/*isInstalled=*/true);
  EXPECT_TRUE(found.placeProblems.empty());
  ASSERT_EQ(found.routerSockets.size(), 3U);
  EXPECT_EQ(found.routerSockets[0].name, "wlhid-router.socket");
  EXPECT_EQ(found.routerSockets[0].endpoint.path,
            (root_.path() / "run/wlhid/com.quillmar.hideventrouter.sock").string());
  EXPECT_EQ(found.routerSockets[1].name, "wlhid-router-devices.socket");
  EXPECT_EQ(found.routerSockets[1].endpoint.path,
            (root_.path() / "run/wlhid/com.quillmar.hideventrouter.devices.sock").string());
  EXPECT_EQ(found.routerSockets[2].name, "wlhid-router-control.socket");
  EXPECT_EQ(found.routerSockets[2].endpoint.path,
            (root_.path() / "run/wlhid/com.quillmar.hideventrouter.control.sock").string());
  EXPECT_EQ(found.daemonSocket.name, "wlhid-jobd.socket");
  EXPECT_EQ(found.daemonSocket.endpoint.path, root_.controlEndpoint().string());
  EXPECT_FALSE(isOpen(found.daemonSocket.endpoint));
  EXPECT_FALSE(found.router.asked) << "there is nothing to connect to";
  EXPECT_EQ(found.authorities.busProblem,
            (root_.path() / "run/dbus/system_bus_socket").string() + ": No such file or directory");
}

TEST_F(SystemFindingsTest, ASocketThatIsNotTheSuperusersIsRefused) {
  const FileDescriptor socket = listenAt("jobd");
  EXPECT_TRUE(isOpen(findings().daemonSocket.endpoint));
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs a second user";
  const std::string path = root_.controlEndpoint();
  ASSERT_EQ(::chown(path.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  EXPECT_FALSE(isOpen(findings().daemonSocket.endpoint));
  EXPECT_EQ(findings().daemonSocket.endpoint.problem,
            path + ": belongs to user 12345, not to root");
}

TEST_F(SystemFindingsTest, ASocketsFileThatNobodyListensAtIsNotOpen) {
  FileDescriptor socket = listenAt("jobd");
  EXPECT_TRUE(tool::isOpen(findings().daemonSocket.endpoint));
  socket.reset();
  const tool::Endpoint endpoint = findings().daemonSocket.endpoint;
  EXPECT_FALSE(tool::isOpen(endpoint));
  EXPECT_EQ(endpoint.problem, endpoint.path + ": nobody listens there any more");
}

TEST_F(SystemFindingsTest, AUnitIsThePackagesUnlessAnAdministratorMasksIt) {
  EXPECT_EQ(findings().daemonSocket.state, UnitState::Missing);
  putUnit("lib/systemd/system", "wlhid-jobd.socket");
  EXPECT_EQ(findings().daemonSocket.state, UnitState::Present);
  mask("wlhid-jobd.socket");
  EXPECT_EQ(findings().daemonSocket.state, UnitState::Masked);
  EXPECT_EQ(findings().routerSockets[0].state, UnitState::Missing);
}

TEST_F(SystemFindingsTest, ADirectoryThatOthersMayWriteToIsNamedOnce) {
  const fs::path open = root_.path() / "var/lib/wlhid";
  fs::create_directories(open / "jobs");
  fs::create_directories(open / "helpers");
  for (const char* above : {"var", "var/lib"})
    fs::permissions(root_.path() / above, fs::perms(0755));
  ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
  const SystemFindings found = findings();
  ASSERT_EQ(found.placeProblems.size(), 1U);
  EXPECT_EQ(found.placeProblems[0].path, open.string());
  EXPECT_TRUE(found.placeProblems[0].isOpenToOthers);
  EXPECT_EQ(found.placeProblems[0].problem,
            open.string() + ": belongs to user " + std::to_string(::geteuid()) +
                " and has mode 0777; nothing is run from it unless only the superuser can change "
                "it");
}

TEST_F(SystemFindingsTest, APlaceThatIsALinkIsNotGivenBack) {
  fs::create_directories(root_.path() / "usr/lib");
  fs::create_directories(root_.path() / "elsewhere");
  fs::create_symlink(root_.path() / "elsewhere", root_.path() / "usr/lib/wlhid");
  const SystemFindings found = findings();
  ASSERT_EQ(found.placeProblems.size(), 1U);
  EXPECT_EQ(found.placeProblems[0].path, (root_.path() / "usr/lib/wlhid").string());
  EXPECT_FALSE(found.placeProblems[0].isOpenToOthers);
  EXPECT_THAT(found.placeProblems[0].problem,
              StartsWith((root_.path() / "usr/lib/wlhid").string() + ": "));
}

TEST_F(SystemFindingsTest, ARootThatOthersMayWriteToIsAProblemItself) {
  ASSERT_EQ(::chmod(root_.path().c_str(), 0777), 0);
  const SystemFindings found = findings();
  ASSERT_EQ(found.placeProblems.size(), 1U);
  EXPECT_EQ(found.placeProblems[0].path, root_.path().string());
  EXPECT_TRUE(found.placeProblems[0].isOpenToOthers);
}

TEST_F(SystemFindingsTest, ARouterThatIsInstalledAndListensIsAsked) {
  const FileDescriptor socket = listenAt("com.quillmar.hideventrouter.control");
  EXPECT_FALSE(findings(/*isInstalled=*/false).router.asked);
  const auto router = routerThatTells({pedal()});
  const SystemFindings found = findings(/*isInstalled=*/true);
  EXPECT_TRUE(found.router.asked);
  EXPECT_EQ(found.router.problem, "");
  ASSERT_TRUE(found.router.status);
  EXPECT_EQ(found.router.status->pid, 77);
  ASSERT_TRUE(found.router.devices);
  EXPECT_EQ(*found.router.devices, std::vector{pedal()});
}

TEST_F(SystemFindingsTest, ARouterThatRefusesSaysWhy) {
  const FileDescriptor socket = listenAt("com.quillmar.hideventrouter.control");
  const auto router = routerThatSays(
      nullptr, platform::NSError::errorWithDomain_code_userInfo(platform::str("d"), 4, nullptr));
  const RouterAnswers answers = findings(/*isInstalled=*/true).router;
  EXPECT_TRUE(answers.asked);
  EXPECT_FALSE(answers.status);
  EXPECT_FALSE(answers.devices);
  EXPECT_THAT(answers.problem, HasSubstr("the router cannot be asked: "));
}

TEST_F(SystemFindingsTest, DoctorAndReportTakeTheRoutersWord) {
  installVersion("1.0");
  const FileDescriptor socket = listenAt("com.quillmar.hideventrouter.control");
  const auto router = routerThatTells({pedal()});
  const Inventory inventory = takeInventory(root_);
  ASSERT_TRUE(inventory.system);
  ASSERT_TRUE(inventory.router);
  EXPECT_EQ(inventory.router->pid, 77);
}

TEST_F(SystemFindingsTest, AReportShowsStatesButNoNames) {
  installVersion("1.0");
  const FileDescriptor socket = listenAt("com.quillmar.hideventrouter.control");
  const auto router = routerThatTells({pedal()});
  Inventory inventory = takeInventory(root_);
  platform::system::SessionState session;
  session.session = "c1 of somebody";
  session.isLocked = true;
  inventory.system->authorities.session = session;
  const nlohmann::ordered_json shown = shownRoot(inventory)["system"];
  EXPECT_EQ(shown["placesWithProblems"], 0);
  EXPECT_EQ(shown["sockets"].size(), 4U);
  EXPECT_EQ(shown["sockets"][1]["mayConnect"], false);
  EXPECT_EQ(shown["sockets"][2]["unit"], "missing");
  EXPECT_EQ(shown["sockets"][2]["mayConnect"], true);
  EXPECT_EQ(shown["routerAsked"], true);
  EXPECT_EQ(shown["busHasProblem"], true);
  EXPECT_EQ(shown["loginSession"],
            (nlohmann::ordered_json{
                {"active", false}, {"locked", true}, {"remote", false}, {"ended", false}}));
  EXPECT_EQ(shown["devices"], nlohmann::ordered_json::array(
                                  {{{"class", "sensitive"}, {"permission", "administrator"}}}));
  for (const char* secret : {"Pedal", "somebody", "report 1", "/run"})
    EXPECT_EQ(shown.dump().find(secret), std::string::npos) << secret;
}

TEST_F(SystemFindingsTest, AUsersRootHasNone) {
  const Inventory inventory = takeInventory(platform::SystemRoot(directory_.path() / "own"));
  EXPECT_FALSE(inventory.system);
  EXPECT_EQ(shownRoot(inventory)["system"], nullptr);
}

TEST_F(SystemFindingsTest, DoctorChecksWhatTheSystemsOwnRootNeeds) {
  const auto json = nlohmann::json::parse(run(addDoctorVerb, {"doctor", "--json"}).out);
  std::vector<std::string> names;
  for (const auto& check : json["checks"]) names.push_back(check["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"system root", "job", "own copy", "installed copy",
                                             "versions", "running router", "endpoint", "endpoint",
                                             "endpoint", "job daemon", "polkit", "login session",
                                             "devices", "log", "disk"}));
  EXPECT_EQ(json["checks"][0]["state"], "passed");
}

}  // namespace
}  // namespace tool
