// SPDX-License-Identifier: Apache-2.0

// How a recording is drawn: its charts, its packed reports and its page.
#include <archive.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <regex>

#include "platform/foundation/Base64.h"
#include "platform/foundation/Format.h"
#include "tests/unit/tool/VerbTest.h"
#include "tool/picture/PackedReports.h"
#include "tool/picture/Page.h"
#include "tool/picture/PictureData.h"
#include "tool/picture/Svg.h"
#include "tool/picture/SvgCharts.h"

namespace tool {
namespace {

using platform::stringWithFormat;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A button, seven bits of padding, X and Y from 0 to 255.
const std::string kPointer =
    "R: 40 05 01 09 02 a1 01 05 09 09 01 15 00 25 01 75 01 95 01 81 02 75 07 81 01 05 01 09 30 09 "
    "31 26 ff 00 75 08 95 02 81 02 c0\n";
/// Two slots for keys, report 2; a wheel, report 3.
const std::string kKeys =
    "R: 39 05 01 09 06 a1 01 85 02 05 07 19 00 29 10 15 00 25 10 75 08 95 02 81 00 85 03 05 01 09 "
    "38 15 81 25 7f 95 01 81 06 c0\n";

/// Without printing the page where it is not so.
bool has(const std::string& page, std::string_view text) {
  return page.find(text) != std::string::npos;
}

class PictureTest : public testing::Test {
 protected:
  PictureData pictureOf(const std::string& text) {
    testsupport::writeFile(file_, text);
    return readPicture(file_, 0);
  }
  PictureData pointerWith(const std::vector<std::string>& reports,
                          const std::string& name = "Pen") {
    std::string text = kPointer + "N: " + name + "\nI: 3 1 2\n";
    for (const std::string& report : reports) text += "E: " + report + "\n";
    return pictureOf(text);
  }
  /// A pointer whose reports are all different, at about 1000 a second.
  PictureData noisyPointer(int reports) {
    std::mt19937 random(5);
    std::string text = kPointer + "N: Noise\nI: 3 1 2\n";
    for (int i = 0; i < reports; ++i) {
      const auto number = static_cast<unsigned>(random());
      appendTime(text, i * 1000 + static_cast<int>(number % 500));
      text += " 3";
      appendHex(text, static_cast<std::uint8_t>(number >> 31U));
      appendHex(text, static_cast<std::uint8_t>(number >> 8U));
      appendHex(text, static_cast<std::uint8_t>(number >> 16U));
      text += '\n';
    }
    return pictureOf(text);
  }
  /// "E: 12.000345"; plain, because there are many.
  static void appendTime(std::string& text, int microseconds) {
    text += "E: " + std::to_string(microseconds / 1'000'000) + ".";
    text += std::to_string(1'000'000 + microseconds % 1'000'000).substr(1);
  }
  static void appendHex(std::string& text, std::uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text += ' ';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xfU];
  }

