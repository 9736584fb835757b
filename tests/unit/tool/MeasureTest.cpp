// SPDX-License-Identifier: Apache-2.0

// What is measured of reports, and which controls have answered.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "platform/foundation/Format.h"
#include "tests/unit/tool/VerbTest.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/measuring/Checklist.h"
#include "tool/measuring/Intervals.h"
#include "tool/measuring/Latency.h"
#include "tool/measuring/Measurement.h"

namespace tool {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using testing::ElementsAre;

/// Two buttons, six bits of padding, X and Y as changes, Z from 0 to 255 in centimetres.
const std::string kDevice =
    "a1 01 05 09 19 01 29 02 15 00 25 01 75 01 95 02 81 02 75 06 95 01 81 01 05 01 09 30 09 31 15 "
    "81 25 7f 75 08 95 02 81 06 09 32 15 00 26 ff 00 46 ff 00 65 11 95 01 81 02 c0";
/// Modifiers as buttons, and two slots for keys.
const std::string kKeyboard =
    "05 01 09 06 a1 01 05 07 19 e0 29 e1 15 00 25 01 75 01 95 02 81 02 75 06 95 01 81 01 19 00 29 "
    "06 25 06 75 08 95 02 81 00 c0";

std::shared_ptr<const router::ReportDescriptor> parsed(const std::string& hex) {
  return std::make_shared<const router::ReportDescriptor>(
      router::ReportDescriptor::parse(descriptorBytes(hex, "test")));
}

std::vector<std::string> namesOf(const std::vector<Control>& controls) {
  constexpr std::string_view kKinds = "abk";
  std::vector<std::string> names;
  for (const Control& control : controls)
    names.push_back(std::string(1, kKinds[static_cast<std::size_t>(control.kind)]) + " " +
                    control.name);
  return names;
}

Intervals intervalsAt(const std::vector<int>& times) {
  Intervals intervals;
  for (const int time : times) intervals.take(microseconds(time));
  return intervals;
}

TEST(Controls, AreAxesButtonsAndKeys) {
  EXPECT_THAT(namesOf(controlsOf(*parsed(kDevice))),
              ElementsAre("b Button 1", "b Button 2", "a X", "a Y", "a Z"));
  EXPECT_THAT(namesOf(controlsOf(*parsed(kKeyboard))),
              ElementsAre("b Left Control", "b Left Shift", "k A", "k B", "k C"));
}

TEST(Controls, WhatAPersonCannotNameIsNone) {
  EXPECT_THAT(controlsOf(*parsed("06 00 ff 09 01 25 7f 75 08 95 01 81 02 05 01 81 02 09 30 81 03 "
                                 "09 30 91 02 09 30 75 40 81 02")),
              testing::IsEmpty());
}

TEST(Controls, OfTheSameUsageAreNumbered) {
  EXPECT_THAT(namesOf(controlsOf(*parsed("05 01 09 30 25 7f 75 08 95 03 81 02"))),
              ElementsAre("a X", "a X (2)", "a X (3)"));
}

TEST(Controls, AreBoundedInNumber) {
  EXPECT_EQ(controlsOf(*parsed("05 09 1a 01 00 2a ff 0f 25 01 75 01 96 a0 0f 81 02")).size(),
            1024U);
}

TEST(Intervals, OfNoneNothingIsKnown) {
  const Intervals none = intervalsAt({5});
  EXPECT_EQ(none.count(), 0U);
  EXPECT_EQ(none.percentile(0.5), microseconds(0));
  EXPECT_TRUE(none.histogram().empty());
}

TEST(Intervals, KnowTheirPercentilesExactlyWhileSmall) {
  const Intervals intervals = intervalsAt({0, 10, 30, 60, 100});
  EXPECT_EQ(intervals.count(), 4U);
  EXPECT_EQ(intervals.percentile(0.5), microseconds(20));
  EXPECT_EQ(intervals.percentile(0.75), microseconds(30));
  EXPECT_EQ(intervals.percentile(0.99), microseconds(40));
  EXPECT_EQ(intervals.percentile(0), microseconds(10));
  EXPECT_EQ(intervals.longest(), microseconds(40));
  EXPECT_EQ(intervals.total(), microseconds(100));
}

TEST(Intervals, KnowThemToOnePartIn64Otherwise) {
  std::mt19937 random(7);
  for (int i = 0; i < 200; ++i) {
    const auto length = static_cast<std::int64_t>(random() >> (i % 31));
    Intervals intervals;
    intervals.take(microseconds(0));
    intervals.take(microseconds(length));
    intervals.take(microseconds(length + length + length / 100));
    const auto found = intervals.percentile(0.5).count();
    EXPECT_GE(found, length);
    EXPECT_LE(found, length + length / 64 + 1);
  }
}

TEST(Intervals, CountGaps) {
  EXPECT_EQ(intervalsAt({0, 49'999, 99'999, 160'000}).gaps(), 2U);
}

TEST(Intervals, ARestartIsNone) {
  const Intervals intervals = intervalsAt({100, 200, 0, 50});
  EXPECT_EQ(intervals.count(), 2U);
  EXPECT_EQ(intervals.longest(), microseconds(100));
}

TEST(Intervals, TheHistogramDoublesFromBarToBar) {
  const auto bars = intervalsAt({0, 3, 5, 5, 21}).histogram();
  std::vector<std::array<std::int64_t, 3>> found;
  for (const auto& bar : bars)
    found.push_back({bar.from.count(), bar.to.count(), static_cast<std::int64_t>(bar.count)});
  using Bar = std::array<std::int64_t, 3>;
  EXPECT_THAT(found, ElementsAre(Bar{0, 1, 1}, Bar{1, 2, 0}, Bar{2, 4, 2}, Bar{4, 8, 0},
                                 Bar{8, 16, 0}, Bar{16, 32, 1}));
}

TEST(Measurement, CountsReportsThatRepeatTheOneBefore) {
  Measurement measurement(parsed(kDevice), milliseconds(50));
  const std::vector<std::uint8_t> still{0, 0, 0, 9};
  const std::vector<std::uint8_t> moved{0, 1, 0, 9};
  for (const auto& report : {still, still, moved, still, still})
    measurement.take(microseconds(0), report);
  EXPECT_EQ(measurement.reports(), 5U);
  EXPECT_EQ(measurement.repeated(), 2U);
  EXPECT_FALSE(measurement.hasTimes());
  EXPECT_EQ(verdictOn(measurement, std::nullopt), "5 reports without times; losses unknown");
}

TEST(Measurement, KnowsHowMuchOfItsRangeAnAxisUses) {
  Measurement measurement(parsed(kDevice), milliseconds(50));
  for (const std::uint8_t z : {40, 44, 60, 40, 100})
    measurement.take(microseconds(0), std::vector<std::uint8_t>{0, 0xff, 0, z});
  ASSERT_EQ(measurement.axes().size(), 3U);
  const AxisUse& x = measurement.axes()[0];
  EXPECT_EQ(x.smallest, -1);
  EXPECT_EQ(x.step, 0U);
  EXPECT_EQ(x.positions(), 1U);
  const AxisUse& z = measurement.axes()[2];
  EXPECT_EQ(z.smallest, 40);
  EXPECT_EQ(z.largest, 100);
  EXPECT_EQ(z.step, 4U);
  EXPECT_EQ(z.positions(), 16U);
  EXPECT_DOUBLE_EQ(z.usedBits(), 4);
  EXPECT_DOUBLE_EQ(z.declaredBits(), 8);
  EXPECT_DOUBLE_EQ(z.stepsPerUnit().value(), 0.25);
}

TEST(Measurement, WhatMeansNoValueIsNone) {
  Measurement measurement(parsed("a1 01 05 01 09 39 15 00 25 07 75 08 95 01 81 42 c0"),
                          milliseconds(50));
  for (const std::uint8_t hat : {8, 2, 4, 15})
    measurement.take(microseconds(0), std::vector<std::uint8_t>{hat});
  EXPECT_EQ(measurement.axes()[0].values, 2U);
  EXPECT_EQ(measurement.axes()[0].largest, 4);
}

TEST(Measurement, TheVerdictSaysItInWords) {
  Measurement measurement(parsed(kDevice), milliseconds(50));
  EXPECT_EQ(verdictOn(measurement, Losses()), "no report came");
  for (int i = 0; i <= 100; ++i)
    measurement.take(microseconds(i * 8000 + (i > 50 ? 100'000 : 0)),
                     std::vector<std::uint8_t>{0, 0, 0, 0});
  EXPECT_EQ(verdictOn(measurement, Losses()), "125 Hz; 1 gap over 50 ms; none lost");
  EXPECT_EQ(verdictOn(measurement, Losses{1, false}), "125 Hz; 1 gap over 50 ms; 1 report lost");
  EXPECT_EQ(verdictOn(measurement, Losses{2, true}),
            "125 Hz; 1 gap over 50 ms; 2 reports lost by all sessions together");
}

TEST(Durations, AreShownInTheirUsualUnits) {
  EXPECT_EQ(durationText(microseconds(310)), "310 µs");
  EXPECT_EQ(durationText(microseconds(999)), "999 µs");
  EXPECT_EQ(durationText(microseconds(1000)), "1 ms");
  EXPECT_EQ(durationText(microseconds(8020)), "8.02 ms");
  EXPECT_EQ(durationText(microseconds(1'000'000)), "1 s");
  EXPECT_EQ(durationText(microseconds(1'500'000)), "1.5 s");
}

TEST(Checklist, AButtonAnswersWhenItIsReleased) {
  Checklist list(parsed(kDevice));
  EXPECT_EQ(list.nextStep(), "press Button 1");
  const auto take = [&](std::uint8_t buttons) {
    return list.take(std::vector<std::uint8_t>{buttons, 0, 0, 128});
  };
  EXPECT_THAT(take(0), ElementsAre());
  EXPECT_THAT(take(1), ElementsAre());
  EXPECT_THAT(take(2), ElementsAre("Button 1"));
  EXPECT_EQ(list.nextStep(), "press Button 2");
  EXPECT_THAT(take(0), ElementsAre("Button 2"));
  EXPECT_THAT(take(3), ElementsAre());
  EXPECT_EQ(list.answered(), 2U);
}

TEST(Checklist, AnAxisAnswersWhenItHasBeenAtBothEnds) {
  Checklist list(parsed(kDevice));
  const auto take = [&](int x, std::uint8_t z) {
    return list.take(std::vector<std::uint8_t>{0, static_cast<std::uint8_t>(x), 0, z});
  };
  EXPECT_THAT(take(0, 30), ElementsAre());
  EXPECT_THAT(take(5, 225), ElementsAre());
  EXPECT_THAT(take(-1, 25), ElementsAre("X"));
  EXPECT_THAT(take(0, 230), ElementsAre("Z"));
  EXPECT_FALSE(list.isComplete());
}

TEST(Checklist, AKeyAnswersInWhicheverSlotItIs) {
  Checklist list(parsed(kKeyboard));
  const auto take = [&](std::uint8_t one, std::uint8_t other) {
    return list.take(std::vector<std::uint8_t>{0, one, other});
  };
  EXPECT_THAT(take(4, 0), ElementsAre());
  EXPECT_THAT(take(5, 4), ElementsAre());
  EXPECT_THAT(take(0, 5), ElementsAre("A"));
  EXPECT_THAT(take(0, 0), ElementsAre("B"));
  EXPECT_EQ(list.entries().size(), 5U);
}

TEST(Checklist, WhatHasNoNameIsNotOnIt) {
  // An array of all the consumer page's usages up to Play/Pause.
  Checklist list(parsed("a1 01 05 0c 19 00 29 cd 15 00 26 cd 00 75 08 95 01 81 00 c0"));
  for (const auto& entry : list.entries())
    EXPECT_EQ(entry.control.name.find("000c/"), std::string::npos) << entry.control.name;
  ASSERT_FALSE(list.entries().empty());
  EXPECT_EQ(list.entries().back().control.name, "Play/Pause");
}

/// Reports with these numbers have arrived here, each so many microseconds after the beginning.
void arrive(Latency& latency, const std::vector<std::pair<std::uint64_t, int>>& reports) {
  for (const auto& [number, time] : reports)
    latency.arrived(number, std::chrono::steady_clock::time_point(microseconds(time)));
}
router::ReportArrivals atRouter(std::uint64_t first, const std::vector<int>& times) {
  router::ReportArrivals arrivals{first, {}};
  for (const int time : times) arrivals.times.emplace_back(microseconds(time));
  return arrivals;
}

TEST(Latency, IsUnknownUntilTheRouterHasSaidSomething) {
  Latency latency;
  EXPECT_EQ(latency.routing(), 0U);
  arrive(latency, {{1, 10}, {2, 20}});
  EXPECT_EQ(latency.routing(), 1U);
  EXPECT_FALSE(latency.figures());
  latency.take(atRouter(3, {}), 1);
  EXPECT_FALSE(latency.figures());
}

TEST(Latency, IsFromThereToHereForEachReportOnce) {
  Latency latency;
  arrive(latency, {{1, 10}, {2, 25}, {3, 37}});
  latency.take(atRouter(2, {20, 30}), 1);
  latency.take(atRouter(2, {20, 30}), 1);
  const auto figures = latency.figures();
  ASSERT_TRUE(figures);
  EXPECT_EQ(figures->reports, 2U);
  EXPECT_EQ(figures->median, microseconds(5));
  EXPECT_EQ(figures->longOnes, microseconds(7));
  EXPECT_EQ(figures->longest, microseconds(7));
}

TEST(Latency, WhatIsStillUnderwayCountsLater) {
  Latency latency;
  arrive(latency, {{1, 10}});
  latency.take(atRouter(1, {9, 18}), 1);
  EXPECT_EQ(latency.figures()->reports, 1U);
  arrive(latency, {{2, 20}});
  latency.take(atRouter(1, {9, 18}), 1);
  EXPECT_EQ(latency.figures()->reports, 2U);
  EXPECT_EQ(latency.figures()->longest, microseconds(2));
}

TEST(Latency, AnswersAboutAnotherRoutingDoNotCount) {
  Latency latency;
  arrive(latency, {{1, 10}, {2, 20}});
  const std::uint64_t asked = latency.routing();
  arrive(latency, {{1, 110}, {2, 120}});
  latency.take(atRouter(1, {9, 19}), asked);
  EXPECT_FALSE(latency.figures()) << "the answer was about the routing before";
  latency.take(atRouter(1, {205, 215}), latency.routing());
  EXPECT_FALSE(latency.figures()) << "a routing that has begun at the router and not here yet";
  latency.take(atRouter(1, {105, 116}), latency.routing());
  EXPECT_EQ(latency.figures()->reports, 2U);
}

TEST(Latency, OldReportsAreForgotten) {
  Latency latency;
  constexpr std::uint64_t kMost = router::ArrivalNotes::kMost;
  for (std::uint64_t i = 1; i <= kMost + 5; ++i) arrive(latency, {{i, 1000}});
  latency.take(atRouter(1, std::vector<int>(kMost, 900)), 1);
  EXPECT_EQ(latency.figures()->reports, kMost - 5);
}

TEST(Checklist, WithoutControlsItIsComplete) {
  Checklist list(parsed(""));
  EXPECT_TRUE(list.isComplete());
  EXPECT_EQ(list.nextStep(), "");
}

class MeasureVerbTest : public VerbTest {
 protected:
  static Outcome measure(std::vector<std::string> more) {
    more.insert(more.begin(), "measure");
    return run(addMeasureVerb, more);
  }
};

TEST_F(MeasureVerbTest, MeasuresARecording) {
  const std::string file = directory_.path() / "r.hid";
  std::string text = "R: 57 " + kDevice + "\nN: Pen\n";
  for (int i = 0; i < 10; ++i)
    text += "E: 000000.0" + std::to_string(i) + "0000 4 00 01 00 0" + std::to_string(i) + "\n";
  testsupport::writeFile(file, text);
  const Outcome outcome = measure({"--recording", file});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with(
      "Pen\nVerdict: 100 Hz; no gap over 50 ms; losses unknown\nReports: 10, of which 0 repeat "
      "the one before\nIntervals: half up to 10 ms, 99 % up to 10 ms, longest 10 ms\n"))
      << outcome.out;
  EXPECT_NE(outcome.out.find("  Z              0 to 9 of 0 to 255; steps of 1; 3.3 of 8.0 bits; 1 "
                             "per cm\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_TRUE(outcome.out.ends_with(
      "\nTimes are those of the recording; how long reports took to get there is not known.\n"))
      << outcome.out;
  const auto document = nlohmann::json::parse(measure({"--recording", file, "--json"}).out);
  EXPECT_EQ(document["verdict"], "100 Hz; no gap over 50 ms; losses unknown");
  EXPECT_EQ(document["repeated"], 0);
  EXPECT_EQ(document["rate"], 100);
  EXPECT_TRUE(document["latency"].is_null());
  EXPECT_EQ(document["reports"], 10);
  EXPECT_EQ(document["intervals"]["longest"], 10'000);
  EXPECT_TRUE(document["lost"].is_null());
  EXPECT_EQ(document["axes"][2]["name"], "Z");
}

TEST_F(MeasureVerbTest, HowLongTheIntervalsAreIsDrawn) {
  const std::string file = directory_.path() / "r.hid";
  std::string text = "R: 57 " + kDevice + "\nN: Pen\n";
  for (const int time : {0, 3, 6, 8, 8, 108, 124, 140, 160})
    text += platform::stringWithFormat("E: 000000.%06d 4 00 01 00 00\n", time * 1000);
  testsupport::writeFile(file, text);
  const Outcome outcome = measure({"--recording", file});
  // The most frequent has 40 marks.
  for (const char* const bar :
       {"\n  under 1 µs             1  ####################\n", "\n  under 2 µs             0  \n",
        "\n  under 4.1 ms           2  "
        "########################################\n",
        "\n  under 131 ms           1  ####################\n"})
    EXPECT_NE(outcome.out.find(bar), std::string::npos) << bar << outcome.out;
  const auto intervals =
      nlohmann::json::parse(measure({"--recording", file, "--json"}).out)["intervals"];
  EXPECT_EQ(intervals["p50"], 3'000);
  EXPECT_EQ(intervals["p99"], 100'000);
  EXPECT_EQ(intervals["gaps"], 1);
  ASSERT_EQ(intervals["histogram"].size(), 18U);
  EXPECT_EQ(intervals["histogram"][12],
            (nlohmann::json{{"from", 2048}, {"to", 4096}, {"count", 2}}));
}

TEST_F(MeasureVerbTest, OfSeveralDevicesOneIsMeasured) {
  const std::string file = directory_.path() / "r.hid";
  testsupport::writeFile(file, "R: 57 " + kDevice + "\nN: Pen\nD: 1\nR: 57 " + kDevice +
                                   "\nN: Other\nE: 0.0 4 00 01 00 00\nE: 0.1 4 00 02 00 00\n"
                                   "D: 0\nE: 0.2 4 00 03 00 00\n");
  const auto measured = [&](const char* number) {
    return nlohmann::json::parse(measure({"--recording", file, "--device", number, "--json"}).out);
  };
  EXPECT_EQ(measured("0")["name"], "Pen");
  EXPECT_EQ(measured("0")["reports"], 1);
  EXPECT_EQ(measured("1")["name"], "Other");
  EXPECT_EQ(measured("1")["reports"], 2);
}

TEST_F(MeasureVerbTest, OfTimesThatAreNotThereNothingIsSaid) {
  const std::string file = directory_.path() / "r.hid";
  testsupport::writeFile(file,
                         "R: 57 " + kDevice + "\nN: Pen\n" +
                             "E: 000000.000000 4 00 01 00 00\nE: 000000.000000 4 00 02 00 00\n");
  const Outcome outcome = measure({"--recording", file});
  EXPECT_EQ(outcome.out.find("Times are"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("Verdict: 2 reports without times"), std::string::npos);
}

TEST_F(MeasureVerbTest, WithoutReportsThereIsNothingToMeasure) {
  const std::string file = directory_.path() / "r.hid";
  testsupport::writeFile(file, "R: 2 05 01\nN: Silent\n");
  const Outcome outcome = measure({"--recording", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "Silent\nVerdict: no report came\n");
}

TEST_F(MeasureVerbTest, WrongUsageIsRefused) {
  const std::string device = "measure needs either a DEVICE or --recording FILE";
  EXPECT_TRUE(isRefusal(measure({}), 2, device));
  EXPECT_TRUE(isRefusal(measure({"1", "--recording", "f"}), 2, device));
  EXPECT_TRUE(isRefusal(measure({"1", "--device", "1"}), 2, "--device goes with --recording"));
  EXPECT_TRUE(isRefusal(measure({"1", "--seconds", "-1"}), 2,
                        "--seconds must be a number from 0 to 1000000000"));
  EXPECT_TRUE(isRefusal(measure({"1", "--gap", "0"}), 2,
                        "--gap must be a number of milliseconds from 0.001 to 1000000000"));
}

}  // namespace
}  // namespace tool
