// SPDX-License-Identifier: Apache-2.0

// wlhid route --recording: a recording, played once through a temporary router.
#include <sched.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string withoutBlanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

/// The reports of a recording as hexadecimal text, from its own lines ("E: time length bytes").
std::vector<std::string> recordedReports(const fs::path& file) {
  std::vector<std::string> reports;
  for (const std::string& line : linesOf(readFile(file))) {
    if (!line.starts_with("E:")) continue;
    std::size_t at = 2;
    for (int field = 0; field < 2; ++field) at = line.find(' ', line.find_first_not_of(' ', at));
    reports.push_back(withoutBlanks(at == std::string::npos ? "" : line.substr(at)));
  }
  return reports;
}

/// The file's text, decompressed if necessary.
std::string readOracle(const fs::path& file) {
  if (file.extension() != ".gz") return readFile(file);
  return run({"gzip", "-dc", file}).out;
}

class RecordingTest : public ToolTest {
 protected:
  [[nodiscard]] Outcome play(const fs::path& file,
                             const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"route", "--recording", file};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runTool(arguments);
  }
  void expectNothingLeft() {
    expectNoProcessLeft();
    EXPECT_TRUE(fs::is_empty(directory)) << fs::directory_iterator(directory)->path();
  }
  /// Waits until `relative` exists below the command's temporary root, or the command has ended.
  void waitForTemporary(const std::string& relative, pid_t process) const {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (::kill(process, 0) == 0) {
      for (const auto& entry : fs::directory_iterator(directory)) {
        if (fs::exists(entry.path() / relative)) return;
      }
      if (std::chrono::steady_clock::now() > deadline)
        throw std::runtime_error(relative + " did not come about in time");
      ::sched_yield();
    }
  }
  static fs::path ownRecording(std::string_view name) { return sourcePath("recordings") / name; }
};

TEST_F(RecordingTest, DeliversEveryReportOnceInOrder) {
  for (const char* name : {"qemu-usb-kbd.hid", "qemu-usb-mouse.hid", "qemu-usb-tablet.hid"}) {
    const Outcome outcome = play(ownRecording(name), {"--speed", "max", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    const auto lines = jsonLines(outcome.out);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], (json{{"status", 2}}));
    EXPECT_EQ(lines[1], (json{{"status", 4}}));
    std::vector<std::string> delivered;
    for (std::size_t i = 2; i < lines.size(); ++i) {
      if (lines[i].contains("report")) delivered.push_back(lines[i]["report"]["data"]);
    }
    EXPECT_EQ(delivered, recordedReports(ownRecording(name))) << name;
    EXPECT_TRUE(lines.back().contains("ended")) << lines.back();
    EXPECT_EQ(lines.size(), 3 + 2 * delivered.size())
        << "a report without its values, or something else";
  }
}

TEST_F(RecordingTest, MayBeReachedThroughLinks) {
  fs::create_directory_symlink(sourcePath("recordings"), directory / "linked");
  fs::create_symlink(directory / "linked/qemu-usb-kbd.hid", directory / "link");
  const std::vector<std::string> options{"--speed", "max", "--json", "--count", "3"};
  const Outcome linked = play(directory / "link", options);
  EXPECT_EQ(linked.status, 0) << linked.err;
  EXPECT_EQ(linked.out, play(ownRecording("qemu-usb-kbd.hid"), options).out);
}

TEST_F(RecordingTest, LeavesNothingBehind) {
  EXPECT_EQ(play(ownRecording("qemu-usb-kbd.hid"), {"--speed", "max", "--json"}).status, 0);
  expectNothingLeft();
}

TEST_F(RecordingTest, LeavesNothingBehindWhenInterrupted) {
  Process process(wlhid({"route", "--recording", ownRecording("qemu-usb-kbd.hid"), "--json",
                         "--speed", "0.01"}),
                  options());
  process.waitForOutputContaining("report");
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.errorOutput(), "");
  expectNothingLeft();
}

TEST_F(RecordingTest, LeavesNothingBehindWhenKilled) {
  Process process(wlhid({"route", "--recording", ownRecording("qemu-usb-kbd.hid"), "--json",
                         "--speed", "0.01"}),
                  options());
  process.waitForOutputContaining("report");
  process.signal(SIGKILL);
  EXPECT_EQ(process.wait(), 128 + SIGKILL);
  expectNothingLeft();
}