  const testsupport::TemporaryDirectory directory_;
  const std::string file_ = directory_.path() / "r.hid";
};

TEST(Escaping, LeavesNoMarkup) {
  EXPECT_EQ(escaped("<b a=\"1\" c='2'>&"), "&lt;b a=&quot;1&quot; c=&#39;2&#39;&gt;&amp;");
  EXPECT_THAT(escaped("a\x1b\u202e"), Not(HasSubstr("\x1b")));
}

TEST(Coordinates, HaveAtMostOneDecimal) {
  const auto text = [](double number) {
    std::string out;
    appendCoordinate(out, number);
    return out;
  };
  EXPECT_EQ(text(12), "12");
  EXPECT_EQ(text(12.34), "12.3");
  EXPECT_EQ(text(12.96), "13");
  EXPECT_EQ(text(-0.26), "-0.3");
  EXPECT_EQ(text(-12.5), "-12.5");
  EXPECT_EQ(text(-0.01), "0");
}

TEST(Scales, MapEndsToEnds) {
  const Scale scale{10, 20, 100, 0};
  EXPECT_EQ(scale(10), 100);
  EXPECT_EQ(scale(20), 0);
  EXPECT_EQ((Scale{5, 5, 0, 10})(5), 5) << "in the middle of nothing";
}

TEST_F(PictureTest, TimeNeverRunsBackwards) {
  const auto data = pointerWith(
      {"5.000000 3 00 00 00", "5.000100 3 00 01 00", "0.000000 3 00 02 00", "0.000050 3 00 03 00"});
  EXPECT_THAT(data.reports.times, ElementsAre(0, 100, 100, 150));
  EXPECT_TRUE(data.reports.hasTimes);
}

TEST_F(PictureTest, WithoutTimesReportsAreNumbered) {
  const auto data = pointerWith({"0.0 3 00 00 00", "0.0 3 01 01 00", "0.0 3 00 02 00"});
  EXPECT_FALSE(data.reports.hasTimes);
  EXPECT_THAT(data.reports.times, ElementsAre(0, 1, 2));
  EXPECT_FALSE(intervalChart(data).has_value());
  EXPECT_THAT(axisChart(data.axes[0], data.reports).body, HasSubstr("report 2"));
}

TEST_F(PictureTest, FollowsAxesAndButtons) {
  const auto data =
      pointerWith({"0.000000 3 00 05 09", "0.000010 3 01 06 09", "0.000020 3 00 06 09",
                   "0.000030 3 01 06 09", "0.000050 3 01 06 09"});
  ASSERT_EQ(data.axes.size(), 2U);
  EXPECT_THAT(data.axes[0].values, ElementsAre(5, 6, 6, 6, 6));
  EXPECT_TRUE(data.axes[0].moves());
  EXPECT_FALSE(data.axes[1].moves());
  ASSERT_EQ(data.switches.size(), 1U);
  const auto& spans = data.switches[0].spans;
  ASSERT_EQ(spans.size(), 2U);
  EXPECT_EQ(spans[0].from, 10);
  EXPECT_EQ(spans[0].to, 20);
  EXPECT_EQ(spans[1].from, 30);
  EXPECT_EQ(spans[1].to, 50) << "down until the end";
}

TEST_F(PictureTest, FollowsKeysThroughTheSlotsOfTheirReport) {
  const auto data = pictureOf(kKeys +
                              "E: 0.000000 3 02 04 00\nE: 0.000010 3 02 05 04\n"
                              "E: 0.000020 2 03 01\nE: 0.000030 3 02 05 00\n"
                              "E: 0.000040 3 02 00 00\n");
  std::vector<std::string> used;
  for (const SwitchTrack* track : usedSwitches(data)) {
    used.push_back(track->control.name +
                   stringWithFormat(" %lld-%lld", track->spans[0].from, track->spans[0].to));
    EXPECT_EQ(track->spans.size(), 1U);
  }
  EXPECT_THAT(used, ElementsAre("A 0-30", "B 10-40"));
}

TEST_F(PictureTest, APathNeedsTwoAxesThatMove) {
  EXPECT_FALSE(pathChart(pictureOf(kKeys + "E: 0.0 2 03 01\n")).has_value());
  EXPECT_FALSE(pathChart(pointerWith({"0.0 3 00 05 05", "0.1 3 00 05 05"})).has_value());
  const auto chart = pathChart(pointerWith({"0.0 3 00 05 05", "0.1 3 00 50 05"}));
  ASSERT_TRUE(chart.has_value());
  EXPECT_THAT(chart->body, Not(HasSubstr("p0"))) << "nothing says that it hovers";
}

TEST_F(PictureTest, ThePathShowsWhereItTouches) {
  const auto chart =
      pathChart(pointerWith({"0.000000 3 00 00 00", "0.000010 3 00 64 00", "0.000020 3 01 64 64",
                             "0.000030 3 01 00 64", "0.000040 3 00 00 00"}));
  ASSERT_TRUE(chart.has_value());
  EXPECT_THAT(chart->body, HasSubstr("<path class=\"way p0\" d=\"M12 12L"));
  EXPECT_THAT(chart->body, HasSubstr("<path class=\"way p4\" d=\""));
}

TEST_F(PictureTest, ThePathIsWiderWithPressureAndDashedWithoutIt) {
  // Of people who see no colours, too.
  const std::string svg = standaloneSvg(
      *pathChart(pointerWith({"0.000000 3 00 00 00", "0.000010 3 00 64 00", "0.000020 3 01 64 64",
                              "0.000030 3 01 00 64", "0.000040 3 00 00 00"})));
  const std::regex style(R"(\.p(\d) \{[^}]*stroke-width: ([0-9.]+);([^}]*)\})");
  std::vector<double> widths;
  for (std::sregex_iterator each(svg.begin(), svg.end(), style); each != std::sregex_iterator();
       ++each) {
    EXPECT_EQ((*each)[1], std::to_string(widths.size()));
    EXPECT_EQ(has((*each)[3].str(), "stroke-dasharray"), widths.empty()) << (*each)[0];
    widths.push_back(std::stod((*each)[2]));
  }
  EXPECT_EQ(widths.size(), 8U);
  EXPECT_TRUE(std::ranges::is_sorted(widths, std::less_equal<>())) << "each level is wider";
}

TEST_F(PictureTest, ALegendSaysWhatDashesMean) {
  EXPECT_EQ(legendOfPath(pointerWith({"0.0 3 00 05 05", "0.1 3 00 50 05"})), "");
  EXPECT_EQ(legendOfPath(pointerWith({"0.0 3 00 05 05", "0.1 3 01 50 05"})),
            "Dashed while Button 1 is up.");
  const std::string pen =
      "R: 25 05 01 09 30 09 31 15 00 26 ff 00 75 08 95 02 81 02 05 0d 09 30 95 01 81 02\n";
  EXPECT_EQ(legendOfPath(pictureOf(pen + "E: 0.0 3 00 00 00\nE: 0.1 3 01 01 07\n")),
            "Wider with pressure; dashed where there is none.");
  EXPECT_TRUE(has(pageOf(pointerWith({"0.0 3 00 05 05", "0.1 3 01 50 05"})),
                  "<p class=\"note\">Dashed while Button 1 is up.</p>"));
}

TEST_F(PictureTest, TheTableHasTimesOnlyWhereTheRecordingHas) {
  const std::string column = "<th scope=\"col\">Time</th>";
  EXPECT_TRUE(has(pageOf(pointerWith({"0.0 3 00 05 05", "0.1 3 00 50 05"})), column));
  EXPECT_FALSE(has(pageOf(pointerWith({"0.0 3 00 05 05", "0.0 3 00 50 05"})), column));
}

TEST_F(PictureTest, ALineHasAFewPointsForEachPixel) {
  const auto data = noisyPointer(20'000);
  const Chart chart = axisChart(data.axes[0], data.reports);
  EXPECT_LT(chart.body.size(), 40'000U);
  EXPECT_LT(switchChart(data)->body.size(), 20'000U);
}

TEST_F(PictureTest, ChartsAreWholeDocuments) {
  for (const Chart& chart : allCharts(noisyPointer(200))) {
    const std::string svg = standaloneSvg(chart);
    EXPECT_TRUE(svg.starts_with("<svg xmlns=\"http://www.w3.org/2000/svg\" ")) << chart.file;
    EXPECT_TRUE(svg.ends_with("</svg>\n")) << chart.file;
    EXPECT_THAT(svg, HasSubstr("prefers-color-scheme: dark"));
  }
}

TEST_F(PictureTest, OfManyPointsThePathKeepsOnlySome) {
  EXPECT_LT(pathChart(noisyPointer(100'000))->body.size(), 1'000'000U);
}

// ---- Packed reports

std::vector<std::uint8_t> unpack(const std::string& text) {
  const auto packed = platform::bytesOfBase64(text);
  EXPECT_TRUE(packed.has_value());
  struct archive* const archive = ::archive_read_new();
  ::archive_read_support_filter_gzip(archive);
  ::archive_read_support_format_raw(archive);
  EXPECT_EQ(::archive_read_open_memory(archive, packed->data(), packed->size()), ARCHIVE_OK);
  struct archive_entry* entry = nullptr;
  EXPECT_EQ(::archive_read_next_header(archive, &entry), ARCHIVE_OK);
  std::vector<std::uint8_t> out;
  std::array<std::uint8_t, 65536> buffer{};
  for (la_ssize_t got = 0; (got = ::archive_read_data(archive, buffer.data(), buffer.size())) > 0;)
    out.insert(out.end(), buffer.begin(), buffer.begin() + got);
  ::archive_read_free(archive);
  return out;
}

TEST_F(PictureTest, PackedReportsAreDifferences) {
  const auto data = pointerWith({"0.000000 3 00 05 09", "0.000300 3 01 06 09", "0.000301 1 03"});
  const PackedReports packed = packReports(data.reports, false, 10'000);
  EXPECT_EQ(packed.count, 3U);
  EXPECT_THAT(unpack(packed.text),
              ElementsAre(3, 0, 0xac, 0x02, 1, 3, 3, 1, 0x00, 0x05, 0x09, 0x01, 0x03, 0x00, 0x02));
  EXPECT_EQ(packReports(data.reports, false, 10'000).text, packed.text) << "no time of day in it";
}

TEST_F(PictureTest, PackedReportsWithIDsDifferFromTheLastWithTheirs) {
  const auto data = pictureOf(kKeys + "E: 0.0 3 02 04 00\nE: 0.0 2 03 01\nE: 0.0 3 02 05 04\n");
  EXPECT_THAT(unpack(packReports(data.reports, true, 10'000).text),
              ElementsAre(3, 3, 2, 3, 0x02, 0x04, 0x00, 0x03, 0x01, 0x02, 0x01, 0x04));
}

TEST_F(PictureTest, OnlyAsManyArePackedAsFit) {
  const auto data = noisyPointer(5000);
  const PackedReports packed = packReports(data.reports, false, 9000);
  EXPECT_LE(packed.text.size(), 9000U);
  EXPECT_GT(packed.count, 500U);
  EXPECT_LT(packed.count, 5000U);
  EXPECT_EQ(packReports(data.reports, false, 0).count, 0U);
}

// ---- The page

TEST(PageScript, HasTheHashThatThePageAllows) {
  const testsupport::TemporaryDirectory directory;
  const std::string file = directory.path() / "script";
  testsupport::writeFile(file, std::string(kPageScript));
  std::FILE* const pipe = ::popen(("sha256sum " + file).c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::vector<std::uint8_t> digest(32);
  for (std::uint8_t& byte : digest) ASSERT_EQ(std::fscanf(pipe, "%2hhx", &byte), 1);
  ::pclose(pipe);
  EXPECT_EQ(kPageScriptHash, "sha256-" + platform::base64(digest));
}

TEST_F(PictureTest, NamesOnThePageAreNoMarkup) {
  const std::string page = pageOf(pointerWith({"0.000000 3 00 00 00", "0.000010 3 00 05 05"},
                                              "</title><script>alert(1)</script><img src=x "
                                              "onerror=alert(2)>\" onload=\"x"));
  EXPECT_FALSE(has(page, "<script>alert"));
  EXPECT_FALSE(has(page, "<img"));
  EXPECT_TRUE(has(page, "&lt;/title&gt;&lt;script&gt;alert(1)&lt;/script&gt;"));
  EXPECT_FALSE(has(page, "\" onload=\""));
}

TEST_F(PictureTest, ThePageRefersToNothingElsewhere) {
  const std::string page = pageOf(noisyPointer(100));
  EXPECT_FALSE(has(page, "http:"));
  EXPECT_FALSE(has(page, "https:"));
  EXPECT_FALSE(has(page, " src="));
  EXPECT_FALSE(has(page, "href="));
  EXPECT_FALSE(has(page, "@import"));
  EXPECT_TRUE(has(page, "default-src 'none'"));
}

TEST_F(PictureTest, OfALongPathEveryOtherPointIsDrawn) {
  const auto drawn = [this](int reports) {
    return std::ranges::count(pathChart(noisyPointer(reports))->body, 'L');
  };
  EXPECT_GT(drawn(19'999), 19'900);
  EXPECT_LT(drawn(20'000), 16'000);
}

TEST_F(PictureTest, AHundredThousandReportsFitIntoThePage) {
  const std::string page = pageOf(noisyPointer(100'000));
  EXPECT_EQ(kMaxPageBytes, 3'145'728U);
  EXPECT_LE(page.size(), kMaxPageBytes);
  EXPECT_FALSE(has(page, "the rest is in the recording"));
}

/// 64 bytes of noise each, which cannot be compressed.
TEST_F(PictureTest, WhatDoesNotFitIsLeftOutAndSaysSo) {
  std::mt19937 random(3);
  std::string text =
      "R: 20 05 01 a1 01 09 30 09 31 15 00 26 ff 00 75 08 95 40 81 02 c0\nN: Noise\n";
  for (int i = 0; i < 40'000; ++i) {
    appendTime(text, i * 1000);
    text += " 64";
    for (int j = 0; j < 64; ++j) appendHex(text, static_cast<std::uint8_t>(random()));
    text += '\n';
  }
  const std::string page = pageOf(pictureOf(text));
  EXPECT_LE(page.size(), kMaxPageBytes);
  EXPECT_GT(page.size(), kMaxPageBytes * 8 / 10) << "there was room for more";
  EXPECT_TRUE(has(page, " of 40000 reports; the rest is in the recording."));
}

TEST_F(PictureTest, WithoutReportsThereIsStillThePage) {
  const std::string page = pageOf(pictureOf("R: 2 05 01\nN: Silent\n"));
  EXPECT_TRUE(has(page, "no report came"));
  EXPECT_TRUE(has(page, "<h1>Silent</h1>"));
}

TEST_F(PictureTest, AFaultOfTheDescriptorIsOnThePage) {
  EXPECT_TRUE(has(pageOf(pictureOf("R: 4 a1 01 85 00\nN: Bad\n")),
                  "<p class=\"fault\">offset 2: a report ID must be 1 to 255</p>"));
}

class PictureVerbTest : public VerbTest {
 protected:
  PictureVerbTest() {
    testsupport::writeFile(file_,
                           kPointer + "N: Pen\nE: 0.000000 3 00 00 00\nE: 0.000010 3 01 05 05\n");
  }
  static Outcome picture(std::vector<std::string> more) {
    more.insert(more.begin(), "picture");
    return run(addPictureVerb, more);
  }
  const std::string file_ = directory_.path() / "r.hid";
};

TEST_F(PictureVerbTest, WritesThePageAndTheCharts) {
  const std::string page = directory_.path() / "p.html";
  const std::string charts = directory_.path() / "charts";
  const Outcome outcome = picture({file_, "-o", page, "--svg", charts});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(std::filesystem::exists(page));
  EXPECT_EQ(outcome.out, charts + "/path.svg: Path of X and Y\n" + charts +
                             "/axis-1.svg: X over time\n" + charts + "/axis-2.svg: Y over time\n" +
                             charts + "/buttons.svg: Buttons and keys over time\n" + charts +
                             "/intervals.svg: Times between reports\n");
  EXPECT_TRUE(std::filesystem::exists(charts + "/buttons.svg"));
}

TEST_F(PictureVerbTest, OfSeveralDevicesOneIsDrawn) {
  testsupport::writeFile(file_, kPointer + "N: Pen\nD: 1\n" + kKeys +
                                    "N: Keys\nE: 0.0 3 02 04 00\nE: 0.1 3 02 00 00\n"
                                    "D: 0\nE: 0.2 3 00 05 05\n");
  const auto drawn = [&](const char* number) {
    const std::string page = directory_.path() / "p.html";
    EXPECT_EQ(picture({file_, "--device", number, "-o", page}).status, 0);
    std::ifstream in(page);
    return std::string{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  };
  EXPECT_TRUE(has(drawn("0"), "<h1>Pen</h1>"));
  EXPECT_TRUE(has(drawn("1"), "<h1>Keys</h1>"));
  EXPECT_TRUE(has(drawn("1"), "class=\"bar\""));
  EXPECT_FALSE(has(drawn("0"), "class=\"bar\""));
  EXPECT_EQ(picture({file_, "--device", "2", "-o", file_ + ".html"}).status, 1);
}

TEST_F(PictureVerbTest, WrongUsageIsRefused) {
  EXPECT_TRUE(isRefusal(picture({file_}), 2, "picture needs -o FILE.html, --svg DIR or both"));
  EXPECT_TRUE(isRefusal(picture({file_ + "x", "-o", file_ + ".html"}), 1,
                        file_ + "x: cannot be read: No such file or directory"));
  EXPECT_TRUE(
      isRefusal(picture({file_, "--svg", file_ + "/below"}), 1, file_ + "/below: Not a directory"));
}

}  // namespace
}  // namespace tool
