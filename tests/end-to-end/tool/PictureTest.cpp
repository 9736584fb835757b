// SPDX-License-Identifier: Apache-2.0

// wlhid picture, in a real browser.
#include "Browser.h"
#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class PictureTest : public ToolTest {
 protected:
  /// What a browser sees of the recording's page while somebody uses it.
  [[nodiscard]] json browse(const fs::path& recording) const {
    const fs::path page = directory / (recording.stem().string() + ".html");
    const Outcome drawn = runTool({"picture", recording, "-o", page});
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    return seenInBrowser("picture_page.py", page);
  }
  static fs::path own(std::string_view name) { return sourcePath("recordings") / name; }
  /// "246 of 246 reports": the first number.
  static int foundIn(const json& state) { return std::stoi(state["found"].get<std::string>()); }

  void SetUp() override {
    if (!hasBrowser()) GTEST_SKIP() << kNoBrowser;
  }
};

TEST_F(PictureTest, ThePageWorksInABrowser) {
  const json seen = browse(own("qemu-usb-tablet.hid"));
  EXPECT_EQ(seen["console"], json::array());
  EXPECT_EQ(seen["requests"], json::array()) << "the page must need nothing else";
  EXPECT_EQ(seen["heading"], "QEMU QEMU USB Tablet");
  EXPECT_NE(seen["light"]["background"], seen["dark"]["background"]);
  EXPECT_GT(foundIn(seen["light"]), 0);
}

TEST_F(PictureTest, ZoomingShowsAPartOfTheTime) {
  const json seen = browse(own("qemu-usb-tablet.hid"));
  EXPECT_NE(seen["zoomed"]["window"], seen["light"]["window"]);
  EXPECT_NE(seen["zoomed"]["charts"], seen["light"]["charts"]);
  EXPECT_LT(foundIn(seen["zoomed"]), foundIn(seen["light"])) << "the table follows";
  EXPECT_GT(foundIn(seen["zoomed"]), 0);
  EXPECT_NE(seen["later"]["window"], seen["zoomed"]["window"]);
  EXPECT_NE(seen["later"]["charts"], seen["zoomed"]["charts"]);
  EXPECT_EQ(seen["earlier"]["window"], seen["zoomed"]["window"]) << "there and back";
  EXPECT_EQ(seen["earlier"]["charts"], seen["zoomed"]["charts"]);
  EXPECT_GT(foundIn(seen["out"]), foundIn(seen["zoomed"]));
  EXPECT_LT(foundIn(seen["out"]), foundIn(seen["light"])) << "out once, after in twice";
  EXPECT_NE(seen["dragged"]["window"], seen["light"]["window"]);
  EXPECT_EQ(seen["doubleClicked"]["window"], seen["light"]["window"]);
  EXPECT_EQ(seen["whole"]["window"], seen["light"]["window"]);
  EXPECT_EQ(seen["whole"]["charts"], seen["light"]["charts"])
      << "the script draws what the command drew";
}

TEST_F(PictureTest, TheTableFilters) {
  const json seen = browse(own("qemu-usb-mouse.hid"));
  EXPECT_GT(foundIn(seen["filtered"]), 0);
  EXPECT_LT(foundIn(seen["filtered"]), foundIn(seen["light"]));
  const std::string row = seen["filtered"]["firstRow"];
  EXPECT_NE(row.find(seen["bytes"].get<std::string>()), std::string::npos) << row;
  EXPECT_EQ(seen["refused"]["rows"], 0);
  EXPECT_NE(seen["refused"]["found"].get<std::string>().find("two digits"), std::string::npos);
  EXPECT_GT(foundIn(seen["changes"]), 0);
}

TEST_F(PictureTest, TheTableShowsTheReportsOfOneID) {
  std::string text =
      "R: 39 05 01 09 06 a1 01 85 02 05 07 19 00 29 10 15 00 25 10 75 08 95 02 81 00 "
      "85 03 05 01 09 38 15 81 25 7f 95 01 81 06 c0\nN: Keys and Wheel\n";
  for (int i = 0; i < 5; ++i)
    text += "E: 0.0" + std::to_string(i) + "0000 " + (i < 3 ? "3 02 04 00\n" : "2 03 01\n");
  writeFile(directory / "ids.hid", text);
  const json seen = browse(directory / "ids.hid");
  EXPECT_EQ(foundIn(seen["light"]), 5);
  EXPECT_EQ(foundIn(seen["ofOneID"]), 2) << "of the last ID";
  EXPECT_NE(seen["ofOneID"]["firstRow"].get<std::string>().find("03"), std::string::npos);
  EXPECT_EQ(foundIn(seen["ofAnyID"]), 5);
}

TEST_F(PictureTest, KeysAreFollowedAsTheCommandFollowsThem) {
  const json seen = browse(own("qemu-usb-kbd.hid"));
  EXPECT_EQ(seen["console"], json::array());
  EXPECT_NE(seen["light"]["charts"], "") << "no key was down";
  EXPECT_EQ(seen["whole"]["charts"], seen["light"]["charts"]);
}

TEST_F(PictureTest, ANameThatInjectsMarkupDoesNothing) {
  const std::string name =
      "</title></style></script><script>window.hacked=1</script><img src=x "
      "onerror=window.hacked=2>";
  std::string text = readFile(own("qemu-usb-tablet.hid"));
  const std::size_t at = text.find("N: ");
  text.replace(at, text.find('\n', at) - at, "N: " + name);
  writeFile(directory / "hostile.hid", text);
  const json seen = browse(directory / "hostile.hid");
  EXPECT_TRUE(seen["hacked"].is_null());
  EXPECT_EQ(seen["heading"], name);
  EXPECT_EQ(seen["title"], name);
  EXPECT_EQ(seen["console"], json::array());
  EXPECT_EQ(seen["requests"], json::array());
}

TEST(ReadmePictures, AreWhatTheCommandDraws) {
  const Outcome outcome = run({"env", "WLHID=" + builtPath("wlhid").string(),
                               sourcePath("scripts/pictures").string(), "--check"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

/// Recordings of real devices that are kept beside the source tree.
TEST_F(PictureTest, DrawsEveryRecording) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t drawn = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const json seen = browse(entry.path());
    EXPECT_EQ(seen["console"], json::array()) << entry.path();
    EXPECT_GT(foundIn(seen["light"]), 0) << entry.path();
    EXPECT_EQ(seen["whole"]["charts"], seen["light"]["charts"]) << entry.path();
    ++drawn;
  }
  EXPECT_GT(drawn, 0U);
}

}  // namespace
}  // namespace test
