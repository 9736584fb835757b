// SPDX-License-Identifier: Apache-2.0

// wlhid report: what is in it, what is not, and that it is never incomplete.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "Situations.h"
#include "platform/services/FileDescriptor.h"
#include "tests/support/ArchiveReader.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using Archive = std::map<std::string, std::string>;

class ReportTest : public SituationTest {
 protected:
  [[nodiscard]] fs::path out() const { return directory / "reports/out.zip"; }

  /// Writes a report and reads it back.
  [[nodiscard]] Archive report(const std::vector<std::string>& more = {}) {
    fs::create_directories(out().parent_path());
    std::vector<std::string> arguments{"report", out()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = runTool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "") << "progress is shown without a terminal";
    EXPECT_EQ(std::distance(fs::directory_iterator(out().parent_path()), {}), 1);
    return testsupport::readArchive(out());
  }
  [[nodiscard]] static nlohmann::json json(const Archive& archive, const std::string& name) {
    const auto at = archive.find("wlhid-report/" + name);
    return at == archive.end() ? nlohmann::json() : nlohmann::json::parse(at->second);
  }
  [[nodiscard]] static std::string excerpt(const Archive& archive) {
    const auto at = archive.find(
        "wlhid-report/modules/WLHIDEventRouter/syslog-com.quillmar.hideventrouter.log");
    return at == archive.end() ? "(not there)" : at->second;
  }
  /// The first step of the presence check that says no.
  [[nodiscard]] static std::string firstNo(const Archive& archive) {
    const auto presence = json(archive, "presence.json");
    for (const auto& step : presence["steps"]) {
      if (step["answer"] == "no") return step["name"];
    }
    return "none";
  }
};

TEST_F(ReportTest, TellsOfARouterThatRuns) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process route(wlhid({"route", id, "--json"}), options());
  route.waitForOutputContaining("\"report\"");
  // The router writes its status in the background, so reports may be ahead of it.
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (runTool({"status", "--json"}).out.find("\"deviceName\": \"QEMU") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << runTool({"status", "--json"}).out;
  }
  const Archive archive = report();
  route.signal(SIGINT);
  EXPECT_EQ(route.wait(), 0);

  const auto manifest = json(archive, "manifest.json");
  EXPECT_EQ(manifest["verdict"], "The router is installed, current and in order.");
  EXPECT_EQ(manifest["versions"]["bundleCopy"], WLHID_VERSION);
  EXPECT_EQ(manifest["versions"]["installed"], WLHID_VERSION);
  EXPECT_EQ(manifest["versions"]["running"], WLHID_VERSION);
  EXPECT_EQ(manifest["missing"], nlohmann::json::array());
  EXPECT_EQ(firstNo(archive), "none");
  const auto jobs = json(archive, "jobs.json");
  EXPECT_EQ(jobs["jobDaemon"]["jobs"][0]["label"], "com.quillmar.hideventrouter");
  EXPECT_EQ(jobs["endpoints"][0]["owner"], ::geteuid() == 0 ? "root" : "this user");
  EXPECT_EQ(jobs["router"]["sessions"][0]["pid"], route.pid());
  EXPECT_EQ(jobs["router"]["sessions"][0]["device"], "device 1");
  const auto devices = json(archive, "devices.json");
  EXPECT_EQ(devices["devices"][0]["device"], "device 1");
  EXPECT_EQ(devices["devices"][0]["vendor"], 0x627);
  EXPECT_NE(excerpt(archive).find("]: session 1 (process " + std::to_string(route.pid()) +
                                  ", user <private>): routes device 1 (<private>)\n"),
            std::string::npos)
      << excerpt(archive);
  EXPECT_EQ(excerpt(archive).find("<a line of"), std::string::npos) << excerpt(archive);
  EXPECT_TRUE(
      archive.at("wlhid-report/doctor.txt").starts_with("The router is installed, current"));
}

