// SPDX-License-Identifier: Apache-2.0

#include "router/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "HexBytes.h"
#include "platform/foundation/Format.h"
#include "router/RouterLimits.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeRecording.h"

namespace {

using router::RecordingError;
using test::parseRecording;
using test::readRecording;
using test::WholeRecording;

constexpr const char* kFormat = "a recording is text in the hid-recorder format (R:, N:, I:, E:)";

router::RecordingHeader headerOf(const std::filesystem::path& path) {
  const router::RecordingFile file = router::RecordingFile::at(path, 0);
  return file.read().header();
}

void expectError(const std::string& text, const std::string& message) {
  try {
    parseRecording(text, "a.hid");
    FAIL() << "accepted: " << text;
  } catch (const RecordingError& error) {
    EXPECT_EQ(error.what(), message);
    EXPECT_FALSE(error.code());
  }
}

class RecordingFile : public testing::Test {
 protected:
  std::filesystem::path write(const std::string& text) const {
    const auto path = directory_ / "a.hid";
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  const testsupport::TemporaryDirectory temporary_;
  const std::filesystem::path& directory_ = temporary_.path();
};

TEST(Recording, ReadsEveryPartOfADevice) {
  const WholeRecording r = parseRecording(
      "# a comment\n"
      "D: 0\n"
      "R: 4 05 01 09 02\n"
      "N: Some Maker Some Mouse\n"
      "P: usb-0000:00:06.0-2/input0\n"
      "I: 3 0627 00a1\n"
      "\n"
      "E: 000001.500000 3 00 ff 1b\n"
      "E: 000001.511369 1 7F\n",
      "a.hid");
  EXPECT_EQ(r.header.name, "Some Maker Some Mouse");
  EXPECT_EQ(r.header.physicalPath, "usb-0000:00:06.0-2/input0");
  EXPECT_EQ(r.header.bus, 3U);
  EXPECT_EQ(r.header.vendor, 0x627U);
  EXPECT_EQ(r.header.product, 0xa1U);
  EXPECT_EQ(r.header.reportDescriptor, bytes("05 01 09 02"));
  ASSERT_EQ(r.reports.size(), 2U);
  EXPECT_EQ(r.reports[0], bytes("00 ff 1b"));
  EXPECT_EQ(r.reports[1], bytes("7f"));
  EXPECT_EQ(r.times[0], std::chrono::microseconds(1500000));
  EXPECT_EQ(r.times[1], std::chrono::microseconds(1511369));
}

TEST(Recording, KeepsTimesThatRestartOrAreMissing) {
  const WholeRecording r =
      parseRecording("R: 1 c0\nE: 000009.5 1 01\nE: 000000.000000 1 02\nE: 0 1 03\n", "a.hid");
  EXPECT_EQ(r.times[0], std::chrono::microseconds(9500000));
  EXPECT_EQ(r.times[1], std::chrono::microseconds(0));
  EXPECT_EQ(r.times[2], std::chrono::microseconds(0));
}

TEST(Recording, EmptyReportsLineEndsOfOtherSystemsAndAMissingLastOneAreFine) {
  const WholeRecording r = parseRecording("R: 0\r\nN: x\r\nE: 0.1 0\r\nE: 0.2 1 0a", "a.hid");
  EXPECT_EQ(r.header.name, "x");
  ASSERT_EQ(r.reports.size(), 2U);
  EXPECT_TRUE(r.reports[0].empty());
  EXPECT_EQ(r.reports[1], bytes("0a"));
}

TEST(Recording, OtherKindsOfLinesArePassedOver) {
  EXPECT_EQ(parseRecording("S: whatever\nR: 1 c0\nQ:\nE: 0.0 1 05\n", "a.hid").reports.size(), 1U);
}

TEST(Recording, TakesOneDeviceOutOfSeveral) {
  const std::string text =
      "D: 0\nR: 1 c0\nN: first\nD: 1\nR: 2 05 01\nN: second\n"
      "D: 0\nE: 0.0 1 01\nD: 1\nE: 0.1 1 02\nE: 0.2 1 03\n";
  const WholeRecording first = parseRecording(text, "a.hid");
  EXPECT_EQ(first.header.name, "first");
  EXPECT_EQ(first.reports.size(), 1U);
  const WholeRecording second = parseRecording(text, "a.hid", 1);
  EXPECT_EQ(second.header.name, "second");
  ASSERT_EQ(second.reports.size(), 2U);
  EXPECT_EQ(second.reports[1], bytes("03"));
  EXPECT_THROW(parseRecording(text, "a.hid", 2), RecordingError);
}

TEST(Recording, SaysWhereAndWhyALineIsWrong) {
  expectError("", "a.hid: has no report descriptor for device 0");
  expectError("# only\n", "a.hid: has no report descriptor for device 0");
  expectError("hello\n", "a.hid:1: is not a line of a recording; " + std::string(kFormat));
  expectError("R: 1 c0\nE 0.0 1 01\n",
              "a.hid:2: is not a line of a recording; " + std::string(kFormat));
  expectError("r: 1 c0\n", "a.hid:1: is not a line of a recording; " + std::string(kFormat));
  expectError("D: x\n", "a.hid:1: the device number is invalid");
  expectError("D: 4294967296\n", "a.hid:1: the device number is invalid");
  expectError("D: 0 1\n", "a.hid:1: the device number is invalid");
  expectError("R:\n", "a.hid:1: the number of bytes is missing");
  expectError("R: -1 c0\n", "a.hid:1: the number of bytes is missing");
  expectError("R: 2 c0\n", "a.hid:1: 2 bytes are announced, 1 follow");
  expectError("R: 1 c0 c0\n", "a.hid:1: 1 bytes are announced, 2 follow");
  expectError("R: 1 c00\n", "a.hid:1: 'c00' is not a byte");
  expectError("R: 1 \x1b[\n", "a.hid:1: '\\x1b[' is not a byte");
  expectError("R: 65536 c0\n", "a.hid:1: more than 65535 bytes are announced");
  expectError("R: 1 c0\nR: 1 c0\n", "a.hid:2: a second report descriptor for the same device");
  expectError("E: 0.0 1 01\n", "a.hid:1: a report before the report descriptor");
  expectError("R: 1 c0\nE: 0.0 65537 01\n", "a.hid:2: more than 65536 bytes are announced");
  expectError("R: 1 c0\nE: 0.0 99999999999999999999 01\n",
              "a.hid:2: the number of bytes is missing");
  expectError("R: 1 c0\nE: 1 1\n", "a.hid:2: 1 bytes are announced, 0 follow");
  expectError("R: 1 c0\nE: soon 1 01\n", "a.hid:2: the time is not a number of seconds");
  expectError("R: 1 c0\nE: 0.1234567 1 01\n", "a.hid:2: the time is not a number of seconds");
  expectError("R: 1 c0\nE: -1.0 1 01\n", "a.hid:2: the time is not a number of seconds");
  expectError("R: 1 c0\nE: 1. 1 01\n", "a.hid:2: the time is not a number of seconds");
  expectError("R: 1 c0\nE: 99999999999.0 1 01\n", "a.hid:2: the time is not a number of seconds");
  expectError("I: 3 0627\n", "a.hid:1: bus, vendor and product must be three hexadecimal numbers");
  expectError("I: 3 0627 100000000\n",
              "a.hid:1: bus, vendor and product must be three hexadecimal numbers");
  expectError("I: 3 0627 1 1\n", "a.hid:1: there is text after bus, vendor and product");
}

TEST(Recording, AForeignFormatIsNamed) {
  const auto refusal = [](const std::string& format) {
    return "a.hid: is " + format + "; " + std::string(kFormat);
  };
  expectError("\x1f\x8b\x08", refusal("compressed with gzip (gunzip unpacks it)"));
  expectError("{\"report\":1}\n", refusal("JSON"));
  expectError("\n  [1]\n", refusal("JSON"));
  expectError("\xef\xbb\xbf{}", refusal("JSON"));
  expectError(std::string("\xff\xfeR\0", 4), refusal("text in UTF-16"));
  expectError(std::string("\xfe\xff\0R", 4), refusal("text in UTF-16"));
}

TEST(Recording, AByteOrderMarkIsPassedOver) {
  EXPECT_EQ(parseRecording("\xef\xbb\xbfR: 1 c0\nE: 0.0 1 05\n", "a.hid").reports.size(), 1U);
  EXPECT_EQ(parseRecording("\xef\xbb\xbf# comment\nR: 1 c0\n", "a.hid").reports.size(), 0U);
}

TEST(Recording, NamesAreMadePrintableAndCut) {
  const auto name = [](const std::string& text) {
    return parseRecording("R: 1 c0\nN: " + text + "\nP: " + text + "\n", "a.hid").header;
  };
  EXPECT_EQ(name("a\x1b[2J\xff").name, "a\\x1b[2J\\xff");
  EXPECT_EQ(name("a\x1b[2J\xff").physicalPath, "a\\x1b[2J\\xff");
  const std::string longest(128, 'x');
  EXPECT_EQ(name(longest).name, longest);
  EXPECT_EQ(name(std::string(100'000, 'x')).name, std::string(127, 'x') + "…");
}

TEST(Recording, LinesMayLieAnywhereInWhatIsReadAtATime) {
  // Comments of increasing length move the following lines across every chunk boundary.
  for (std::size_t length = 16300; length < 16420; ++length) {
    const auto r = parseRecording(
        "#" + std::string(length, 'x') + "\nR: 2 05 01\nE: 0.1 1 05\nE: 0.2 2 06 07\n", "a.hid");
    ASSERT_EQ(r.reports.size(), 2U) << length;
    ASSERT_EQ(r.reports[1], bytes("06 07")) << length;
  }
}

TEST(Recording, TheLongestReportFitsALine) {
  std::string line = "R: 1 c0\nE: 0.0 65536";
  for (int i = 0; i < 65536; ++i) line += " 5a";
  EXPECT_EQ(parseRecording(line, "a.hid").reports[0].size(), 65536U);
}

TEST(Recording, IsSummedUpInOnePass) {
  const auto summary = [](const std::string& reports) {
    const std::string text = "R: 1 c0\nN: x\n" + reports;
    router::RecordingReader reader = test::readerOf(text, "a.hid");
    return router::readSummary(reader);
  };
  EXPECT_EQ(summary("").reports, 0U);
  EXPECT_EQ(summary("").header.name, "x");
  EXPECT_FALSE(summary("E: 5.0 0\nE: 5.0 0\n").hasTimes);
  EXPECT_TRUE(summary("E: 5.0 0\nE: 5.0 0\nE: 4.0 0\n").hasTimes);
  EXPECT_EQ(summary("E: 5.0 0\nE: 5.0 0\n").reports, 2U);
  EXPECT_THROW(summary("E: 5.0 0\nE: x\n"), RecordingError);
}

TEST(Recording, TooMuchTextIsRefusedAlsoWhereItsLengthWasNotKnown) {
  std::size_t given = 0;
  router::RecordingReader reader(
      [&](std::span<char> buffer) {
        std::fill(buffer.begin(), buffer.end(), '#');
        buffer.front() = '\n';
        given += buffer.size();
        return buffer.size();
      },
      "endless");
  EXPECT_THROW(static_cast<void>(reader.header()), RecordingError);
  EXPECT_LT(given, router::RouterLimits::kRecordingBytes + (1U << 20));
}

TEST(Recording, LongLinesAreRefused) {
  expectError("#" + std::string(router::RouterLimits::kRecordingLineBytes, 'x') + "\n",
              "a.hid:1: the line is longer than 262144 bytes");
}

TEST_F(RecordingFile, IsReadFromDisk) {
  const auto path = write("R: 1 c0\nN: on disk\nE: 0.0 1 05\n");
  EXPECT_EQ(readRecording(path).reports.size(), 1U);
  EXPECT_EQ(headerOf(path).name, "on disk");
}

TEST_F(RecordingFile, ItsHeaderEndsAtTheFirstReport) {
  EXPECT_EQ(headerOf(write("R: 1 c0\nN: x\nE: 0.0 nonsense\n")).name, "x");
  EXPECT_THROW(headerOf(write("N: x\nE: 0.0 1 01\n")), RecordingError);
}

TEST_F(RecordingFile, AMissingFileIsAnErrorWithItsCode) {
  try {
    readRecording(directory_ / "none.hid");
    FAIL();
  } catch (const RecordingError& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.what(),
              (directory_ / "none.hid").string() + ": cannot be read: No such file or directory");
  }
}

TEST_F(RecordingFile, AnythingButARegularFileIsRefusedAtOnce) {
  const auto pipe = directory_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THROW(readRecording(pipe), RecordingError);
  EXPECT_THROW(readRecording(directory_), RecordingError);
}

TEST_F(RecordingFile, AHugeFileIsRefusedUnread) {
  const auto path = write("");
  std::filesystem::resize_file(path, router::RouterLimits::kRecordingBytes + 1);
  try {
    readRecording(path);
    FAIL();
  } catch (const RecordingError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("larger than 67108864 bytes"));
  }
}

TEST(Recording, AByteHasOneOrTwoHexadecimalDigits) {
  std::string line = "R: 512";
  std::vector<std::uint8_t> expected;
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::string digits = platform::stringWithFormat("%x", byte);
    const std::string capitals = platform::stringWithFormat("%02X", byte);
    line += "\t" + digits + "  " + capitals;
    expected.insert(expected.end(), 2, static_cast<std::uint8_t>(byte));
  }
  EXPECT_EQ(parseRecording(line, "a.hid").header.reportDescriptor, expected);
  EXPECT_EQ(parseRecording("R: 2 c0 5\nE: 0 2 a b", "a.hid").reports[0], bytes("0a 0b"));
}

TEST(Recording, AWordThatIsNotAByteIsQuoted) {
  for (const std::string word : {"/", ":", "@", "G", "`", "g", "0g", "g0", "000", "0x"}) {
    expectError("R: 1 " + word + "\n", "a.hid:1: '" + word + "' is not a byte");
    expectError("R: 2 c0 " + word + " c0\n", "a.hid:1: '" + word + "' is not a byte");
  }
  const std::string sixteen(16, 'x');
  expectError("R: 1 " + sixteen, "a.hid:1: '" + sixteen + "' is not a byte");
  expectError("R: 1 x" + sixteen, "a.hid:1: '" + std::string(15, 'x') + "…' is not a byte");
}

TEST(Recording, ALineBeginsWithACapitalAndAColon) {
  for (const std::string kind : {"A", "Z", "S"})
    EXPECT_EQ(parseRecording(kind + ":\nR: 1 c0\n", "a.hid").reports.size(), 0U) << kind;
  for (const std::string line : {"@:", "[:", "a:", "R", "R;", "RR:"})
    expectError("\n#\n" + line, "a.hid:3: is not a line of a recording; " + std::string(kFormat));
}

TEST(Recording, BlanksAroundALineDoNotMatter) {
  const WholeRecording r =
      parseRecording(" \t\n\t R:\t1  c0 \t\r\n\r\n  # x\n N: \t a b\t \n", "a.hid");
  EXPECT_EQ(r.header.reportDescriptor, bytes("c0"));
  EXPECT_EQ(r.header.name, "a b");
}

TEST(Recording, TimesAreSecondsAndUpToSixDecimals) {
  const std::pair<const char*, std::int64_t> times[] = {{"000012.000345", 12'000'345},
                                                        {"0", 0},
                                                        {"7", 7'000'000},
                                                        {"19.9", 19'900'000},
                                                        {"1.000001", 1'000'001},
                                                        {"1.00099", 1'000'990},
                                                        {"10000000000.0", 10'000'000'000'000'000}};
  for (const auto& [text, microseconds] : times) {
    const auto r = parseRecording("R: 1 c0\nE: " + std::string(text) + " 0\n", "a.hid");
    EXPECT_EQ(r.times[0].count(), microseconds) << text;
  }
  for (const char* wrong : {"10000000001.0", ".5", "1.x", "1.5.5", "0x1", "1.-5", ""})
    expectError("R: 1 c0\nE: " + std::string(wrong) + "\n",
                "a.hid:2: the time is not a number of seconds");
}

TEST(Recording, NumbersMayBeAsLargeAsTheirThirtyTwoBits) {
  const WholeRecording r = parseRecording(
      "D: 4294967295\nR: 1 c0\nI: ffffffff FFFFFFFF ffffffff\nE: 0 0\n", "a.hid", 4294967295);
  EXPECT_EQ(r.header.bus, 0xffffffffU);
  EXPECT_EQ(r.header.vendor, 0xffffffffU);
  EXPECT_EQ(r.header.product, 0xffffffffU);
  EXPECT_EQ(r.reports.size(), 1U);
  EXPECT_EQ(parseRecording("D: 19\nR: 1 c0\nE: 0 0\n", "a.hid", 19).reports.size(), 1U);
}

TEST(Recording, ARecordingOfOtherDevicesIsRefusedByTheNumberThatWasAskedFor) {
  try {
    parseRecording("R: 1 c0\n", "a.hid", 12);
    FAIL() << "it was read";
  } catch (const RecordingError& error) {
    EXPECT_STREQ(error.what(), "a.hid: has no report descriptor for device 12");
  }
}

TEST(Recording, ReportsAreGivenOnlyAfterADescriptor) {
  const std::string text = "N: x\n";
  router::RecordingReader reader = test::readerOf(text, "a.hid");
  router::RecordedReport report;
  EXPECT_THROW(reader.next(&report), RecordingError);
}

TEST(Recording, TheEndStaysTheEnd) {
  const std::string text = "R: 1 c0\nE: 0 1 05\n";
  router::RecordingReader reader = test::readerOf(text, "a.hid");
  router::RecordedReport report;
  EXPECT_TRUE(reader.next(&report));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(reader.next(&report));
}

TEST(Recording, ALineMayBeAsLongAsItsBound) {
  const std::string longest(router::RouterLimits::kRecordingLineBytes - 1, 'x');
  const std::string text = "\n\n#" + longest + "\nR: 1 c0\n#" + longest;
  EXPECT_EQ(parseRecording(text, "a.hid").header.reportDescriptor, bytes("c0"));
  expectError("R: 1 c0\n\n#" + longest + "x", "a.hid:3: the line is longer than 262144 bytes");
  expectError("\n\n\n#" + longest + "x\n", "a.hid:4: the line is longer than 262144 bytes");
}

/// A source of `size` bytes, consisting of a descriptor and comments.
router::RecordingReader readerOfSize(std::size_t size) {
  return {[left = size, isFirst = true](std::span<char> buffer) mutable {
            const std::size_t count = std::min(left, buffer.size());
            std::fill_n(buffer.begin(), count, 'x');
            if (std::exchange(isFirst, false)) {
              constexpr std::string_view kDescriptor = "R: 1 c0\n";
              std::copy(kDescriptor.begin(), kDescriptor.end(), buffer.begin());
              buffer[kDescriptor.size()] = '#';
            } else if (count >= 2) {
              buffer[0] = '\n';
              buffer[1] = '#';
            }
            left -= count;
            return count;
          },
          "large"};
}

TEST(Recording, MayBeAsLargeAsItsBound) {
  router::RecordedReport report;
  router::RecordingReader largest = readerOfSize(router::RouterLimits::kRecordingBytes);
  EXPECT_FALSE(largest.next(&report));
  router::RecordingReader larger = readerOfSize(router::RouterLimits::kRecordingBytes + 1);
  try {
    larger.next(&report);
    FAIL() << "it was read";
  } catch (const RecordingError& error) {
    EXPECT_STREQ(error.what(), "large: is larger than 67108864 bytes");
  }
}

TEST(Recording, ASourceThatFailsIsAnErrorWithItsCode) {
  router::RecordingReader reader(
      [](std::span<char>) -> std::size_t {
        throw router::FileError("cannot be read: why", std::make_error_code(std::errc::io_error));
      },
      "a.hid");
  try {
    static_cast<void>(reader.header());
    FAIL() << "it was read";
  } catch (const RecordingError& error) {
    EXPECT_STREQ(error.what(), "a.hid: cannot be read: why");
    EXPECT_EQ(error.code(), std::errc::io_error);
  }
}

TEST_F(RecordingFile, EveryReaderBeginsAtTheBeginningAndCopiesWhatItTakes) {
  const std::string text = "R: 1 c0\nE: 0 1 05\n";
  const router::RecordingFile file = router::RecordingFile::at(write(text), 0);
  for (int i = 0; i < 2; ++i) {
    std::string copied;
    router::RecordingReader reader =
        file.read([&](std::span<const char> part) { copied.append(part.data(), part.size()); });
    EXPECT_EQ(router::readSummary(reader).reports, 1U);
    EXPECT_EQ(copied, text);
  }
}

TEST_F(RecordingFile, OfTheLargestSizeIsRead) {
  const auto path = write("");
  std::filesystem::resize_file(path, router::RouterLimits::kRecordingBytes);
  try {
    readRecording(path);
    FAIL() << "zeros are not a recording";
  } catch (const RecordingError& error) {
    EXPECT_EQ(error.what(), path.string() + ":1: the line is longer than 262144 bytes");
  }
}

}  // namespace
