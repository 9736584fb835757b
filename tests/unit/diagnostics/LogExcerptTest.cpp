// SPDX-License-Identifier: Apache-2.0

#include "diagnostics/LogExcerpt.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/foundation/TextFile.h"
#include "tests/support/HeaderOracle.h"
#include "tests/support/TemporaryDirectory.h"

namespace diagnostics {
namespace {

using testsupport::HeaderOracle;
using testsupport::TemporaryDirectory;
using testsupport::writeFile;

const std::string kOurs = "Nov 21 03:12:45 host com.quillmar.hideventrouter[345]: ";
const std::string kOther = "Nov 21 03:12:45 host kernel[0]: ";
// Names the router, but comes from another process.
const std::string kNaming = "Nov 21 03:12:45 host launchd[1] (com.quillmar.hideventrouter): ";

std::string text(const platform::NSData& data) {
  return {reinterpret_cast<const char*>(data.bytes()), data.length()};
}

/// The excerpt of a log that arrives in pieces of equal length.
std::string excerptInPieces(std::string_view log, std::size_t length) {
  LogFilter filter;
  for (std::size_t at = 0; at < log.size(); at += length) filter.accept(log.substr(at, length));
  return text(*filter.finish());
}

/// The same for pieces of every length up to 80 and for a single piece.
std::string excerptOf(std::string_view log) {
  const std::string whole = excerptInPieces(log, std::max<std::size_t>(log.size(), 1));
  for (std::size_t length = 1; length <= 80; ++length)
    EXPECT_EQ(excerptInPieces(log, length), whole) << "in pieces of " << length;
  return whole;
}

TEST(LogExcerpt, AnEntryIsTakenWithItsContinuationLines) {
  EXPECT_EQ(excerptOf(kOther + "a\n" + kOurs + "b\n  c\n\td\n" + kOther + "e\n"),
            kOurs + "b\n  c\n\td");
}

TEST(LogExcerpt, AContinuationLineThatNamesTheLabelTakesNothing) {
  EXPECT_EQ(excerptOf(kOther + "a\n  com.quillmar.hideventrouter\n  c\n"), "");
}

TEST(LogExcerpt, TheLabelMayStandAnywhereInTheHeadersLine) {
  EXPECT_EQ(excerptOf(kNaming + "a"), kNaming + "a");
  EXPECT_EQ(excerptOf(kOther + "exit of com.quillmar.hideventrouter"),
            kOther + "exit of com.quillmar.hideventrouter");
  EXPECT_EQ(excerptOf(kOther + "xcom.quillmar.hideventrouterx\n"),
            kOther + "xcom.quillmar.hideventrouterx\n");
}

TEST(LogExcerpt, TheLabelsCaseCounts) {
  EXPECT_EQ(excerptOf("Nov 21 03:12:45 host com.quillmar.HIDEventRouter[345]: a\n"), "");
}

TEST(LogExcerpt, AnEmptyLineAfterAKeptEntryIsKept) {
  EXPECT_EQ(excerptOf(kOurs + "a\n\n" + kOurs + "b"), kOurs + "a\n\n" + kOurs + "b");
  EXPECT_EQ(excerptOf(kOurs + "a\n\n\n\n" + kOther + "b"), kOurs + "a\n\n\n");
}

TEST(LogExcerpt, ALogThatEndsWithALineFeedAfterAKeptEntryGivesOneToo) {
  EXPECT_EQ(excerptOf(kOurs + "a\n"), kOurs + "a\n");
  EXPECT_EQ(excerptOf(kOurs + "a\n\n"), kOurs + "a\n\n");
  EXPECT_EQ(excerptOf(kOurs + "a"), kOurs + "a");
  EXPECT_EQ(excerptOf(kOurs + "a\n" + kOther), kOurs + "a");
}

TEST(LogExcerpt, AHeaderWithADigitInItsProcessIsAContinuation) {
  const std::string digit = "Nov 21 03:12:45 host router2[7]: com.quillmar.hideventrouter";
  EXPECT_EQ(excerptOf(kOurs + "a\n" + digit + "\n" + kOther), kOurs + "a\n" + digit);
  EXPECT_EQ(excerptOf(kOther + "a\n" + digit + "\n"), "");
}

TEST(LogExcerpt, LinesBeforeTheFirstHeaderAreNeverKept) {
  EXPECT_EQ(excerptOf("com.quillmar.hideventrouter\n\n" + kOurs + "a"), kOurs + "a");
}

TEST(LogExcerpt, NothingAndLineFeedsAloneGiveNothing) {
  EXPECT_EQ(excerptOf(""), "");
  EXPECT_EQ(excerptOf("\n"), "");
  EXPECT_EQ(excerptOf("\n\n\n\n"), "");
}

TEST(LogExcerpt, AByteOrderMarkIsACharacterLikeAnother) {
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_EQ(excerptOf(mark + kOurs + "a\n"), "");
  EXPECT_EQ(excerptOf(mark + kOther + "a\n" + kOurs + "b\n"), kOurs + "b\n");
  EXPECT_EQ(excerptOf(kOurs + "a\n" + mark + kOther + "b\n"),
            kOurs + "a\n" + mark + kOther + "b\n");
}

TEST(LogExcerpt, CarriageReturnsAndNULStayWhereTheyAre) {
  const std::string nul("\0", 1);
  const std::string log = kOurs + "a" + nul + "\r\n" + nul + "\r\n";
  EXPECT_EQ(excerptOf(log), log);
  EXPECT_EQ(excerptOf("Nov 21 03:12:45 ho" + nul + "st x[1]\r: com.quillmar.hideventrouter\r\n"),
            "Nov 21 03:12:45 ho" + nul + "st x[1]\r: com.quillmar.hideventrouter\r\n");
}

TEST(LogExcerpt, UnkeptEntriesBetweenKeptOnesLeaveNoGap) {
  EXPECT_EQ(
      excerptOf(kOurs + "1\n" + kOther + "2\n" + kOther + "3\n" + kOurs + "4\n" + kNaming + "5"),
      kOurs + "1\n" + kOurs + "4\n" + kNaming + "5");
}

TEST(LogExcerpt, ALineLongerThanAnyPieceIsKeptOrDroppedWhole) {
  const std::string host(3 * 1024 * 1024, 'h');
  const std::string header = "Nov 21 03:12:45 " + host + " p[1]: ";
  for (const std::size_t length : {4096, 65536, 262144}) {
    const std::string kept = header + "com.quillmar.hideventrouter";
    EXPECT_EQ(excerptInPieces("x\n" + kept + "\n" + header + "\n", length), kept);
    EXPECT_EQ(excerptInPieces(header + "\n" + kOurs + "\n", length), kOurs + "\n");
    EXPECT_EQ(excerptInPieces(kOurs + "\n" + host, length), kOurs + "\n" + host);
    EXPECT_EQ(excerptInPieces(host + "com.quillmar.hideventrouter", length), "");
  }
}

/// The peak memory use of this process, in MiB.
double peakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
  ADD_FAILURE() << "the system does not say";
  return 0;
}

TEST(LogExcerpt, ALineOfAGigabyteThatCannotBeKeptTakesNoMemory) {
  const std::string piece(1024 * 1024, 'x');
  const double before = peakMemory();
  for (const auto& start : {std::string(), kOther + "\n", std::string("Nov 21 03:12:45 host x1")}) {
    LogFilter filter;
    filter.accept(start);
    for (int i = 0; i < 1024; ++i) filter.accept(piece);
    EXPECT_EQ(filter.finish()->length(), 0U);
  }
  EXPECT_LT(peakMemory(), before + 64);
}

/// A log of entries, continuation lines and lines that are almost one or the other.
std::string randomLog(std::mt19937& random) {
  static const std::vector<std::string> lines = {
      kOurs + "a",
      kOther + "b",
      kNaming + "c",
      "  continued",
      "",
      "com.quillmar.hideventrouter",
      "com.quillmar.hideventroute",
      "Nov 21 03:12:45 host router2[7]: com.quillmar.hideventrouter",
      "Nov 21 03:12:45 höst é[7]: x",
      "\u017Fep  1 1:2:3 \u180E\u212A p[1]\u2003: com.quillmar.hideventrouter é",
      "Nov 21 03:12:45 host kernel[0",
      kOther + "com.quillmar.com.quillmar.hideventrouter",
      "\r",
      "\xEF\xBB\xBF" + kOurs,
      "Nov"};
  std::string log;
  for (auto count = random() % 12; count > 0; --count) {
    log += lines[random() % lines.size()];
    if (count > 1 || random() % 2 == 0) log += '\n';
  }
  return log;
}

TEST(LogExcerpt, RandomLogsInRandomPiecesGiveWhatTheWholeTextGives) {
  HeaderOracle oracle;
  std::mt19937 random(30);
  std::size_t kept = 0;
  for (int round = 0; round < 20000; ++round) {
    const std::string log = randomLog(random);
    const std::string expected = oracle.excerpt(log, kRouterLabel);
    kept += expected.size();
    LogFilter filter;
    const std::size_t most = std::size_t{1} << random() % 9;
    for (std::size_t at = 0; at < log.size();) {
      const std::size_t length = 1 + random() % most;
      filter.accept(std::string_view(log).substr(at, length));
      at += length;
    }
    ASSERT_EQ(text(*filter.finish()), expected) << log;
  }
  EXPECT_GT(kept, 100000U);
}

// ---- Files

class LogFile : public testing::Test {
 protected:
  LogExcerpt excerptOfFile(std::string_view log) {
    writeFile(path(), log);
    return read();
  }
  LogExcerpt read() const {
    return readLogExcerpt(
        platform::NSURL::fileURLWithPath(platform::NSString::stringWithUTF8(path().string())));
  }
  [[nodiscard]] std::filesystem::path path() const { return directory_.path() / "a log, 100 %"; }

