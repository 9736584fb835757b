// SPDX-License-Identifier: Apache-2.0

// wlhid record: what is recorded, and what is left when recording ends early.
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "Situations.h"
#include "TerminalEmulator.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class RecordTest : public SituationTest {
 protected:
  void SetUp() override { install(); }

  [[nodiscard]] fs::path file() const { return directory / "recorded.hid"; }
  /// The file as the reader in Python sees it.
  [[nodiscard]] static json read(const fs::path& path) {
    const Outcome outcome =
        run({"python3", sourcePath("tests/end-to-end/tool/hid_recording.py"), path});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.status == 0 ? json::parse(outcome.out) : json::object();
  }
  /// The reports of one device, without their times.
  [[nodiscard]] static std::vector<std::string> reportsIn(const json& recording, int device = 0) {
    std::vector<std::string> reports;
    for (const json& report : recording["reports"])
      if (report[0] == device) reports.push_back(report[2]);
    return reports;
  }
  [[nodiscard]] static json own(std::string_view name) {
    return read(sourcePath("recordings") / name);
  }
  /// The descriptor and the reports as they are written, without their times, which may run
  /// backwards where a recording consists of several.
  [[nodiscard]] static std::vector<std::string> bytesIn(const fs::path& path) {
    std::vector<std::string> bytes;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
      if (line.starts_with("R: ")) bytes.push_back(line);
      if (line.starts_with("E: ")) bytes.push_back(line.substr(line.find(' ', 3) + 1));
    }
    return bytes;
  }
  /// What is delivered when this is routed: reports and element values.
  [[nodiscard]] std::vector<json> deliveriesOf(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{"route", "--json"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Outcome outcome = runTool(command);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<json> deliveries = jsonLines(outcome.out);
    std::erase_if(deliveries, [](const json& line) {
      return !line.contains("report") && !line.contains("elements");
    });
    return deliveries;
  }
  /// Waits until the file has that many bytes.
  void waitForSize(std::uintmax_t bytes) const {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    std::error_code none;
    while (fs::file_size(file(), none) < bytes || none) {
      if (std::chrono::steady_clock::now() > deadline)
        throw std::runtime_error("the reports did not come in time");
      ::sched_yield();
    }
  }
};

TEST_F(RecordTest, WhatIsRecordedAndRoutedBackGivesTheSameDeliveries) {
  for (const char* name : {"qemu-usb-mouse.hid", "qemu-usb-tablet.hid", "qemu-usb-kbd.hid"}) {
    const std::string id = addDevice(name, {"--speed", "max"});
    const auto expected = deliveriesOf({id});
    EXPECT_FALSE(expected.empty());
    const Outcome recorded = runTool({"record", id, file(), "--sensitive"});
    ASSERT_EQ(recorded.status, 0) << recorded.err;
    EXPECT_EQ(deliveriesOf({"--recording", file(), "--speed", "max"}), expected) << name;
    fs::remove(file());
  }
}

/// Recordings of real devices that are kept beside the source tree.
TEST_F(RecordTest, WhatRealDevicesSentComesBackByteForByte) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t compared = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const Outcome added = runTool({"devices", "add", entry.path(), "--speed", "max"});
    ASSERT_EQ(added.status, 0) << added.err;
    const std::string id = added.out.substr(0, added.out.find_first_of(" \n"));
    const Outcome recorded = runTool({"record", id, file(), "--sensitive"});
    ASSERT_EQ(recorded.status, 0) << entry.path() << recorded.err;
    EXPECT_EQ(bytesIn(file()), bytesIn(entry.path())) << entry.path();
    EXPECT_EQ(deliveriesOf({"--recording", file(), "--speed", "max"}), deliveriesOf({id}));
    fs::remove(file());
    ++compared;
  }
  EXPECT_GT(compared, 3U);
}

