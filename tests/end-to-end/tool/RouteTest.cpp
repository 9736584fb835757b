// SPDX-License-Identifier: Apache-2.0

// wlhid route on a device of the root.
#include <sched.h>

#include <algorithm>
#include <csignal>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::int64_t kNoDevice = static_cast<std::int32_t>(0xE00002C0);
constexpr std::int64_t kExclusiveAccess = static_cast<std::int32_t>(0xE00002C5);

std::size_t countOf(const std::vector<json>& lines, const char* kind) {
  return static_cast<std::size_t>(
      std::ranges::count_if(lines, [&](const json& line) { return line.contains(kind); }));
}

/// Whether `text` holds `count` complete lines that begin like a delivery of this kind.
std::function<bool(const std::string&)> hasReports(std::size_t count) {
  return [count](const std::string& text) {
    std::size_t found = 0;
    for (std::size_t at = text.find("{\"report\""); at != std::string::npos;
         at = text.find("{\"report\"", at + 1))
      ++found;
    return found >= count;
  };
}

/// Polls for something that no descriptor signals.
void waitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("a condition did not come about in time");
    ::sched_yield();
  }
}

bool blocksInterrupts(pid_t pid) {
  const std::string status = readFile(fs::path("/proc") / std::to_string(pid) / "status");
  const std::size_t at = status.find("SigBlk:");
  if (at == std::string::npos) return false;
  return (std::stoull(status.substr(at + 7), nullptr, 16) & (1U << (SIGINT - 1))) != 0;
}