TEST_F(ReportTest, TriesADeviceAndKeepsWhatTheFrameworkLogged) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  const Archive archive = report({"--try", id});
  const auto trial = json(archive, "trial.json");
  EXPECT_EQ(trial["outcome"], "input came");
  EXPECT_EQ(trial["statuses"], (std::vector<int>{2, 4}));
  EXPECT_EQ(trial["errorCodes"], nlohmann::json::array());
  const std::string lines = archive.at("wlhid-report/modules/KQRecentLogLines/recent.log");
  EXPECT_NE(lines.find("-[WLHIDEventRouterClient openConnection]:194 called\n"), std::string::npos)
      << lines;
  EXPECT_NE(lines.find("Received for reportID <private>: <private>\n"), std::string::npos) << lines;
  EXPECT_EQ(lines.find("<a line of"), std::string::npos) << lines;
  EXPECT_EQ(lines.find("bytes ="), std::string::npos) << lines;

  const Archive whole = report({"--try", id, "--with-input"});
  EXPECT_NE(whole.at("wlhid-report/modules/KQRecentLogLines/recent.log").find("bytes ="),
            std::string::npos);
  EXPECT_EQ(whole.at("wlhid-report/recordings/" + id + ".hid"),
            readFile(sourcePath("recordings/qemu-usb-mouse.hid")));
}

TEST_F(ReportTest, ATrialThatFailsSaysWhy) {
  const auto without = json(report({"--try", "5"}), "trial.json");
  EXPECT_EQ(without["outcome"], "the router is not installed, or not current");
  install();
  const auto refused = json(report({"--try", "5"}), "trial.json");
  EXPECT_EQ(refused["outcome"], "the router refuses");
  EXPECT_EQ(refused["errorCodes"], (nlohmann::json{-536870208}));
  EXPECT_TRUE(isRefusal(runTool({"report", out(), "--try", "no such"}), 1, "no such"));
}

TEST_F(ReportTest, WithoutARouter) {
  const Archive archive = report();
  EXPECT_EQ(firstNo(archive), "job");
  EXPECT_EQ(json(archive, "manifest.json")["versions"]["installed"], nullptr);
  const auto missing = json(archive, "manifest.json")["missing"];
  ASSERT_EQ(missing.size(), 1U) << missing;
  EXPECT_EQ(missing[0]["part"],
            "module WLHIDEventRouter, file syslog-com.quillmar.hideventrouter.log");
  EXPECT_FALSE(fs::exists(root));
}

TEST_F(ReportTest, WithAnOutdatedRouter) {
  install();
  makeOutdated();
  const Archive archive = report();
  EXPECT_EQ(firstNo(archive), "versionsEqual");
  EXPECT_EQ(json(archive, "manifest.json")["versions"]["installed"], "0.9");
}

TEST_F(ReportTest, WithTheExecutableDeleted) {
  install();
  fs::remove(helperTool());
  const Archive archive = report();
  EXPECT_EQ(firstNo(archive), "installedCopy");
  EXPECT_EQ(json(archive, "presence.json")["installedCopy"]["state"], "unreadable");
}