TEST_F(RecordTest, AnotherReaderReadsIt) {
  const std::string id = addDevice("qemu-usb-tablet.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"record", id, file(), "--sensitive"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json expected = own("qemu-usb-tablet.hid");
  const json recorded = read(file());
  EXPECT_EQ(recorded["devices"]["0"]["descriptor"], expected["devices"]["0"]["descriptor"]);
  EXPECT_EQ(recorded["devices"]["0"]["name"], expected["devices"]["0"]["name"]);
  EXPECT_EQ(recorded["devices"]["0"]["id"], expected["devices"]["0"]["id"]);
  EXPECT_EQ(reportsIn(recorded), reportsIn(expected));
  EXPECT_EQ(recorded["reports"][0][1], 0) << "time begins with the first report";
  EXPECT_TRUE(outcome.out.starts_with(file().string() + ": ")) << outcome.out;
  EXPECT_NE(outcome.out.find(std::to_string(reportsIn(expected).size()) + " reports in "),
            std::string::npos)
      << outcome.out;
  EXPECT_EQ(fs::status(file()).permissions(), fs::perms(0600)) << "it may hold what was typed";
}

TEST_F(RecordTest, SeveralDevicesAreTakenTogether) {
  const std::string mouse = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  const std::string tablet = addDevice("qemu-usb-tablet.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"record", mouse, file(), "--sensitive", "--also", tablet});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json recorded = read(file());
  EXPECT_EQ(recorded["devices"].size(), 2U);
  EXPECT_EQ(reportsIn(recorded, 0), reportsIn(own("qemu-usb-mouse.hid")));
  EXPECT_EQ(reportsIn(recorded, 1), reportsIn(own("qemu-usb-tablet.hid")));
  EXPECT_EQ(recorded["devices"]["1"]["descriptor"],
            own("qemu-usb-tablet.hid")["devices"]["0"]["descriptor"]);
}

TEST_F(RecordTest, EachOfSeveralDevicesComesBack) {
  const std::vector<std::string> ids{addDevice("qemu-usb-mouse.hid", {"--speed", "max"}),
                                     addDevice("qemu-usb-tablet.hid", {"--speed", "max"})};
  ASSERT_EQ(runTool({"record", ids[0], file(), "--sensitive", "--also", ids[1]}).status, 0);
  for (const char* const number : {"0", "1"}) {
    const auto expected = deliveriesOf({ids[number[0] - '0']});
    EXPECT_EQ(deliveriesOf({"--recording", file(), "--device", number, "--speed", "max"}), expected)
        << number;
    const Outcome added = runTool({"devices", "add", file(), "--device", number, "--speed", "max"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(deliveriesOf({added.out.substr(0, added.out.find('\n'))}), expected) << number;
    const Outcome measured =
        runTool({"measure", "--recording", file(), "--device", number, "--json"});
    EXPECT_EQ(json::parse(measured.out)["reports"],
              reportsIn(read(file()), number[0] - '0').size());
  }
}

TEST_F(RecordTest, ASensitiveDeviceNeedsConsent) {
  const std::string id = addDevice("qemu-usb-kbd.hid", {"--speed", "max"});
  const Outcome refused = runTool({"record", id, file()});
  EXPECT_TRUE(isRefusal(refused, 1, "is sensitive (a keyboard: collection Keyboard (01:06))"));
  EXPECT_NE(refused.err.find("record --sensitive " + id + " " + file().string()), std::string::npos)
      << refused.err;
  EXPECT_FALSE(fs::exists(file()));
  EXPECT_EQ(runTool({"record", id, file(), "--sensitive"}).status, 0);
  const std::string dial = "R: 17 a1 01 05 01 09 37 15 81 25 7f 75 08 95 01 81 06 c0\nN: Dial\n";
  writeFile(directory / "dial.hid", dial + "E: 000000.000000 1 05\n");
  ASSERT_EQ(runTool({"devices", "add", directory / "dial.hid"}).status, 0);
  EXPECT_EQ(runTool({"record", "Dial", directory / "again.hid"}).status, 0) << "it is harmless";
}

TEST_F(RecordTest, CtrlCLeavesAWholeRecording) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process process(wlhid({"record", id, file(), "--sensitive"}), options());
  waitForSize(2000);
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0) << process.errorOutput();
  EXPECT_EQ(process.errorOutput(), "");
  const auto recorded = reportsIn(read(file()));
  EXPECT_GE(recorded.size(), 20U);
  EXPECT_NE(process.output().find(std::to_string(recorded.size()) + " reports in "),
            std::string::npos)
      << process.output();
}

TEST_F(RecordTest, BeingKilledLeavesWholeReports) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat", "--speed", "max"});
  Process process(wlhid({"record", id, file(), "--sensitive"}), options());
  waitForSize(20'000);
  process.signal(SIGKILL);
  EXPECT_EQ(process.wait(), 128 + SIGKILL);
  EXPECT_GE(reportsIn(read(file())).size(), 200U);
}

/// A file that may not grow any more stands for a full disk.
TEST_F(RecordTest, AFullDiskLeavesWholeReports) {
  // Keeps the router running, which must not get the limit.
  Process routing(wlhid({"route", addDevice("qemu-usb-tablet.hid", {"--repeat"}), "--json"}),
                  options());
  routing.waitForOutputContaining("report");
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  for (const int limit : {2000, 2001, 2011, 2017}) {
    std::string line = "trap '' XFSZ; exec prlimit --fsize=" + std::to_string(limit);
    for (const std::string& word : wlhid({"record", id, file(), "--sensitive"}))
      line += " " + inQuotes(word);
    const Outcome outcome = run({"sh", "-c", line}, options());
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("cannot write to " + file().string() + ": File too large"),
              std::string::npos)
        << outcome.err;
    const auto expected = reportsIn(own("qemu-usb-mouse.hid"));
    const auto recorded = reportsIn(read(file()));
    ASSERT_FALSE(recorded.empty());
    ASSERT_LT(recorded.size(), expected.size());
    EXPECT_TRUE(std::equal(recorded.begin(), recorded.end(), expected.begin()));
    EXPECT_GT(fs::file_size(file()), 1900U) << "whole reports were thrown away";
    EXPECT_NE(outcome.out.find(std::to_string(recorded.size()) + " reports in"), std::string::npos)
        << outcome.out << outcome.err;
    fs::remove(file());
  }
  routing.signal(SIGINT);
  EXPECT_EQ(routing.wait(), 0);
}

TEST_F(RecordTest, ADiskThatFillsUpLeavesWholeReports) {
  if (!canMount()) GTEST_SKIP() << "this user may not mount a file system of its own";
  // Keeps the router running, which is on another disk.
  Process routing(wlhid({"route", addDevice("qemu-usb-tablet.hid", {"--repeat"}), "--json"}),
                  options());
  routing.waitForOutputContaining("report");
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max", "--repeat"});
  const fs::path disk = directory / "disk";
  fs::create_directories(disk);
  std::string line = "mount -t tmpfs -o size=16k tmpfs " + inQuotes(disk.string()) + " && {";
  for (const std::string& word : wlhid({"record", id, disk / "full.hid", "--sensitive"}))
    line += " " + inQuotes(word);
  line += "; status=$?; cp " + inQuotes((disk / "full.hid").string()) + " " +
          inQuotes(file().string()) + "; exit $status; }";
  const Outcome outcome = run({"unshare", "-rm", "sh", "-c", line}, options());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("cannot write to " + (disk / "full.hid").string() +
                             ": No space left on device"),
            std::string::npos)
      << outcome.err;
  const auto recorded = reportsIn(read(file()));
  EXPECT_NE(outcome.out.find(std::to_string(recorded.size()) + " reports in"), std::string::npos)
      << outcome.out << outcome.err;
  const auto expected = reportsIn(own("qemu-usb-mouse.hid"));
  ASSERT_GT(recorded.size(), 100U);
  for (std::size_t i = 0; i < recorded.size(); ++i)
    ASSERT_EQ(recorded[i], expected[i % expected.size()]) << i;
  routing.signal(SIGINT);
  EXPECT_EQ(routing.wait(), 0);
}

