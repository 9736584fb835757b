// SPDX-License-Identifier: Apache-2.0

#include "jobd/LogText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using jobd::LineSplitter;
using testing::ElementsAre;

std::vector<std::string> split(const std::vector<std::string>& pieces) {
  LineSplitter splitter;
  std::vector<std::string> lines;
  const auto sink = [&](std::string_view line) { lines.emplace_back(line); };
  for (const auto& piece : pieces) splitter.feed(piece, sink);
  splitter.finish(sink);
  return lines;
}

TEST(LogText, EntryHasTheClassicForm) {
  std::tm time{};
  time.tm_mon = 10;
  time.tm_mday = 21;
  time.tm_hour = 3;
  time.tm_min = 12;
  time.tm_sec = 45;
  EXPECT_EQ(jobd::logEntry(time, "host", "com.quillmar.hideventrouter", 345, "text"),
            "Nov 21 03:12:45 host com.quillmar.hideventrouter[345]: text\n");
  time.tm_mon = 0;
  time.tm_mday = 1;
  EXPECT_EQ(jobd::logEntry(time, "h", "n", 1, ""), "Jan  1 03:12:45 h n[1]: \n");
}

std::string entry(std::string_view text) {
  const std::string whole = jobd::logEntry({}, "h", "n", 1, text);
  return whole.substr(whole.find("]: ") + 3);
}

TEST(LogText, WhatAJobWritesCannotForgeAnEntryOrSteerATerminal) {
  EXPECT_EQ(entry("plain \xC3\xA4\xE2\x82\xAC\xF0\x9F\x90\xB9"),
            "plain \xC3\xA4\xE2\x82\xAC\xF0\x9F\x90\xB9\n");
  EXPECT_EQ(entry("a\tb"), "a b\n");
  EXPECT_EQ(entry("a\r\nb\x1b[31m\x7f"), "a\\x0d\\x0ab\\x1b[31m\\x7f\n");
  EXPECT_EQ(entry("C1 \xC2\x9B"
                  "31m"),
            "C1 \\x9b31m\n");
  EXPECT_EQ(entry("line \xE2\x80\xA8 paragraph \xE2\x80\xA9"), "line \\u2028 paragraph \\u2029\n");
  EXPECT_EQ(entry("turned \xE2\x80\xAE round \xE2\x81\xA6"), "turned \\u202e round \\u2066\n");
  EXPECT_EQ(entry("\xFF\xC0\x80"), "\\xff\\xc0\\x80\n");
}

TEST(LogText, AnEntryOfTheLargestSizeIsNotCut) {
  const std::string text(jobd::kMaximumEntryBytes, 'x');
  EXPECT_EQ(entry(text), text + "\n");
}

TEST(LogText, LinesComeWholeHoweverTheyArrive) {
  EXPECT_THAT(split({"one\ntwo\n"}), ElementsAre("one", "two"));
  EXPECT_THAT(split({"o", "ne", "\nt", "wo"}), ElementsAre("one", "two"));
  EXPECT_THAT(split({"\n\n"}), ElementsAre("", ""));
  EXPECT_THAT(split({}), ElementsAre());
}

TEST(LogText, LongLinesGoOnInAFurtherEntry) {
  const std::string longLine(2 * jobd::kMaximumEntryBytes + 5, 'x');
  const auto lines = split({longLine + "\nnext\n"});
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0].size(), jobd::kMaximumEntryBytes);
  EXPECT_EQ(lines[0] + lines[1] + lines[2], longLine);
  EXPECT_EQ(lines[3], "next");
}

TEST(LogText, ALineThatGoesOnIsKnown) {
  LineSplitter splitter;
  std::vector<bool> continuesLine;
  const auto sink = [&](std::string_view) { continuesLine.push_back(splitter.continuesLine()); };
  const std::string longLine(2 * jobd::kMaximumEntryBytes + 5, 'x');
  splitter.feed("one\n" + longLine + "\ntwo\n" + longLine, sink);
  splitter.finish(sink);
  splitter.feed("three\n", sink);
  EXPECT_THAT(continuesLine,
              ElementsAre(false, false, true, true, false, false, true, true, false));
}

TEST(LogText, AnEntryThatGoesOnIsNotCut) {
  const std::string text =
      std::string(jobd::kContinuationMark) + std::string(jobd::kMaximumEntryBytes, 'x');
  EXPECT_EQ(entry(text), text + "\n");
}

TEST(LogText, ALineOfExactlyTheLimitIsOneEntry) {
  const std::string exact(jobd::kMaximumEntryBytes, 'x');
  EXPECT_THAT(split({exact + "\n"}), ElementsAre(exact));
  EXPECT_THAT(split({exact}), ElementsAre(exact));
}

TEST(LogText, CharactersAreNotCutApart) {
  std::string text(jobd::kMaximumEntryBytes - 1, 'x');
  text += "\xF0\x9F\x90\xB9 end";
  const auto lines = split({text});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], std::string(jobd::kMaximumEntryBytes - 1, 'x'));
  EXPECT_EQ(lines[1], "\xF0\x9F\x90\xB9 end");
}

TEST(LogText, AnEndlessLineOfContinuationBytesStillMoves) {
  const std::string garbage(3 * jobd::kMaximumEntryBytes, '\x80');
  std::size_t total = 0;
  for (const auto& line : split({garbage})) {
    EXPECT_FALSE(line.empty());
    total += line.size();
  }
  EXPECT_EQ(total, garbage.size());
}

TEST(LogText, EveryMonthHasItsName) {
  EXPECT_EQ(jobd::kMaximumEntryBytes, 2048U);
  const std::vector<std::string> names{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm time{};
  for (std::size_t i = 0; i < names.size(); ++i) {
    time.tm_mon = static_cast<int>(i);
    EXPECT_EQ(jobd::logEntry(time, "h", "n", 1, "").substr(0, 4), names[i] + " ");
  }
}

TEST(LogText, CharactersAreNotCutApartWhereverTheyBegin) {
  for (std::size_t before = 1; before <= 4; ++before) {
    const std::string plain(jobd::kMaximumEntryBytes - before, 'x');
    const auto lines = split({plain + "\xF0\x9F\x90\xB9 end"});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], before == 4 ? plain + "\xF0\x9F\x90\xB9" : plain) << before;
  }
}

TEST(LogText, OfContinuationBytesNoMoreAreHeldBackThanASequenceHas) {
  const auto lines = split({std::string(jobd::kMaximumEntryBytes + 10, '\x80')});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].size(), jobd::kMaximumEntryBytes - 3);
}

TEST(LogText, WhatWasFinishedIsForgotten) {
  LineSplitter splitter;
  std::vector<std::string> lines;
  const auto sink = [&](std::string_view line) { lines.emplace_back(line); };
  splitter.feed("half", sink);
  splitter.finish(sink);
  splitter.feed("whole\n", sink);
  splitter.finish(sink);
  EXPECT_THAT(lines, ElementsAre("half", "whole"));
}

}  // namespace
