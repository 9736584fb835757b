// SPDX-License-Identifier: Apache-2.0

// wlhid status and wlhid doctor: their exact output.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "platform/services/Control.h"
#include "router/RouterStatus.h"
#include "tests/support/ScopedVariable.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

class StatusTest : public VerbTest {
 protected:
  [[nodiscard]] std::string rootLine() const {
    return "System root   " + root_.path().string() + "\n";
  }
  static Outcome status() { return run(addStatusVerb, {"status"}); }
  static nlohmann::json statusJson() {
    return nlohmann::json::parse(run(addStatusVerb, {"status", "--json"}).out);
  }
  /// What a running router reports about itself.
  void runRouter(std::vector<router::SessionStatus> sessions, std::uint64_t lost) {
    fs::create_directories(router::routerStatusFile(root_).parent_path());
    file_.emplace(root_);
    router::RouterStatus running;
    running.pid = 77;
    running.version = "1.0";
    running.lost = lost;
    running.sessions = std::move(sessions);
    file_->write(running);
  }

  const testsupport::ScopedVariable jobd_{"WLHID_JOBD", "/no/such/program"};
  std::optional<router::RouterStatusFile> file_;
};

TEST_F(StatusTest, OfANewRoot) {
  const Outcome outcome = status();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "Router        not installed (install it with: wlhid install)\n"
            "Own copy      no version, " +
                kBundleCopy + "\n" + rootLine() + "Running       no\n");
  EXPECT_FALSE(fs::exists(root_.path()));
}

TEST_F(StatusTest, OfAnInstalledRouter) {
  installVersion("1.0");
  const Outcome outcome = status();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "Router        installed, version 1.0\n"
            "Own copy      version 1.0, " +
                kBundleCopy +
                "\n"
                "Installed     version 1.0, " +
                kInstalledCopy + "\n" + rootLine() +
                "Running       no; it starts when an application connects\n");
}

TEST_F(StatusTest, OfAnotherVersion) {
  installVersion("0.9");
  EXPECT_EQ(status().status, 1);
  EXPECT_TRUE(
      status().out.starts_with("Router        not current: version 0.9 is installed "
                               "(replace it with: wlhid install)\n"));
  installVersion("2.0");
  EXPECT_TRUE(
      status().out.starts_with("Router        not current: version 2.0 is installed "
                               "(replace it with: wlhid install --force)\n"));
}

TEST_F(StatusTest, OfAJobFileThatIsNone) {
  testsupport::writeFile(root_.jobFile(kLabel), "no list");
  const std::string begin =
      "Router        not installed, because the job is unusable (replace it with: wlhid "
      "install): " +
      root_.jobFile(kLabel).string() + ": ";
  EXPECT_TRUE(status().out.starts_with(begin)) << status().out;
}

TEST_F(StatusTest, OfARunningRouterCountsItsSessions) {
  installVersion("1.0");
  runRouter({{5, 0, 0x1f, "A Mouse", true, 1, 2}, {6, 0, std::nullopt, "", false, 3, 4}}, 1);
  const std::string out = status().out;
  EXPECT_EQ(out.substr(out.find("Running")),
            "Running       process 77, version 1.0, 2 sessions, 1 report lost\n"
            "              0x1f A Mouse, exclusively: 1 report delivered, 2 lost, for process 5\n"
            "              no device: 3 reports delivered, 4 lost, for process 6\n");
  runRouter({{5, 0, 0x1f, "A Mouse", false, 0, 0}}, 0);
  EXPECT_NE(status().out.find("1 session, 0 reports lost\n              0x1f A Mouse: 0 reports"),
            std::string::npos)
      << status().out;
}

TEST_F(StatusTest, AsJson) {
  EXPECT_EQ(statusJson()["installedCopy"], nullptr);
  EXPECT_EQ(statusJson()["router"], nullptr);
  EXPECT_EQ(statusJson()["installed"], false);
  installVersion("1.0");
  runRouter({{5, 1, 0x1f, "A Mouse 12", true, 1, 2, 8, "/usr/bin/pen"}, {}}, 9);
  const auto json = statusJson();
  EXPECT_EQ(json["root"], root_.path().string());
  EXPECT_EQ(json["installed"], true);
  EXPECT_EQ(json["bundleCopy"], (nlohmann::json{{"path", kBundleCopy}, {"version", "1.0"}}));
  EXPECT_EQ(json["installedCopy"], (nlohmann::json{{"path", kInstalledCopy}, {"version", "1.0"}}));
  EXPECT_EQ(json["jobDaemon"], nullptr);
  EXPECT_EQ(json["router"]["pid"], 77);
  EXPECT_EQ(json["router"]["version"], "1.0");
  EXPECT_EQ(json["router"]["lost"], 9);
  EXPECT_EQ(json["router"]["sessions"][0], (nlohmann::json{{"session", 8},
                                                           {"program", "/usr/bin/pen"},
                                                           {"unit", nullptr},
                                                           {"pid", 5},
                                                           {"uid", 1},
                                                           {"registryEntryID", 0x1f},
                                                           {"deviceName", "A Mouse 12"},
                                                           {"exclusive", true},
                                                           {"delivered", 1},
                                                           {"lost", 2}}));
  EXPECT_EQ(json["router"]["sessions"][1]["registryEntryID"], nullptr);
}

