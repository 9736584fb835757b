// SPDX-License-Identifier: Apache-2.0

#include "tool/report/Summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <sstream>

#include "tests/support/TemporaryDirectory.h"
#include "tool/report/LastError.h"

namespace tool {
namespace {

using testsupport::writeFile;

const std::string kHead = "Nov 21 03:12:46 host com.quillmar.hideventrouter[345]: ";
const ReportOrigin kOrigin{"2026-11-22T18:00:00Z", "wlhid 1.0", "Linux 6.1.0", "x86_64", "Debian"};

class SummaryTest : public testing::Test {
 protected:
  [[nodiscard]] Inventory inventory() const {
    const RouterCopy copy{"/a path", "1.0", CopyState::Complete, {}, nullptr};
    Inventory result{platform::SystemRoot(directory_.path()), {}, {}, {}, {}, {}, {}, {}, {}};
    result.presence = {true, {copy, copy, {}, {}}, {}};
    return result;
  }
  static std::string textOf(const Summary& summary, std::string_view row) {
    for (const auto& each : summary.rows) {
      if (each.name == row) return each.text;
    }
    return "(no such row)";
  }
  static Summary shown(const Inventory& inventory, const Diagnosis& diagnosis,
                       std::optional<std::string> lastError = {}, bool whole = false) {
    DeviceOrder devices;
    return summaryOf({inventory, diagnosis, kOrigin, {}, std::move(lastError)}, whole, devices);
  }