TEST_F(ReportTest, WithALogThatCannotBeRead) {
  install();
  writeFile(systemLog(), "x\n");
  ASSERT_EQ(::chmod(systemLog().c_str(), 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  fs::create_directories(out().parent_path());
  ASSERT_EQ(::chmod(out().parent_path().c_str(), 0777), 0);
  const Outcome outcome = runToolAsNobody({"report", out()});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("Missing: module WLHIDEventRouter, file "), std::string::npos)
      << outcome.out;
  const Archive archive = testsupport::readArchive(out());
  const auto missing = json(archive, "manifest.json")["missing"];
  ASSERT_GE(missing.size(), 1U);
  EXPECT_TRUE(archive.contains("wlhid-report/modules/KQRecentLogLines/recent.log"));
  EXPECT_TRUE(archive.contains("wlhid-report/devices.json"));
}

TEST_F(ReportTest, AFullDiskLeavesTheOldReport) {
  std::string longLog;  // which is included with input only
  for (std::uint64_t i = 1; longLog.size() < 3'000'000; ++i) {
    std::string word;  // words that do not compress well
    for (std::uint64_t rest = i * 0x9e3779b97f4a7c15ULL; rest != 0; rest /= 26)
      word += static_cast<char>('a' + rest % 26);
    longLog += "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: " + word + "\n";
  }
  writeFile(systemLog(), longLog);
  const std::string tool = builtPath("wlhid");
  if (canMount()) {
    const Outcome outcome =
        runOnFullDisk("'" + tool + "' --root '" + root.string() + "' report --with-input '" +
                      (directory / "disk/out").string() + "'");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "wlhid: " + (directory / "disk/out").string() + ": No space left on device\n");
    EXPECT_EQ(outcome.out, "filling\nout\nold\n");
  }
  writeFile(out(), "old");
  std::vector<std::string> command{"prlimit", "--fsize=65536"};
  for (const std::string& argument : wlhid({"report", out(), "--with-input"}))
    command.push_back(argument);
  EXPECT_TRUE(isRefusal(run(command, options()), 1, "out.zip: File too large"));
  EXPECT_EQ(readFile(out()), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(out().parent_path()), {}), 1);
}

TEST_F(ReportTest, PlacesWhereNoFileCanBeAreRefused) {
  EXPECT_TRUE(isRefusal(runTool({"report", directory}), 1, "Is a directory"));
  EXPECT_TRUE(isRefusal(runTool({"report", directory / "no/out.zip"}), 1, "No such file"));
  EXPECT_TRUE(isRefusal(runTool({"report", "/dev/null"}), 1, "not a regular file"));
  EXPECT_TRUE(isRefusal(runTool({"report"}), 2, "OUT"));
  EXPECT_TRUE(isRefusal(runTool({"report", ""}), 2, "OUT"));
}

TEST_F(ReportTest, ASignalLeavesTheOldReport) {
  // A log that takes a while, so that the report is not finished when the signal arrives.
  fs::create_directories(systemLog().parent_path());
  std::string longLog;
  while (longLog.size() < (std::size_t{48} << 20))
    longLog += "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: words and more words\n";
  writeFile(systemLog(), longLog);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    writeFile(out(), "old");
    Process process(wlhid({"report", out()}), options());
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (std::distance(fs::directory_iterator(out().parent_path()), {}) < 2 &&
           std::chrono::steady_clock::now() < deadline) {
    }
    process.signal(number);
    EXPECT_EQ(process.wait(), 128 + number);
    EXPECT_EQ(readFile(out()), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(out().parent_path()), {}), 1);
  }
}