/// A daemon that answers this many requests in the same way.
class AnsweringDaemon {
 public:
  AnsweringDaemon(const fs::path& endpoint, std::vector<std::uint8_t> answer, int questions) {
    fs::create_directories(endpoint.parent_path());
    const platform::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    endpoint.native().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(socket.get(), questions), 0);
    process_ = ::fork();
    if (process_ == 0) serve(socket.get(), answer, questions);
  }
  ~AnsweringDaemon() { ::waitpid(process_, nullptr, 0); }
  AnsweringDaemon(const AnsweringDaemon&) = delete;
  AnsweringDaemon& operator=(const AnsweringDaemon&) = delete;

 private:
  [[noreturn]] static void serve(int socket, const std::vector<std::uint8_t>& answer,
                                 int questions) {
    for (int i = 0; i < questions; ++i) {
      const int client = ::accept(socket, nullptr, nullptr);
      std::array<char, 1024> question{};
      static_cast<void>(!::read(client, question.data(), question.size()));
      static_cast<void>(!::write(client, answer.data(), answer.size()));
      ::close(client);
    }
    ::_exit(0);
  }
  pid_t process_ = -1;
};

TEST_F(StatusTest, TellsOfAJobThatIsHeldBack) {
  installVersion("1.0");
  platform::ControlReply reply;
  reply.daemonProcessIdentifier = 4;
  reply.jobs = {{kLabel, {"service"}, 0, 3, 1200, "ended by signal 11"},
                {"well", {}, 5, 1, 0, "ended by signal 9"}};
  const AnsweringDaemon daemon(root_.controlEndpoint(), platform::encode(reply), 2);
  const std::string out = status().out;
  EXPECT_TRUE(
      out.ends_with("\nRunning       no; it starts when an application connects\n"
                    "Held back     for another 1200 ms, because the router ended by signal "
                    "11\n"))
      << out;
  const auto json = statusJson()["jobDaemon"];
  EXPECT_EQ(json["pid"], 4);
  EXPECT_EQ(json["jobs"][0], (nlohmann::json{{"label", kLabel},
                                             {"services", {"service"}},
                                             {"pid", nullptr},
                                             {"starts", 3},
                                             {"heldBackMilliseconds", 1200},
                                             {"lastEnd", "ended by signal 11"}}));
  EXPECT_EQ(json["jobs"][1]["pid"], 5);
}

TEST_F(StatusTest, ADaemonThatTalksNonsenseIsWorthALine) {
  const AnsweringDaemon daemon(root_.controlEndpoint(), {1, 0, 0, 0, 'x'}, 1);
  const Outcome outcome = status();
  EXPECT_TRUE(outcome.err.starts_with("wlhid: the job daemon cannot be queried: ")) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with("Router        not installed")) << outcome.out;
}

TEST_F(StatusTest, DoctorSaysTheSameToProgramsAndPeople) {
  const Outcome text = run(addDoctorVerb, {"doctor"});
  EXPECT_EQ(text.status, 1);
  EXPECT_TRUE(text.out.starts_with("The router is not installed: ")) << text.out;
  const auto json = nlohmann::json::parse(run(addDoctorVerb, {"doctor", "--json"}).out);
  EXPECT_EQ(json["inOrder"], false);
  EXPECT_EQ(json["verdict"], text.out.substr(0, text.out.find('\n')));
  EXPECT_EQ(json["checks"][0],
            (nlohmann::json{{"name", "system root"},
                            {"state", "passed"},
                            {"found", root_.path().string() + ": none yet; installing creates it"},
                            {"remedy", nullptr},
                            {"command", nullptr}}));
  EXPECT_EQ(json["checks"][1]["remedy"], "install the router: wlhid install");
  EXPECT_EQ(json["checks"][1]["command"], "wlhid install");
}

TEST_F(StatusTest, DoctorIsContentWhereAllIsWell) {
  installVersion("1.0");
  const testsupport::ScopedVariable there("WLHID_JOBD", "/bin/sh");
  const Outcome outcome = run(addDoctorVerb, {"doctor"});
  EXPECT_EQ(outcome.status, 0) << outcome.out;
}

}  // namespace
}  // namespace tool
