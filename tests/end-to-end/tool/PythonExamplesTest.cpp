// SPDX-License-Identifier: Apache-2.0

// examples/router.py with our clients, and examples/client.py with our router and the other one:
// what docs/wire-protocol.md says is enough.
#include <sys/socket.h>

#include <csignal>

#include "ToolTest.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/SystemRoot.h"

namespace test {
namespace {

namespace fs = std::filesystem;
constexpr const char* kLabel = "com.quillmar.hideventrouter";

class PythonExamplesTest : public ToolTest {
 protected:
  /// examples/client.py on this root.
  [[nodiscard]] std::vector<std::string> client(const std::string& device,
                                                const std::string& reports) const {
    return {"/usr/bin/python3", "-I", "-B", sourcePath("examples/client.py"), device, reports};
  }
  [[nodiscard]] ProcessOptions onThisRoot() const {
    ProcessOptions all = options();
    std::erase_if(all.environment, [](const auto& entry) {
      return entry.first == "WLHID_ROOT" || entry.first == "WLHID_JOBD";
    });
    all.environment.emplace_back("WLHID_ROOT", root);
    all.environment.emplace_back("WLHID_JOBD", builtPath("Contents/Helpers/wlhid-jobd"));
    return all;
  }

  /// The command in a bundle of its own, which brings the script as router; installs it.
  void installScript() {
    fs::create_directories(bundle_ / "Contents/Library/LaunchServices");
    fs::create_directories(bundle_ / "Contents/Helpers");
    fs::copy_file(builtPath("wlhid"), bundle_ / "wlhid");
    fs::create_symlink(WLHID_SCRIPT_IMAGE, bundle_ / "Contents/Library/LaunchServices" / kLabel);
    fs::create_symlink(builtPath("Contents/Helpers/wlhid-jobd"),
                       bundle_ / "Contents/Helpers/wlhid-jobd");
    const Outcome installed = runInBundle({"install", "--authorize", "allow"});
    ASSERT_EQ(installed.out, "The router is installed, version 99.1.\n") << installed.err;
  }
  [[nodiscard]] Outcome runInBundle(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command = wlhid(arguments);
    command.front() = bundle_ / "wlhid";
    return run(command, options());
  }

  [[nodiscard]] pid_t routerProcess() const {
    const auto status = platform::JobDaemon(platform::SystemRoot(root)).status();
    return status ? static_cast<pid_t>(status->jobs.at(0).processIdentifier) : -1;
  }

  const fs::path bundle_ = directory / "bundle";
};

TEST_F(PythonExamplesTest, OurClientRoutesThroughTheScript) {
  installScript();
  const Outcome routed = runInBundle({"route", "--json", "--count", "3", "0x2a"});
  EXPECT_EQ(routed.status, 0) << routed.err;
  const auto lines = jsonLines(routed.out);
  ASSERT_EQ(lines.size(), 8U) << routed.out;
  EXPECT_EQ(lines[0]["status"], 2);
  EXPECT_EQ(lines[1]["status"], 4);
  for (std::size_t i = 2; i < lines.size(); i += 2) {
    const auto& value = lines[i + 1]["elements"][0];
    EXPECT_EQ(lines[i]["report"]["id"], 1);
    EXPECT_EQ(lines[i]["report"]["data"], "01" + value["bytes"].get<std::string>());
    EXPECT_EQ(value["usagePage"], 1);
    EXPECT_EQ(value["usage"], 0x37);
  }
}

TEST_F(PythonExamplesTest, OurClientShowsWhyTheScriptRefuses) {
  installScript();
  EXPECT_NE(runInBundle({"route", "0x2b"}).err.find("no device has the registry entry ID 0x2b"),
            std::string::npos);
  EXPECT_NE(runInBundle({"route", "--mode", "1", "0x2a"}).err.find("the dial can only be shared"),
            std::string::npos);
}

TEST_F(PythonExamplesTest, TheScriptOutlivesClientsThatLeaveOrTalkNonsense) {
  installScript();
  Process routing({bundle_ / "wlhid", "--root", root, "route", "--json", "0x2a"}, options());
  routing.waitForOutputContaining("\"report\"");
  const pid_t script = routerProcess();
  ASSERT_EQ(::kill(script, SIGSTOP), 0);  // so that they have left before it looks
  for (const std::string_view words : {"", "nonsense that is no hello", "\x08"}) {
    const platform::FileDescriptor stranger(platform::connectUnixSocket(
        root / "var/run" / (std::string(kLabel) + ".sock"), SOCK_STREAM));
    ASSERT_TRUE(stranger);
    ASSERT_EQ(::send(stranger.get(), words.data(), words.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(words.size()));
  }
  ASSERT_EQ(::kill(script, SIGCONT), 0);
  const std::size_t before = routing.output().size();
  routing.waitForOutput([&](const std::string& text) { return text.size() > before + 1000; });
  EXPECT_EQ(routerProcess(), script);
}

TEST_F(PythonExamplesTest, TheScriptEndsInGoodOrder) {
  installScript();
  Process routing({bundle_ / "wlhid", "--root", root, "route", "--json", "0x2a"}, options());
  routing.waitForOutputContaining("\"report\"");
  EXPECT_EQ(runInBundle({"uninstall", "--authorize", "allow"}).status, 0);
  EXPECT_EQ(routing.wait(), 1);
  EXPECT_NE(readFile(root / "var/log/system.log").find("exited with status 0"), std::string::npos);
}

TEST_F(PythonExamplesTest, TheClientReceivesFromOurRouter) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  const Outcome received = run(client(id, "2"), onThisRoot());
  EXPECT_EQ(received.status, 0) << received.err;
  const auto lines = linesOf(received.out);
  ASSERT_EQ(lines.size(), 3U) << received.out;
  EXPECT_TRUE(lines[0].starts_with("report 0 ")) << lines[0];
  EXPECT_TRUE(lines[1].starts_with("values [{'report': 0, 'page': 9, 'usage': 1, 'cookie': "))
      << lines[1];
}

TEST_F(PythonExamplesTest, TheClientStartsTheJobDaemon) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  for (const pid_t daemon : jobDaemons()) ::kill(daemon, SIGKILL);
  expectNoProcessLeft();
  const Outcome received = run(client(id, "1"), onThisRoot());
  EXPECT_EQ(received.status, 0) << received.err;
  EXPECT_EQ(jobDaemons().size(), 1U);
}

TEST_F(PythonExamplesTest, TheClientSaysWhyItIsRefused) {
  install();
  const Outcome refused = run(client("77", "1"), onThisRoot());
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("no device has the registry entry ID 0x4d"), std::string::npos)
      << refused.err;
  EXPECT_NE(refused.err.find("-536870208"), std::string::npos) << refused.err;
}

TEST_F(PythonExamplesTest, ClientAndRouterFitTogether) {
  installScript();
  const Outcome received = run(client("0x2a", "2"), onThisRoot());
  EXPECT_EQ(received.status, 0) << received.err;
  EXPECT_TRUE(received.out.starts_with("report 1 01")) << received.out;
}

}  // namespace
}  // namespace test