/// Killed at every stage: as soon as it runs, and as soon as each of the things that it creates
/// exists. WLHID_ROUNDS says how often.
TEST_F(RecordingTest, LeavesNothingBehindWheneverItIsKilled) {
  const char* const wanted = std::getenv("WLHID_ROUNDS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : 2;
  const std::vector<std::string> moments{
      "",
      "var",
      "var/run/jobd.lock",
      "var/run/jobd.sock",
      "etc/hideventrouter",
      "Library/PrivilegedHelperTools/com.quillmar.hideventrouter",
      "Library/LaunchDaemons/com.quillmar.hideventrouter.plist",
      "var/run/com.quillmar.hideventrouter.sock",
      "var/run/com.quillmar.hideventrouter.status.plist"};
  for (const int number : {SIGKILL, SIGQUIT}) {
    for (int i = 0; i < rounds; ++i) {
      for (std::size_t moment = 0; moment <= moments.size(); ++moment) {
        Process process({"prlimit", "--core=0", builtPath("wlhid"), "route", "--recording",
                         ownRecording("qemu-usb-kbd.hid"), "--json", "--speed", "0.01"},
                        options());
        if (moment < moments.size()) waitForTemporary(moments[moment], process.pid());
        process.signal(number);
        EXPECT_EQ(process.wait(), 128 + number);
        expectNothingLeft();
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(RecordingTest, LeavesNothingBehindWhenTheReaderGoesAway) {
  Process process(wlhid({"route", "--recording", ownRecording("qemu-usb-kbd.hid"), "--json"}),
                  options());
  process.waitForOutputContaining("report");
  process.closeOutput();
  EXPECT_EQ(process.wait(), 0);
  expectNothingLeft();
}

TEST_F(RecordingTest, TheCountMayEndItEarlier) {
  const Outcome outcome =
      play(ownRecording("qemu-usb-kbd.hid"), {"--count", "3", "--json", "--speed", "max"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(jsonLines(outcome.out).size(), 8U) << outcome.out;
}

TEST_F(RecordingTest, WhatCannotBePlayedIsRefused) {
  writeFile(directory / "text", "only text\n");
  writeFile(directory / "packed.gz", "\x1f\x8b\x08");
  writeFile(directory / "values.jsonl", "{\"report\":1}\n");
  EXPECT_TRUE(isRefusal(play(directory / "missing"), 1, "missing"));
  EXPECT_TRUE(isRefusal(play(directory), 1, directory.string()));
  EXPECT_TRUE(isRefusal(play(directory / "text"), 1, "text"));
  EXPECT_TRUE(isRefusal(play(directory / "packed.gz"), 1, "gzip"));
  EXPECT_TRUE(isRefusal(play(directory / "values.jsonl"), 1, "JSON"));
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 3) << "a root was left behind";
}

TEST_F(RecordingTest, WithoutReportsItEndsAtOnce) {
  writeFile(directory / "silent", "R: 2 05 01\nN: Silent\nI: 3 0001 0002\n");
  const Outcome outcome = play(directory / "silent", {"--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(jsonLines(outcome.out).back().contains("ended")) << outcome.out;
}

TEST_F(RecordingTest, MayComeFromStandardInput) {
  const std::string command = builtPath("wlhid").string() + " --root " + root.string() +
                              " route --recording - --speed max --json";
  const Outcome outcome =
      run({"sh", "-c", "cat '" + ownRecording("qemu-usb-kbd.hid").string() + "' | " + command},
          options());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(jsonLines(outcome.out).size(),
            3 + 2 * recordedReports(ownRecording("qemu-usb-kbd.hid")).size());
  const Outcome wrong = run({"sh", "-c", "echo nonsense | " + command}, options());
  EXPECT_TRUE(isRefusal(wrong, 1, "wlhid: standard input:1: is not a line of a recording"));
  expectNothingLeft();
}

TEST_F(RecordingTest, WithoutAPlaceForItsRootItIsRefused) {
  ProcessOptions nowhere = options();
  writeFile(directory / "file", "x");
  nowhere.environment[0].second = directory / "file";  // TMPDIR
  const Outcome outcome = run(
      wlhid({"route", "--recording", ownRecording("qemu-usb-kbd.hid"), "--speed", "max"}), nowhere);
  EXPECT_EQ(outcome.status, 0) << "an unusable TMPDIR is skipped: " << outcome.err;
}

/// The output of an independent decoder for the same recordings, kept beside the source tree.
TEST_F(RecordingTest, AgreesWithTheReferenceValues) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no reference values beside the source tree";
  std::size_t compared = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    const fs::path recording = entry.path();
    if (recording.extension() != ".hid") continue;
    fs::path oracle = recording;
    oracle.replace_extension(".jsonl");
    if (!fs::exists(oracle)) oracle += ".gz";
    ASSERT_TRUE(fs::exists(oracle)) << oracle;
    const Outcome outcome = play(recording, {"--speed", "max", "--json"});
    ASSERT_EQ(outcome.status, 0) << recording << ": " << outcome.err;

    json delivered = json::array();
    for (const json& line : jsonLines(outcome.out)) {
      if (line.contains("report"))
        delivered.push_back({{"id", line["report"]["id"]}, {"values", json::array()}});
      if (!line.contains("elements")) continue;
      for (const json& value : line["elements"]) {
        delivered.back()["values"].push_back(
            {value["reportID"], value["usagePage"], value["usage"], value["integerValue"]});
      }
    }
    json expected = json::array();
    for (const json& line : jsonLines(readOracle(oracle))) {
      json values = json::array();
      for (const json& value : line["values"]) {
        values.push_back({value["report_id"], value["usage_page"], value["usage"], value["value"]});
      }
      expected.push_back({{"id", line["report_id"]}, {"values", values}});
    }
    EXPECT_TRUE(delivered == expected)
        << recording << ": " << delivered.size() << " reports, expected " << expected.size();
    ++compared;
  }
  EXPECT_GT(compared, 0U);
}

}  // namespace
}  // namespace test
