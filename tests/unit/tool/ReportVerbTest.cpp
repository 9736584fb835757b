// SPDX-License-Identifier: Apache-2.0

// wlhid report, and the contents of its files.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "platform/kit/RecentLogLines.h"
#include "router/RouterErrors.h"
#include "router/RouterStatus.h"
#include "tests/support/ArchiveReader.h"
#include "tests/support/ScopedVariable.h"
#include "tests/unit/tool/FakeRouter.h"
#include "tests/unit/tool/PseudoTerminal.h"
#include "tests/unit/tool/VerbTest.h"
#include "tool/findings/InventoryJson.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

class ReportVerbTest : public VerbTest {
 protected:
  ReportVerbTest() { installVersion("1.0"); }
  ~ReportVerbTest() override {
    platform::KQLogger::sharedLogger().recentLines().setKeepsInput(false);
  }

  [[nodiscard]] Outcome report(std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"report", out_});
    return run(addReportVerb, more);
  }
  [[nodiscard]] nlohmann::json json(const std::string& name) const {
    const auto files = testsupport::readArchive(out_);
    const auto at = files.find("wlhid-report/" + name);
    return at == files.end() ? nlohmann::json() : nlohmann::json::parse(at->second);
  }

  const testsupport::ScopedVariable jobd_{"WLHID_JOBD", "/no/such/program"};
  const std::string out_ = directory_.path() / "out.zip";
};

TEST_F(ReportVerbTest, SaysWhatHasBeenWrittenAndWhatIsMissing) {
  const Outcome outcome = report();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const auto files = testsupport::readArchive(out_);
  EXPECT_TRUE(outcome.out.starts_with(out_ + ": " + std::to_string(files.size()) +
                                      " files, without input and serial numbers\n"
                                      "Open summary.html in it first: it says what is wrong.\n"))
      << outcome.out;
  EXPECT_NE(outcome.out.find("\nMissing: the jobs: the job daemon's program "), std::string::npos)
      << outcome.out;
  EXPECT_FALSE(files.contains("wlhid-report/trial.json"));
  EXPECT_EQ(files.at("wlhid-report/doctor.txt").find(root_.path()), std::string::npos);
}

TEST_F(ReportVerbTest, WithInputSaysSoAndHasTheRecordings) {
  const std::string id = addDevice("m.hid", "Mouse 12");
  const Outcome outcome = report({"--with-input"});
  EXPECT_NE(outcome.out.find("files, with input and serial numbers: be careful who gets it\n"),
            std::string::npos)
      << outcome.out;
  const auto files = testsupport::readArchive(out_);
  EXPECT_EQ(files.at("wlhid-report/recordings/" + id + ".hid"), "R: 2 05 01\nN: Mouse 12\n");
  EXPECT_EQ(json("devices.json")["devices"][0]["source"], "replay m.hid");
  EXPECT_NE(files.at("wlhid-report/doctor.txt").find(root_.path()), std::string::npos);
  EXPECT_EQ(json("manifest.json")["systemRoot"], root_.path().string());
  const auto last = json("manifest.json")["files"].back();
  EXPECT_EQ(last["name"], "recordings/" + id + ".hid");
  EXPECT_EQ(last["description"], "Mouse 12");
  EXPECT_EQ(last["category"], "Input");
}

TEST_F(ReportVerbTest, WithoutInputTheNamesOfDevicesAndRecordingsArePrivate) {
  testsupport::writeFile(directory_.path() / "my secret.hid",
                         "R: 2 05 01\nN: Mouse 12\nI: 3 0627 0001\n");
  static_cast<void>(
      run(addDevicesVerb, {"devices", "add", (directory_.path() / "my secret.hid").string()}));
  EXPECT_EQ(report().status, 0);
  const auto device = json("devices.json")["devices"][0];
  EXPECT_EQ(device, (nlohmann::json{{"device", "device 1"},
                                    {"bus", 3},
                                    {"vendor", 0x627},
                                    {"product", 1},
                                    {"isRecording", true}}));
}