  const testsupport::TemporaryDirectory directory_;
};

TEST_F(SummaryTest, SaysOfEachFailedCheckWhatIsWrongAndWhatHelps) {
  const Diagnosis diagnosis{
      "Ill.",
      false,
      {passed("log", "/a path"),
       failed("system root", "it is not so", "/a path is not so", "make it so", "chmod /a path")}};
  const Summary summary = shown(inventory(), diagnosis);
  EXPECT_EQ(summary.verdict, "Ill.");
  ASSERT_EQ(summary.faults.size(), 1U);
  EXPECT_EQ(summary.faults[0].check, "system root");
  EXPECT_EQ(summary.faults[0].fault, "it is not so");
  EXPECT_EQ(summary.faults[0].advice, "make it so");
  const Summary whole = shown(inventory(), diagnosis, {}, true);
  EXPECT_EQ(whole.faults[0].fault, "/a path is not so");
  EXPECT_EQ(whole.faults[0].advice, "make it so: chmod /a path");
  EXPECT_NE(whole.note, summary.note);
}

TEST_F(SummaryTest, HasVersionsAndTheRoutersState) {
  Inventory found = inventory();
  EXPECT_EQ(textOf(shown(found, {}), "Versions"),
            "this program's router 1.0, installed 1.0, running none");
  EXPECT_EQ(textOf(shown(found, {}), "Router"), "not running");
  found.presence.versions.bundle.state = CopyState::Unreadable;
  found.presence.versions.installed.reset();
  found.router = router::RouterStatus{77, "0.9", 3, {{}}, true};
  EXPECT_EQ(textOf(shown(found, {}), "Versions"),
            "this program's router unusable, installed none, running 0.9");
  EXPECT_EQ(textOf(shown(found, {}), "Router"), "process 77, 1 session, reports lost: 3");
  found.system.emplace();
  found.router.reset();
  EXPECT_EQ(textOf(shown(found, {}), "Router"), "cannot be asked");
  found.system->router.asked = true;
  EXPECT_EQ(textOf(shown(found, {}), "Router"), "does not answer");
}

TEST_F(SummaryTest, NamesDevicesByTheirNumbersAndTellsTheirClass) {
  Inventory found = inventory();
  EXPECT_EQ(textOf(shown(found, {}), "Devices"), "none");
  found.devices.devices = {{0x10001, "Pen", 3, 1, 2, "hidraw0"},
                           {0x10002, "Keyboard", 3, 1, 3, {}}};
  found.system.emplace();
  EXPECT_EQ(textOf(shown(found, {}), "device 1"), "its class is not known");
  found.system->router.devices = {{found.devices.devices[0],
                                   router::DeviceClass::Ordinary,
                                   {},
                                   {},
                                   {},
                                   router::DevicePermission::Yes,
                                   {}},
                                  {found.devices.devices[1],
                                   router::DeviceClass::Sensitive,
                                   {},
                                   {},
                                   {},
                                   router::DevicePermission::Administrator,
                                   {}}};
  EXPECT_EQ(textOf(shown(found, {}), "device 1"), "ordinary; this user may route it");
  EXPECT_EQ(textOf(shown(found, {}), "device 2"),
            "sensitive; an administrator has to agree each time");
  EXPECT_EQ(textOf(shown(found, {}, {}, true), "device 1"),
            "Pen (0x10001): ordinary; this user may route it");
  for (std::uint64_t id = 3; id <= 12; ++id) found.devices.devices.push_back({id, {}, 3, 1, 2, {}});
  EXPECT_EQ(textOf(shown(found, {}), "Devices"), "4 more devices in devices.json");
}

TEST_F(SummaryTest, ARecordingsClassIsThatOfItsDescriptor) {
  writeFile(directory_.path() / "mouse.hid",
            "R: 19 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 06 c0\nN: Mouse\n");
  const std::uint64_t id =
      router::addReplayDevice(platform::SystemRoot(directory_.path()),
                              {"", directory_.path() / "mouse.hid", {}, false, {}});
  Inventory found = inventory();
  found.devices = devicesOf(found.root);
  ASSERT_EQ(found.devices.devices.size(), 1U);
  EXPECT_EQ(found.devices.devices[0].registryEntryID, id);
  EXPECT_EQ(textOf(shown(found, {}), "device 1"), "sensitive; a recording");
}

TEST_F(SummaryTest, ATrialTellsHowFarItGot) {
  const Inventory found = inventory();
  DeviceOrder devices;
  const TrialResult trial{5, {}, {"no such device"}, {-536870208, 4711220033}, 0, "refused"};
  EXPECT_EQ(textOf(summaryOf({found, {}, kOrigin, trial, {}}, false, devices), "Trial"),
            "device 1: refused, code -536870208, code <private>");
  EXPECT_EQ(textOf(summaryOf({found, {}, kOrigin, trial, {}}, true, devices), "Trial"),
            "0x5: refused, code -536870208 (no such device), code <private>");
}

TEST_F(SummaryTest, TheLastErrorIsALineOfTheLogAsAReportShowsIt) {
  Inventory found = inventory();
  EXPECT_EQ(textOf(shown(found, {}), "Last error"), "none in the log");
  const std::string line = kHead + "cannot write the status file: /a path: full";
  EXPECT_EQ(textOf(shown(found, {}, line), "Last error"),
            "Nov 21 03:12:46 <private> com.quillmar.hideventrouter[345]: cannot write the status "
            "file: <private>");
  EXPECT_EQ(textOf(shown(found, {}, line, true), "Last error"), line);
  found.log.problem = "no";
  EXPECT_EQ(textOf(shown(found, {}, line), "Last error"), "the log cannot be read");
}

TEST_F(SummaryTest, ThePageHoldsMarkupOfItsOwnAlone) {
  Summary summary{"<b>", false, {{"<i>", "<u>", "<s>"}}, {{"<q>", "<script>"}}, "<hr>"};
  const std::string page = summaryPage(summary);
  for (const char* mark : {"<b>", "<i>", "<u>", "<s>", "<q>", "<script", "<hr>"})
    EXPECT_EQ(page.find(mark), std::string::npos) << mark;
  EXPECT_NE(page.find("<p class=\"verdict fault\">&lt;b&gt;</p>"), std::string::npos);
  EXPECT_NE(page.find("content=\"default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; "
                      "form-action 'none'\""),
            std::string::npos);
  summary.faults.clear();
  EXPECT_EQ(summaryPage(summary).find("What is wrong"), std::string::npos);
}

/// The lines that a reader sees.
std::vector<std::string> linesOf(const std::string& page) {
  std::string text = page.substr(page.find("<body>"));
  text = std::regex_replace(text, std::regex("\n"), "");
  text = std::regex_replace(text, std::regex("</(h1|h2|p|tr)>"), "\n");
  std::istringstream in(std::regex_replace(text, std::regex("<[^>]*>"), " "));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    if (line.find_first_not_of(' ') != std::string::npos) lines.push_back(line);
  return lines;
}

TEST_F(SummaryTest, ThePagesFirstTenLinesSayWhatIsWrongHoweverMuchItIs) {
  using testing::AllOf;
  using testing::Contains;
  using testing::HasSubstr;
  using testing::Not;
  Summary summary;
  summary.verdict = "Very ill.";
  for (int i = 1; i <= 9; ++i)
    summary.faults.push_back({"check " + std::to_string(i), "fault " + std::to_string(i), "help"});
  for (int i = 1; i <= 12; ++i) summary.rows.push_back({"device " + std::to_string(i), "ordinary"});
  const auto lines = linesOf(summaryPage(summary));
  ASSERT_GT(lines.size(), 24U);
  const std::vector first(lines.begin(), lines.begin() + 10);
  for (const char* const expected : {"Very ill.", "fault 1 ", "fault 2 ", "fault 3 ", "and 6 more"})
    EXPECT_THAT(first, Contains(HasSubstr(expected)));
  EXPECT_THAT(lines, AllOf(Contains(HasSubstr("fault 9 ")), Contains(HasSubstr("device 12"))));
  summary.faults.resize(3);
  EXPECT_THAT(linesOf(summaryPage(summary)),
              AllOf(Not(Contains(HasSubstr(" more"))), Not(Contains(HasSubstr("else is wrong")))));
}

// ---- The last error of a log

TEST_F(SummaryTest, OfSeveralErrorsTheLastIsFound) {
  const std::string log = directory_.path() / "log";
  EXPECT_EQ(lastErrorIn(log), std::nullopt);
  writeFile(log, "");
  EXPECT_EQ(lastErrorIn(log), std::nullopt);
  writeFile(log, "a line\n" + kHead + "router ends\n");
  EXPECT_EQ(lastErrorIn(log), std::nullopt);
  const std::string first = kHead + "the router cannot run: one";
  const std::string last = kHead + "the router cannot run: two";
  writeFile(log, first + "\n" + last + "\n" + kHead + "nobody is connected\n\nx\n");
  EXPECT_EQ(lastErrorIn(log), last);
  writeFile(log, first);
  EXPECT_EQ(lastErrorIn(log), first);
}

TEST_F(SummaryTest, AnErrorFarBackInALongLogIsNotSought) {
  const std::string log = directory_.path() / "log";
  std::string filler;
  while (filler.size() < (std::size_t{256} << 10)) filler += kHead + "nobody is connected\n";
  writeFile(log, kHead + "the router cannot run: one\n" + filler);
  EXPECT_EQ(lastErrorIn(log), std::nullopt);
  const std::string last = kHead + "the router cannot run: two";
  writeFile(log, filler + last + "\n");
  EXPECT_EQ(lastErrorIn(log), last);
}

TEST_F(SummaryTest, AJobThatExitsIsAnErrorUnlessItsStatusIsZero) {
  const std::string daemon =
      "Nov 21 03:12:46 host wlhid-jobd[3]: com.quillmar.hideventrouter[345] ";
  EXPECT_FALSE(isErrorLine(daemon + "exited with status 0"));
  EXPECT_TRUE(isErrorLine(daemon + "exited with status 1"));
  EXPECT_TRUE(isErrorLine(daemon + "ended by signal 9"));
  EXPECT_FALSE(isErrorLine("the router cannot run: one"));
}

}  // namespace
}  // namespace tool