  static void expectFailure(const LogExcerpt& excerpt, std::int64_t code) {
    ASSERT_NE(excerpt.error, nullptr);
    EXPECT_EQ(excerpt.error->domain()->UTF8String(), "NSCocoaErrorDomain");
    EXPECT_EQ(excerpt.error->code(), code) << excerpt.error->description();
    ASSERT_NE(excerpt.data, nullptr);
    EXPECT_EQ(excerpt.data->length(), 0U);
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(LogFile, GivesItsExcerptAndNoError) {
  const auto excerpt = excerptOfFile(kOther + "a\n" + kOurs + "é\n");
  EXPECT_EQ(excerpt.error, nullptr);
  EXPECT_EQ(text(*excerpt.data), kOurs + "é\n");
}

TEST_F(LogFile, WithoutMatchingEntriesGivesEmptyDataAndNoError) {
  for (const auto& log : {std::string(), kOther + "a\n"}) {
    const auto excerpt = excerptOfFile(log);
    EXPECT_EQ(excerpt.error, nullptr);
    ASSERT_NE(excerpt.data, nullptr);
    EXPECT_EQ(excerpt.data->length(), 0U);
  }
}

TEST_F(LogFile, OfSeveralPiecesGivesWhatTheWholeTextGives) {
  std::mt19937 random(31);
  std::string log;
  while (log.size() < 3 * 1024 * 1024) log += randomLog(random);
  HeaderOracle oracle;
  const auto excerpt = excerptOfFile(log);
  EXPECT_EQ(excerpt.error, nullptr);
  EXPECT_TRUE(text(*excerpt.data) == oracle.excerpt(log, kRouterLabel));
}

TEST_F(LogFile, ThatIsMissingIsAReadError) {
  expectFailure(read(), platform::NSFileReadNoSuchFileError);
}

TEST_F(LogFile, ThatMayNotBeReadIsAReadError) {
  writeFile(path(), kOurs);
  ASSERT_EQ(::chmod(path().c_str(), 0), 0);
  // The superuser may read anything, so another user has to try.
  const uid_t self = ::geteuid();
  if (self == 0) {
    ASSERT_EQ(::chmod(path().parent_path().c_str(), 0755), 0);
    ASSERT_EQ(::seteuid(65534), 0);
  }
  const auto excerpt = read();
  ASSERT_EQ(::seteuid(self), 0);
  expectFailure(excerpt, platform::NSFileReadNoPermissionError);
}

TEST_F(LogFile, ThatIsADirectoryOrAPipeIsAReadErrorAndDoesNotHang) {
  std::filesystem::create_directory(path());
  expectFailure(read(), platform::NSFileReadUnknownError);
  std::filesystem::remove(path());
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  expectFailure(read(), platform::NSFileReadUnknownError);
}

TEST_F(LogFile, ThatIsNotUTF8AnywhereIsAReadErrorWithEmptyData) {
  const std::string good = kOurs + "a\n";
  const std::string padding(300 * 1024, 'x');
  for (const std::string bad :
       {"\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80"}) {
    SCOPED_TRACE(testing::PrintToString(bad));
    expectFailure(excerptOfFile(bad + good), platform::NSFileReadInapplicableStringEncodingError);
    expectFailure(excerptOfFile(good + bad), platform::NSFileReadInapplicableStringEncodingError);
    expectFailure(excerptOfFile(good + padding + bad + "\n" + good),
                  platform::NSFileReadInapplicableStringEncodingError);
  }
}

TEST_F(LogFile, MayHaveACharacterAcrossTheBorderOfTwoReads) {
  for (std::size_t shift = 0; shift < 5; ++shift) {
    std::string log = kOurs;
    log.resize(256 * 1024 - shift, 'x');
    log += "😀\n";
    const auto excerpt = excerptOfFile(log);
    EXPECT_EQ(excerpt.error, nullptr);
    EXPECT_TRUE(text(*excerpt.data) == log) << shift;
  }
}

TEST(LogExcerpt, OfNoFileURLIsAReadError) {
  for (const auto& url : {std::shared_ptr<platform::NSURL>(),
                          platform::NSURL::URLWithString(platform::str("http://x/y"))}) {
    const auto excerpt = readLogExcerpt(url);
    ASSERT_NE(excerpt.error, nullptr);
    EXPECT_EQ(excerpt.error->code(), platform::NSFileReadUnknownError);
    EXPECT_EQ(excerpt.data->length(), 0U);
  }
}

}  // namespace
}  // namespace diagnostics