TEST_F(ReportVerbTest, AsJsonIsTheManifest) {
  const Outcome outcome = report({"--json"});
  EXPECT_EQ(outcome.out, testsupport::readArchive(out_).at("wlhid-report/manifest.json"));
  const auto manifest = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(manifest["versions"],
            (nlohmann::json{{"bundleCopy", "1.0"}, {"installed", "1.0"}, {"running", nullptr}}));
  EXPECT_TRUE(manifest["verdict"].get<std::string>().starts_with(
      "The router is installed and current, but "));
  EXPECT_EQ(manifest["created"].get<std::string>().size(), 20U);
  EXPECT_EQ(manifest["created"].get<std::string>().substr(0, 2), "20");
  EXPECT_EQ(manifest["created"].get<std::string>().substr(19), "Z");
  for (const char* part : {"kernel", "machine"})
    EXPECT_FALSE(manifest["system"][part].get<std::string>().empty()) << part;
  EXPECT_EQ(manifest["files"][0]["name"], "summary.html");
  EXPECT_EQ(manifest["files"][0]["description"], "What is wrong, on one page");
  EXPECT_EQ(manifest["files"][0]["category"], "State");
}

TEST_F(ReportVerbTest, HasTheRunningRoutersWord) {
  fs::create_directories(router::routerStatusFile(root_).parent_path());
  router::RouterStatusFile file(root_);
  router::RouterStatus running;
  running.pid = 77;
  running.version = "1.0";
  file.write(running);
  EXPECT_EQ(report().status, 0);
  EXPECT_EQ(json("jobs.json")["router"]["pid"], 77);
  EXPECT_EQ(json("jobs.json")["jobDaemon"]["answered"], false);
  EXPECT_EQ(json("jobs.json")["jobDaemon"]["pid"], nullptr);
  EXPECT_EQ(json("jobs.json")["endpoints"], nlohmann::json::array());
  EXPECT_EQ(json("manifest.json")["versions"]["running"], "1.0");
}

TEST_F(ReportVerbTest, TellsEachStepOfThePresenceCheck) {
  installVersion("0.9");
  EXPECT_EQ(report().status, 0);
  const auto presence = json("presence.json");
  EXPECT_EQ(presence["installed"], false);
  EXPECT_EQ(presence["bundleCopy"]["version"], "1.0");
  EXPECT_EQ(presence["installedCopy"]["version"], "0.9");
  EXPECT_EQ(presence["installedCopy"]["state"], "complete");
  EXPECT_EQ(presence["steps"][0],
            (nlohmann::json{{"name", "job"}, {"question", "Is there a job?"}, {"answer", "yes"}}));
  EXPECT_EQ(presence["steps"][10]["answer"], "no");
}

TEST_F(ReportVerbTest, TriesADeviceOnWish) {
  const FakeRouter router(platform_, [](auto& connection) {
    connection.deliverReply(router::routerError(router::IOReturn::NoDevice, "serial QWERTZ"));
  });
  EXPECT_EQ(report({"--try", "23"}).status, 0);
  const auto trial = json("trial.json");
  EXPECT_EQ(trial["device"], "device 1");
  EXPECT_EQ(trial["outcome"], "the router refuses");
  EXPECT_EQ(trial["statuses"], (nlohmann::json{2, 3}));
  EXPECT_EQ(trial["errorCodes"], (nlohmann::json{-536870208}));
  EXPECT_EQ(trial.find("errors"), trial.end());
  EXPECT_EQ(trial["deliveries"], 0);
}

TEST_F(ReportVerbTest, ADeviceThatIsNoneLeavesNoFile) {
  EXPECT_TRUE(isRefusal(report({"--try", "name:none"}), 1,
                        "no device is called \"none\" (wlhid devices lists them)"));
  EXPECT_TRUE(fs::is_empty(directory_.path()));
  EXPECT_EQ(run(addReportVerb, {"report", ""}).status, 2);
  EXPECT_EQ(run(addReportVerb, {"report"}).status, 2);
}