TEST_F(RecordTest, AnExistingFileIsNotTouched) {
  const std::string id = addDevice("qemu-usb-mouse.hid");
  writeFile(file(), "precious\n");
  EXPECT_TRUE(isRefusal(runTool({"record", id, file(), "--sensitive"}), 1,
                        "exists already, and is not overwritten; choose another name"));
  EXPECT_EQ(readFile(file()), "precious\n");
  EXPECT_TRUE(isRefusal(runTool({"record", id, directory / "none/file", "--sensitive"}), 1,
                        "none/file: No such"));
}

TEST_F(RecordTest, WhatCannotBeRoutedLeavesNoFile) {
  const std::string id = addDevice("qemu-usb-mouse.hid");
  EXPECT_TRUE(isRefusal(runTool({"record", "nothing", file()}), 1, "no device is called"));
  EXPECT_TRUE(
      isRefusal(runTool({"record", id, file(), "--sensitive", "--also", id}), 2, "is named twice"));
  EXPECT_TRUE(isRefusal(runTool({"record", id, file(), "--seconds", "-1"}), 2, "--seconds"));
  EXPECT_FALSE(fs::exists(file()));
}

TEST_F(RecordTest, ATerminalShowsWhatHasBeenRecorded) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  TerminalEmulator terminal(directory / "terminal", wlhid({"record", id, file(), "--sensitive"}),
                            options(), {});
  const std::regex progress(
      "0:[0-9]{2}  [0-9]{2,} reports  [0-9.]+ (bytes|KiB)  \\(Ctrl-C ends it\\)");
  terminal.await([&](const std::string& shown) { return std::regex_search(shown, progress); });
  terminal.type("C-c");
  terminal.await("ended 0");
}

/// Anonymous memory in kilobytes.
std::size_t memoryOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) return std::stoul(line.substr(8));
  }
  throw std::runtime_error("no memory use is known");
}

TEST_F(RecordTest, TakesAtMostFourMegabytesHoweverMuchIsRecorded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat", "--speed", "max"});
  Process process(wlhid({"record", id, file(), "--sensitive"}), options());
  std::size_t most = 0;
  for (const std::uintmax_t size : {20'000, 200'000, 600'000}) {
    waitForSize(size);
    most = std::max(most, memoryOf(process.pid()));
  }
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_LE(most, 4096U);
  RecordProperty("kilobytes", static_cast<int>(most));
}

}  // namespace
}  // namespace test