class RouteTest : public SituationTest {
 protected:
  [[nodiscard]] Process start(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all{"route"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    all.emplace_back("--json");
    return Process(wlhid(all), options());
  }
  [[nodiscard]] Outcome route(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all{"route"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runTool(all);
  }
  [[nodiscard]] json routerStatus() const {
    return json::parse(runTool({"status", "--json"}).out)["router"];
  }
  [[nodiscard]] pid_t jobDaemon() const {
    const auto daemons = jobDaemons();
    if (daemons.size() != 1)
      throw std::runtime_error(std::to_string(daemons.size()) + " job daemons instead of one");
    return daemons.front();
  }
};

TEST_F(RouteTest, WithoutARouterItSaysWhatToDo) {
  const std::string id = addDevice("qemu-usb-kbd.hid");
  EXPECT_TRUE(isRefusal(route({id}), 1, root.string() + " install"));
}

TEST_F(RouteTest, AnUnknownNameIsRefused) {
  install();
  EXPECT_TRUE(isRefusal(route({"No Such Mouse"}), 1, "No Such Mouse"));
}

TEST_F(RouteTest, ANameThatTwoDevicesHaveIsRefused) {
  install();
  fs::copy_file(sourcePath("recordings/qemu-usb-kbd.hid"), directory / "second.hid");
  addDevice("qemu-usb-kbd.hid");
  ASSERT_EQ(runTool({"devices", "add", directory / "second.hid"}).status, 0);
  EXPECT_TRUE(isRefusal(route({"QEMU QEMU USB Keyboard"}), 1, "2 devices"));
}

TEST_F(RouteTest, ARefusedStartIsShownAndFails) {
  install();
  const Outcome outcome = route({"0x17", "--json"});
  EXPECT_EQ(outcome.status, 1);
  const auto lines = jsonLines(outcome.out);
  ASSERT_EQ(lines.size(), 3U) << outcome.out;
  EXPECT_EQ(lines[0], (json{{"status", 2}}));
  EXPECT_EQ(lines[1], (json{{"status", 3}}));
  EXPECT_EQ(lines[2]["error"]["domain"], "HIDEventRouterDomain");
  EXPECT_EQ(lines[2]["error"]["code"], kNoDevice);
  EXPECT_EQ(linesOf(outcome.err).size(), 1U) << outcome.err;
  EXPECT_NE(outcome.err.find("the router refused: "), std::string::npos) << outcome.err;
}

TEST_F(RouteTest, EndsAfterTheReportsThatWereAskedFor) {
  install();
  const std::string id = addDevice("qemu-usb-kbd.hid");
  const Outcome outcome = route({id, "--count", "5", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const auto lines = jsonLines(outcome.out);
  ASSERT_EQ(lines.size(), 12U) << outcome.out;
  EXPECT_EQ(lines[0], (json{{"status", 2}}));
  EXPECT_EQ(lines[1], (json{{"status", 4}}));
  for (std::size_t i = 2; i < lines.size(); i += 2) {
    EXPECT_TRUE(lines[i].contains("report")) << lines[i];
    EXPECT_TRUE(lines[i + 1].contains("elements")) << lines[i + 1];
  }
  EXPECT_EQ(lines[4], (json{{"report", {{"id", 0}, {"data", "0200170000000000"}}}}));
}

TEST_F(RouteTest, ShowsPeopleWhatTheKeyboardSent) {
  install();
  addDevice("qemu-usb-kbd.hid");
  const Outcome outcome = route({"QEMU QEMU USB Keyboard", "--count", "2"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const auto lines = linesOf(outcome.out);
  ASSERT_EQ(lines.size(), 9U) << outcome.out;
  EXPECT_TRUE(lines[0].starts_with("QEMU QEMU USB Keyboard (0x")) << lines[0];
  EXPECT_EQ(lines[1].substr(2), "SECONDS  WHAT     ID  BYTES, OR VALUES BY NAME");
  EXPECT_EQ(lines[2].substr(11), "status  opening");
  EXPECT_EQ(lines[3].substr(11), "status  routing");
  EXPECT_EQ(lines[4].substr(11), "report    0  02 00 00 00 00 00 00 00");
  EXPECT_EQ(lines[5].substr(11), "values       Left Shift=1");
  EXPECT_EQ(lines[7].substr(11), "values       Left Shift=1 T=23");
  EXPECT_TRUE(lines[8].starts_with("2 reports in ")) << lines[8];
  EXPECT_TRUE(lines[8].ends_with(" per second; none lost")) << lines[8];
}

TEST_F(RouteTest, KeepsToTheWidthOfTheTerminal) {
  install();
  addDevice("qemu-usb-kbd.hid");
  const Outcome outcome =
      runToolOnTerminal({"route", "QEMU QEMU USB Keyboard", "--count", "1"}, 40);
  EXPECT_EQ(outcome.status, 0) << outcome.out;
  EXPECT_NE(outcome.out.find("report    0  02 00 00 00 00\n" + std::string(24, ' ') + "00 00 00\n"),
            std::string::npos)
      << outcome.out;
}

TEST_F(RouteTest, ARouterThatDiesAtItsStartEndsItWithTheReason) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid");
  breakProgram();
  const Outcome outcome = route({id, "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(linesOf(outcome.err).size(), 1U) << outcome.err;
  EXPECT_NE(outcome.err.find("the router keeps failing at startup: it ended by signal 11"),
            std::string::npos)
      << outcome.err;
  EXPECT_NE(outcome.err.find("--root " + root.string() + " doctor"), std::string::npos)
      << outcome.err;
  const Outcome doctor = runTool({"doctor"});
  EXPECT_EQ(doctor.status, 1);
  EXPECT_NE(doctor.out.find("it ended by signal 11"), std::string::npos) << doctor.out;
}

TEST_F(RouteTest, TagsLimitTheValues) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  const Outcome outcome =
      route({id, "--count", "20", "--json", "--tag", "1:0x30", "--tag", "0x9:1"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const auto lines = jsonLines(outcome.out);
  EXPECT_GT(countOf(lines, "elements"), 0U);
  for (const json& line : lines) {
    if (!line.contains("elements")) continue;
    for (const json& value : line["elements"]) {
      const bool asked = (value["usagePage"] == 1 && value["usage"] == 0x30) ||
                         (value["usagePage"] == 9 && value["usage"] == 1);
      EXPECT_TRUE(asked) << value;
    }
  }
}

TEST_F(RouteTest, EndsWhenTheTimeIsUp) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  const auto outcome = route({id, "--seconds", "3"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(RouteTest, AnInterruptEndsItInOrder) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    Process process = start({id});
    process.waitForOutput(hasReports(3));
    process.signal(number);
    EXPECT_EQ(process.wait(), 0) << number;
    EXPECT_EQ(process.errorOutput(), "");
    EXPECT_EQ(process.output().back(), '\n') << "ends in mid-line";
  }
  waitUntil([this] { return routerStatus().is_null() || routerStatus()["sessions"].empty(); });
}

TEST_F(RouteTest, ASecondInterruptEndsItThoughNobodyReads) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat", "--speed", "max"});
  Process process = start({id});
  process.waitForOutput(hasReports(1));
  process.waitUntilWritingIsStuck();
  process.signal(SIGINT);
  waitUntil([&] { return !blocksInterrupts(process.pid()); });
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 128 + SIGINT);
}

TEST_F(RouteTest, AReaderThatGoesAwayEndsItQuietly) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process = start({id});
  process.waitForOutput(hasReports(1));
  process.closeOutput();
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.errorOutput(), "");
}

TEST_F(RouteTest, TwoMayRouteOneDevice) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process first = start({id});
  first.waitForOutput(hasReports(2));
  Process second = start({id});
  second.waitForOutput(hasReports(2));
  const std::size_t before = first.output().size();
  first.waitForOutput([before](const std::string& text) { return text.size() > before; });
  for (Process* process : {&first, &second}) process->signal(SIGINT);
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
}

TEST_F(RouteTest, ADeviceThatIsTakenIsRefused) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process first = start({id, "--mode", "1"});
  first.waitForOutput(hasReports(1));
  const Outcome second = route({id, "--json"});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(jsonLines(second.out).back()["error"]["code"], kExclusiveAccess) << second.out;
  first.signal(SIGINT);
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(route({id, "--count", "1"}).status, 0);
}

TEST_F(RouteTest, ARecordingIsPlayedToItsEndForEachThatRoutesIt) {
  install();
  const std::string id = addDevice("qemu-usb-kbd.hid", {"--speed", "max"});
  const std::string recording = readFile(sourcePath("recordings/qemu-usb-kbd.hid"));
  std::size_t recorded = 0;
  for (const std::string& line : linesOf(recording)) recorded += line.starts_with("E:") ? 1 : 0;
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = route({id, "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    const auto lines = jsonLines(outcome.out);
    EXPECT_EQ(countOf(lines, "report"), recorded);
    EXPECT_EQ(countOf(lines, "status"), 2);
    EXPECT_EQ(
        lines.back(),
        (json{{"ended", "the recording \"QEMU QEMU USB Keyboard\" has been played to its end"}}));
  }
}

TEST_F(RouteTest, ARouterThatIsKilledIsNoticedAndComesBack) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process = start({id});
  process.waitForOutput(hasReports(2));
  json router;
  waitUntil([&] {
    router = routerStatus();
    return !router.is_null();
  });
  ASSERT_EQ(::kill(router["pid"].get<pid_t>(), SIGKILL), 0);
  EXPECT_EQ(process.wait(), 1);
  EXPECT_EQ(process.errorOutput(), "wlhid: the router ended unexpectedly\n");
  EXPECT_EQ(route({id, "--count", "2"}).status, 0);
}

TEST_F(RouteTest, ARouterThatIsRemovedEndsTheRouting) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process = start({id});
  process.waitForOutput(hasReports(2));
  ASSERT_EQ(runTool({"uninstall", "--authorize", "allow"}).status, 0);
  EXPECT_EQ(process.wait(), 1);
  EXPECT_EQ(jsonLines(process.output()).back(), (json{{"status", 1}}));
  EXPECT_EQ(linesOf(process.errorOutput()).size(), 1U) << process.errorOutput();
  EXPECT_NE(process.errorOutput().find("no longer installed"), std::string::npos)
      << process.errorOutput();
}

TEST_F(RouteTest, WorksThoughTheJobDaemonWasKilled) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  ASSERT_EQ(::kill(jobDaemon(), SIGKILL), 0);
  const Outcome outcome = route({id, "--count", "2"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(runTool({"uninstall", "--authorize", "allow"}).status, 0);
}

TEST_F(RouteTest, ARouterEndsWithItsJobDaemonAndComesBack) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process = start({id});
  process.waitForOutput(hasReports(2));
  ASSERT_EQ(::kill(jobDaemon(), SIGKILL), 0);
  EXPECT_EQ(process.wait(), 1);
  EXPECT_EQ(process.errorOutput(), "wlhid: the router ended unexpectedly\n");
  EXPECT_EQ(route({id, "--count", "2"}).status, 0);
}

TEST_F(RouteTest, ADeepRootWorks) {
  for (int i = 0; i < 12; ++i) root /= "a-directory-with-a-long-name";
  ASSERT_GT(root.string().size(), 300U);
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  const Outcome outcome = route({id, "--count", "2"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(RouteTest, TheFrameworksLogGoesToStandardErrorAtTheUsersLevel) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  ProcessOptions traced = options();
  std::erase_if(traced.environment,
                [](const auto& entry) { return entry.first == "KQ_LOG_LEVEL"; });
  traced.environment.emplace_back("KQ_LOG_LEVEL", "0");
  const Outcome outcome = run(wlhid({"route", id, "--count", "1"}), traced);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.err.find("-[WLHIDEventRouterClient startListeningToService]"),
            std::string::npos)
      << outcome.err;
}

TEST_F(RouteTest, StatusShowsWhatIsRouted) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process = start({id});
  process.waitForOutput(hasReports(2));
  json router;
  waitUntil([&] {
    router = routerStatus();
    return !router.is_null() && router["sessions"].size() == 1;
  });
  EXPECT_EQ(router["version"], WLHID_VERSION);
  EXPECT_EQ(router["lost"], 0);
  EXPECT_EQ(router["sessions"][0]["registryEntryID"], std::stoull(id, nullptr, 16));
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0);
}

}  // namespace
}  // namespace test
