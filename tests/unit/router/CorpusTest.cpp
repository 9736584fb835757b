// SPDX-License-Identifier: Apache-2.0

// The parser and the decoder with recordings of real devices: those of the repository, whose totals
// were counted by hand from their descriptors, and, if present, a larger collection next to the
// checkout, whose values were computed by an independent decoder.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "router/ReportDecoder.h"
#include "tests/support/WholeRecording.h"

namespace {

namespace fs = std::filesystem;
using router::ReportDecoder;
using router::ReportDescriptor;
using test::WholeRecording;

fs::path sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");  // NOLINT(concurrency-mt-unsafe)
  return directory != nullptr ? fs::path(directory) : fs::path(".");
}

fs::path collection() {
  return fs::weakly_canonical(sourceDirectory() / ".." / "shared");  // links below are not followed
}

std::shared_ptr<const ReportDescriptor> descriptorOf(const WholeRecording& recording) {
  return std::make_shared<const ReportDescriptor>(
      ReportDescriptor::parse(recording.header.reportDescriptor));
}

/// The lines of a text file, decompressed if it is gzipped.
std::vector<std::string> linesOf(const fs::path& file) {
  const std::string command =
      (file.extension() == ".gz" ? "gzip -dc '" : "cat '") + file.string() + "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  std::array<char, 65536> buffer{};
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe.get())) {
    text.append(buffer.data(), count);
  }
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void expectReport(const nlohmann::json& expected, std::span<const std::uint8_t> report,
                  ReportDecoder* decoder) {
  ASSERT_EQ(decoder->reportID(report), expected["report_id"].get<std::uint32_t>());
  const auto values = decoder->decode(report);
  ASSERT_EQ(values.size(), expected["values"].size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const nlohmann::json& value = expected["values"][i];
    ASSERT_EQ(values[i].reportID, value["report_id"].get<std::uint32_t>()) << "value " << i;
    ASSERT_EQ(values[i].usagePage, value["usage_page"].get<std::uint32_t>()) << "value " << i;
    ASSERT_EQ(values[i].usage, value["usage"].get<std::uint32_t>()) << "value " << i;
    ASSERT_EQ(values[i].integerValue, value["value"].get<std::int64_t>()) << "value " << i;
    const auto element = decoder->descriptor().elementWithCookie(values[i].cookie);
    ASSERT_TRUE(element.has_value());
    ASSERT_EQ(element->bitOffset(), value["bit"].get<std::uint32_t>()) << "value " << i;
    ASSERT_EQ(element->field->bitSize, value["size"].get<std::uint32_t>()) << "value " << i;
    ASSERT_EQ(element->field->variable, !value.value("array", false)) << "value " << i;
  }
}

std::size_t compareRecording(const fs::path& hid, const fs::path& oracle) {
  const WholeRecording recording = test::readRecording(hid);
  ReportDecoder decoder(descriptorOf(recording));
  const std::vector<std::string> lines = linesOf(oracle);
  EXPECT_EQ(lines.size(), recording.reports.size()) << hid;
  for (std::size_t i = 0; i < std::min(lines.size(), recording.reports.size()); ++i) {
    SCOPED_TRACE(hid.filename().string() + ", report " + std::to_string(i));
    expectReport(nlohmann::json::parse(lines[i]), recording.reports[i], &decoder);
    if (testing::Test::HasFatalFailure()) break;
  }
  return lines.size();
}

TEST(Corpus, ValuesOfEveryRecordingAreThoseOfAnIndependentDecoder) {
  const fs::path directory = collection() / "recordings";
  if (!fs::exists(directory)) GTEST_SKIP() << "no collection of recordings next to the checkout";
  std::size_t recordings = 0;
  std::size_t reports = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() != ".hid") continue;
    fs::path oracle = entry.path();
    oracle.replace_extension(".jsonl");
    if (!fs::exists(oracle)) oracle += ".gz";
    ASSERT_TRUE(fs::exists(oracle)) << oracle;
    reports += compareRecording(entry.path(), oracle);
    ++recordings;
  }
  EXPECT_GT(recordings, 0U);
  RecordProperty("recordings", std::to_string(recordings));
  RecordProperty("reports", std::to_string(reports));
  std::cout << "compared " << reports << " reports of " << recordings << " recordings\n";
}

TEST(Corpus, EveryDescriptorOfTheCollectionParses) {
  const fs::path directory = collection() / "descriptors";
  if (!fs::exists(directory)) GTEST_SKIP() << "no collection of descriptors next to the checkout";
  std::size_t parsed = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<char> text((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    SCOPED_TRACE(entry.path().filename().string());
    ASSERT_NO_THROW(EXPECT_GT(ReportDescriptor::parse(bytes).elementCount(), 0U));
    ++parsed;
  }
  EXPECT_GT(parsed, 0U);
}

struct OwnRecording {
  const char* file;
  std::size_t reports;
  std::size_t valuesPerReport;
  std::uint32_t elements;
  std::uint32_t product;
};

TEST(Corpus, TheRepositorysRecordingsYieldAllTheirFields) {
  // Keyboard: 8 modifiers + 1 constant + 5 LEDs + 1 constant + 6 slots. Mouse: 5 buttons + 1
  // constant + 3 axes. Tablet: 3 buttons + 1 constant + 2 axes + 1 wheel.
  const OwnRecording recordings[] = {{"qemu-usb-kbd.hid", 408, 14, 21, 1},
                                     {"qemu-usb-mouse.hid", 589, 8, 9, 1},
                                     {"qemu-usb-tablet.hid", 738, 6, 7, 1}};
  for (const OwnRecording& own : recordings) {
    SCOPED_TRACE(own.file);
    const WholeRecording recording =
        test::readRecording(sourceDirectory() / "recordings" / own.file);
    EXPECT_EQ(recording.header.vendor, 0x627U);
    EXPECT_EQ(recording.header.product, own.product);
    ASSERT_EQ(recording.reports.size(), own.reports);
    ReportDecoder decoder(descriptorOf(recording));
    EXPECT_EQ(decoder.descriptor().elementCount(), own.elements);
    for (std::size_t i = 0; i < recording.reports.size(); ++i) {
      ASSERT_EQ(decoder.decode(recording.reports[i]).size(), own.valuesPerReport);
    }
  }
}

TEST(Corpus, TheRepositorysTabletMovesAsItsBytesSay) {
  const WholeRecording recording =
      test::readRecording(sourceDirectory() / "recordings/qemu-usb-tablet.hid");
  ReportDecoder decoder(descriptorOf(recording));
  for (std::size_t i = 0; i < recording.reports.size(); ++i) {
    const auto& report = recording.reports[i];
    const auto values = decoder.decode(report);
    ASSERT_EQ(values.size(), 6U);
    ASSERT_EQ(values[0].integerValue, report[0] & 1);
    ASSERT_EQ(values[3].usage, 0x30U);
    ASSERT_EQ(values[3].integerValue, report[1] | report[2] << 8);
    ASSERT_EQ(values[4].integerValue, report[3] | report[4] << 8);
    ASSERT_EQ(values[5].integerValue, static_cast<std::int8_t>(report[5]));
  }
}

}  // namespace
