// SPDX-License-Identifier: Apache-2.0

// The first page of wlhid report, in a real browser.
#include <gmock/gmock.h>

#include "Browser.h"
#include "Situations.h"
#include "tests/support/ArchiveReader.h"

namespace test {
namespace {

using nlohmann::json;

class SummaryPageTest : public SituationTest {
 protected:
  /// What a browser sees of the first page of a report made now.
  [[nodiscard]] json browse(const std::string& name, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"report", directory / (name + ".zip")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome made = runTool(arguments);
    EXPECT_EQ(made.status, 0) << made.err;
    const auto page = directory / (name + ".html");
    writeFile(page, testsupport::readArchive(arguments[1])["wlhid-report/summary.html"]);
    const json seen = seenInBrowser("summary_page.py", page);
    EXPECT_EQ(seen["console"], json::array());
    EXPECT_EQ(seen["requests"], json::array()) << "the page must need nothing else";
    EXPECT_NE(seen["light"]["background"], seen["dark"]["background"]);
    EXPECT_EQ(seen["light"]["overflows"], false) << "it is wider than the window";
    return seen;
  }

  void SetUp() override {
    if (!hasBrowser()) GTEST_SKIP() << kNoBrowser;
  }
};

TEST_F(SummaryPageTest, SaysThatAllIsInOrder) {
  install();
  addDevice("qemu-usb-tablet.hid");
  const json seen = browse("in-order");
  EXPECT_EQ(seen["heading"], "Diagnostic report of the HID event router");
  EXPECT_EQ(seen["light"]["verdict"], "The router is installed, current and in order.");
  EXPECT_EQ(seen["light"]["faults"], json::array());
  EXPECT_THAT(seen["light"]["names"].get<std::vector<std::string>>(),
              testing::IsSupersetOf({"Versions", "Router", "device 1", "Last error", "Made"}));
  EXPECT_LE(seen["light"]["lines"], 24) << "a page to read at a glance";
}

TEST_F(SummaryPageTest, SaysWhatIsWrongAndWhatHelps) {
  install();
  makeOutdated();
  const json seen = browse("outdated");
  EXPECT_NE(seen["light"]["verdict"], "The router is installed, current and in order.");
  EXPECT_FALSE(seen["light"]["faults"].empty());
}

TEST_F(SummaryPageTest, OfManyFaultsTheFirstTenLinesHaveTheFirst) {
  install();
  for (int i = 0; i < 10; ++i) addDevice("qemu-usb-tablet.hid", {"--name", std::to_string(i)});
  writeFile(root / "etc/hideventrouter/broken.plist", "no list");
  std::filesystem::remove(systemLog());
  std::filesystem::create_directory(systemLog());
  makeOutdated();
  const json seen = browse("sick");
  EXPECT_GE(seen["light"]["faults"].size(), 3U) << seen;
  EXPECT_LE(seen["light"]["linesOfFaults"], 10) << "of what a person sees first";
  EXPECT_GT(seen["light"]["lines"], seen["light"]["linesOfFaults"]) << "what was found follows";
}

TEST_F(SummaryPageTest, ANameThatInjectsMarkupDoesNothing) {
  install();
  const std::string name =
      "</td><script>window.hacked=1</script><img src=x onerror=window.hacked=2>";
  addDevice("qemu-usb-tablet.hid", {"--name", name});
  const json seen = browse("hostile", {"--with-input"});
  EXPECT_TRUE(seen["hacked"].is_null());
  EXPECT_THAT(seen["light"]["text"].get<std::string>(), testing::HasSubstr(name));
}

}  // namespace
}  // namespace test