TEST_F(ReportTest, WithJsonPrintsTheManifest) {
  fs::create_directories(out().parent_path());
  const Outcome outcome = runTool({"report", out(), "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, testsupport::readArchive(out()).at("wlhid-report/manifest.json"));
}

// ---- What must not be in it

/// A thousand strings that mark input and serial numbers, in every place they can come from.
class MarkedReportTest : public ReportTest {
 protected:
  static constexpr int kOfEach = 100;

  static std::string number(int i) {
    std::string digits = std::to_string(i);
    return std::string(4 - digits.size(), '0') + digits;
  }
  static std::string hex(std::string_view text, std::string_view between) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string result;
    for (const char c : text) {
      if (!result.empty()) result += between;
      result += kDigits[static_cast<unsigned char>(c) >> 4];
      result += kDigits[static_cast<unsigned char>(c) & 15];
    }
    return result;
  }
  std::string mark(const std::string& text) {
    marks.push_back(text);
    return text;
  }
  void logLine(const std::string& text) {
    log += "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: " + text + "\n";
  }

  /// Recordings with marked input and marked names, of devices with marked serial numbers.
  void plantDevices() {
    for (int i = 0; i < kOfEach; ++i) {
      const std::string name = "QZP" + number(i);
      const std::string bytes = "QZI" + number(i);
      const std::string file = mark(name) + ".hid";
      std::string text = readFile(sourcePath("recordings/qemu-usb-kbd.hid"));
      text.replace(text.find("N: "), 3, "U: " + mark("QZU" + number(i)) + "\nN: ");
      text.replace(text.find("N: QEMU"), 7,
                   "N: Pad " + number(i) + " serial " + mark("QZN" + number(i)) + ", QEMU");
      text += "E: 000009.000000 7 " + mark(hex(bytes, " ")) + "\n";
      writeFile(root / "etc/hideventrouter/recordings" / file, text);
      plist(file, i);
    }
  }
  void plist(const std::string& recording, int i) const {
    writeFile(root / "etc/hideventrouter" / ("device" + std::to_string(i) + ".plist"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>Source</key><string>replay</string><key>Recording</key><string>" +
                  recording + "</string></dict></plist>\n");
  }
  void plantLog() {
    for (int i = 0; i < kOfEach; ++i) {
      logLine("opened a device, serial number " + mark("QZS" + number(i)));
      logLine("it is " + mark("QZT-" + number(i)) + ", found at " + "/dev/serial/by-id/" +
              mark("usb-QZV" + number(i)));
      logLine("report " + mark(hex("QZX" + number(i), "")) + " came");
      log += "\tcontinued: " + mark(hex("QZY" + number(i), ":")) + "\n";
      logLine("bytes " + mark(hex("QZZ" + number(i), " ")));
    }
    writeFile(systemLog(), log);
  }
  void plantStatus() {
    writeFile(root / "var/run/com.quillmar.hideventrouter.status.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>PID</key><integer>" +
                  std::to_string(::getpid()) + "</integer><key>Version</key><string>" +
                  mark("QZR0001") +
                  "</string><key>Sessions</key><array><dict><key>PID</key>"
                  "<integer>1</integer><key>Device</key><integer>5</integer>"
                  "<key>DeviceName</key><string>Pad serial " +
                  mark("QZR0002") + "</string></dict></array></dict></plist>\n");
    holdStatus();
  }
  /// As a running router does.
  void holdStatus() {
    heldStatus.reset(::open((root / "var/run/com.quillmar.hideventrouter.status.plist").c_str(),
                            O_RDWR | O_CLOEXEC));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(heldStatus.get(), F_OFD_SETLK, &lock), 0);
  }
  /// The marks found anywhere in the archive.
  [[nodiscard]] std::vector<std::string> found(const Archive& archive) const {
    std::string all;
    for (const auto& [name, content] : archive) all += name + "\n" + content + "\n";
    std::vector<std::string> result;
    for (const std::string& text : marks) {
      if (all.find(text) != std::string::npos) result.push_back(text);
    }
    return result;
  }

  platform::FileDescriptor heldStatus;
  std::vector<std::string> marks;
  std::string log;
};

TEST_F(MarkedReportTest, HoldsNoInputAndNoSerialNumberUnlessAsked) {
  plantDevices();
  plantLog();
  plantStatus();
  ASSERT_GE(marks.size(), 1000U);
  EXPECT_EQ(found(report()), std::vector<std::string>());
  EXPECT_EQ(found(report({"--with-input"})), marks);
  fs::remove(root / "var/run/com.quillmar.hideventrouter.status.plist");
}

TEST_F(MarkedReportTest, KeepsWhatHelpsAllTheSame) {
  plantDevices();
  plantLog();
  const Archive archive = report();
  EXPECT_EQ(json(archive, "devices.json")["devices"].size(), 100U);
  EXPECT_EQ(linesOf(excerpt(archive)).size(), 500U);
  EXPECT_EQ(linesOf(excerpt(archive)).at(0),
            "<a line of " + std::to_string(log.find('\n')) + " bytes>");
}

}  // namespace
}  // namespace test
