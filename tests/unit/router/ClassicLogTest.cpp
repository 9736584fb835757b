// SPDX-License-Identifier: Apache-2.0

#include "router/ClassicLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using platform::LogLine;
using router::ClassicLog;
using router::LogEntry;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr platform::LogTemplate kText{"it says {text}"};

class ClassicLogTest : public testing::Test {
 protected:
  ClassicLogTest() { std::ofstream{file_}; }
  void write(const char* text) { log_.write({LogLine::of<kText>(text)}); }
  [[nodiscard]] std::string content() const { return testsupport::readFile(file_); }
  [[nodiscard]] long lines() const {
    const std::string text = content();
    return std::count(text.begin(), text.end(), '\n');
  }

  const testsupport::TemporaryDirectory directory_;
  const fs::path file_ = directory_.path() / "system.log";
  ClassicLog log_{platform::FileDescriptor(
      ::open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
};

TEST_F(ClassicLogTest, AnEntryHasTheClassicForm) {
  write("hello");
  EXPECT_THAT(content(), MatchesRegex("[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ [^ ]+ "
                                      "com.quillmar.hideventrouter\\[[0-9]+\\]: it says hello\n"));
  EXPECT_THAT(content(), testing::HasSubstr("[" + std::to_string(::getpid()) + "]: "));
}

TEST_F(ClassicLogTest, TheTimeIsThatOfTheEntry) {
  LogEntry entry{LogLine::of<kText>("then")};
  std::tm time{};
  time.tm_year = 120;
  time.tm_mon = 1;
  time.tm_mday = 3;
  time.tm_hour = 4;
  time.tm_isdst = -1;
  entry.at = std::mktime(&time);
  log_.write(entry);
  EXPECT_THAT(content(), StartsWith("Feb  3 04:00:00 "));
}

TEST_F(ClassicLogTest, AppendsToWhatOthersHaveWritten) {
  std::ofstream(file_) << "before\n";
  write("one");
  std::ofstream(file_, std::ios::app) << "between\n";
  write("two");
  EXPECT_THAT(content(), MatchesRegex("before\n.*it says one\nbetween\n.*it says two\n"));
}

TEST_F(ClassicLogTest, GoesOnInTheFileThatTakesItsPlace) {
  write("one");
  fs::rename(file_, directory_.path() / "system.log.1");
  std::ofstream{file_};
  write("two");
  EXPECT_THAT(testsupport::readFile(directory_.path() / "system.log.1"), EndsWith("says one\n"));
  EXPECT_THAT(content(), EndsWith("it says two\n"));
  EXPECT_EQ(lines(), 1);
  fs::resize_file(file_, 0);
  write("three");
  EXPECT_THAT(content(), EndsWith("it says three\n"));
  EXPECT_EQ(lines(), 1);
}

TEST_F(ClassicLogTest, CreatesNothingAndCountsWhatWasLost) {
  fs::remove(file_);
  write("one");
  write("two");
  EXPECT_FALSE(fs::exists(file_));
  std::ofstream{file_};
  write("three");
  EXPECT_EQ(lines(), 2);
  EXPECT_THAT(content(), MatchesRegex(".*: 2 lines were left out: [^\n]*\n.*it says three\n"));
}

TEST_F(ClassicLogTest, FollowsNoLinkAndWritesToNoPipe) {
  const fs::path elsewhere = directory_.path() / "elsewhere";
  std::ofstream{elsewhere};
  fs::remove(file_);
  fs::create_symlink(elsewhere, file_);
  write("one");
  EXPECT_EQ(testsupport::readFile(elsewhere), "");
  fs::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  const platform::FileDescriptor reader(::open(file_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  write("two");
  char byte = 0;
  EXPECT_LE(::read(reader.get(), &byte, 1), 0);
}

}  // namespace