TEST_F(ReportVerbTest, ShowsItsProgressOnATerminal) {
  const testsupport::ScopedVariable kind("TERM", "xterm");
  const PseudoTerminal terminal;
  terminal.setColumns(200);
  CLI::App app;
  Action chosen;
  addReportVerb(app, chosen);
  app.parse(std::vector<std::string>{out_, "report"});
  testing::internal::CaptureStdout();
  {
    const Redirected error(STDERR_FILENO, terminal.descriptor());
    EXPECT_EQ(chosen(), 0);
  }
  static_cast<void>(testing::internal::GetCapturedStdout());
  const std::string shown = terminal.shown();
  EXPECT_NE(shown.find("] Checking router, jobs and devices"), std::string::npos) << shown;
  EXPECT_NE(shown.find("] Writing the manifest"), std::string::npos) << shown;
}

// ---- The parts as JSON

TEST(InventoryJson, AnEndpointHasAnOwnerWhereItIsThere) {
  Endpoint endpoint{"s", "/s.sock", true, 5, 0, false, "a problem"};
  EXPECT_EQ(jsonOf(endpoint), (nlohmann::ordered_json{{"service", "s"},
                                                      {"path", "/s.sock"},
                                                      {"exists", true},
                                                      {"owner", 5},
                                                      {"problem", "a problem"}}));
  endpoint.exists = false;
  endpoint.problem.clear();
  EXPECT_EQ(jsonOf(endpoint)["owner"], nullptr);
  EXPECT_EQ(jsonOf(endpoint)["problem"], nullptr);
}

TEST(InventoryJson, DevicesAndTheirProblems) {
  const DeviceList list{{{1, "n", 2, 3, 4, "replay a"}}, {"a.plist: malformed"}};
  EXPECT_EQ(jsonOf(list), (nlohmann::ordered_json{{"devices",
                                                   {{{"registryEntryID", 1},
                                                     {"name", "n"},
                                                     {"bus", 2},
                                                     {"vendor", 3},
                                                     {"product", 4},
                                                     {"source", "replay a"}}}},
                                                  {"problems", {"a.plist: malformed"}}}));
}

TEST(InventoryJson, IsIndentedAndHarmlessText) {
  EXPECT_EQ(dumped({{"a", "\u00fc\x1b\xff"}}), "{\n  \"a\": \"\\u00fc\\u001b\\ufffd\"\n}\n");
}

// ---- The help of the verbs

TEST(VerbHelp, NamesOptionsWithWhatTheyTakeAndHasAnExample) {
  const std::vector<std::pair<void (*)(CLI::App&, Action&), std::vector<std::string>>> verbs{
      {addStatusVerb, {"--json"}},
      {addInstallVerb, {"--prompt TEXT", "--authorize ANSWER", "--force"}},
      {addUninstallVerb, {"--prompt TEXT", "--authorize ANSWER"}},
      {addInspectVerb, {"EXECUTABLE"}},
      {addDevicesVerb, {"--json", "add", "remove"}},
      {addRouteVerb,
       {"DEVICE", "--recording FILE", "--speed SPEED", "--count N", "--seconds S", "--mode MODE",
        "--tag PAGE:USAGE", "--json"}},
      {addLogVerb, {"FILE", "-o,--output OUT"}},
      {addReportVerb, {"OUT", "--try DEVICE", "--with-input", "--json"}},
      {addDoctorVerb, {"--json"}}};
  for (const auto& [add, options] : verbs) {
    CLI::App app;
    Action chosen;
    add(app, chosen);
    const CLI::App* const verb = app.get_subcommands([](const CLI::App*) { return true; }).at(0);
    const std::string help = verb->help();
    for (const std::string& option : options)
      EXPECT_NE(help.find("\n  " + option + " "), std::string::npos) << option << "\n" << help;
    EXPECT_NE(help.find("\n  wlhid " + verb->get_name()), std::string::npos) << help;
    EXPECT_FALSE(verb->get_description().empty());
    for (const CLI::App* below : verb->get_subcommands([](const CLI::App*) { return true; }))
      EXPECT_NE(below->help().find("\n  wlhid devices " + below->get_name()), std::string::npos);
  }
}

}  // namespace
}  // namespace tool
