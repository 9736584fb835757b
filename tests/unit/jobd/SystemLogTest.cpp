// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::SystemLog;
using testsupport::readFile;
using testsupport::TemporaryDirectory;

// Only lines of a table can be noted, not free text.
static_assert(!std::is_invocable_v<decltype(&SystemLog::note), SystemLog&, std::string>);
static_assert(!std::is_invocable_v<decltype(&SystemLog::note), SystemLog&, const char*>);

const platform::LogLine kNote = platform::LogLine::of<jobd::row::installed>("two");

platform::FileDescriptor open(const std::filesystem::path& path) {
  return platform::FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

TEST(SystemLog, EntriesAreAppended) {
  const TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "system.log", "before\n");
  SystemLog(open(directory.path())).write("com.x", 7, "one");
  SystemLog(open(directory.path())).note(kNote);
  EXPECT_THAT(
      readFile(directory.path() / "system.log"),
      testing::MatchesRegex(
          "before\n[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ [^ ]+ com\\.x\\[7\\]: one\n"
          "[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ [^ ]+ wlhid-jobd\\[[0-9]+\\]: installed two\n"));
}

TEST(SystemLog, ItsSizeIsBounded) {
  const TemporaryDirectory directory;
  SystemLog log(open(directory.path()), 4096);
  for (int i = 0; i < 1000; ++i) log.write("com.x", 1, "entry number " + std::to_string(i));
  const std::string current = readFile(directory.path() / "system.log");
  const std::string old = readFile(directory.path() / "system.log.0");
  EXPECT_LT(current.size(), 4096U + 100U);
  EXPECT_LT(old.size(), 4096U + 100U);
  EXPECT_GE(old.size(), 4096U);
  EXPECT_THAT(current, testing::HasSubstr("entry number 999\n"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            2);
}

TEST(SystemLog, OneWriterCannotPushOutTheOthers) {
  const TemporaryDirectory directory;
  SystemLog log(open(directory.path()));
  int told = 0;
  log.onLeavingOut([&] { ++told; });
  const std::string line(1000, 'x');
  for (int i = 0; i < 2000; ++i) log.write("com.loud", 1, line);
  log.write("com.quiet", 2, "said once");
  EXPECT_EQ(told, 1);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "system.log.0"));
  std::string all = readFile(directory.path() / "system.log");
  EXPECT_LT(all.size(), 2U * jobd::LogBudget::kCapacity);
  EXPECT_THAT(all, testing::HasSubstr("com.quiet[2]: said once\n"));

  log.logLeftOut();
  log.logLeftOut();
  all = readFile(directory.path() / "system.log");
  const auto written = static_cast<std::uint64_t>(std::count(all.begin(), all.end(), '\n')) - 2;
  EXPECT_THAT(all, testing::EndsWith("]: " + std::to_string(2000 - written) +
                                     " lines of com.loud were left out: it writes too much at a "
                                     "time\n"));
  log.write("com.loud", 1, std::string(jobd::LogBudget::kCapacity, 'x'));
  EXPECT_EQ(told, 2) << "called again after the last ones were logged";
}

TEST(SystemLog, ALogThatWasTakenAwayIsBegunAnew) {
  const TemporaryDirectory directory;
  SystemLog log(open(directory.path()));
  log.write("com.x", 1, "one");
  std::filesystem::remove(directory.path() / "system.log");
  log.write("com.x", 1, "two");
  EXPECT_THAT(readFile(directory.path() / "system.log"), testing::HasSubstr("two"));
}

TEST(SystemLog, LinksAndPipesInItsPlaceAreNotWritten) {
  const TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "victim", "untouched");
  std::filesystem::create_symlink("victim", directory.path() / "system.log");
  SystemLog log(open(directory.path()));
  log.write("com.x", 1, "one");
  EXPECT_EQ(readFile(directory.path() / "victim"), "untouched");
  std::filesystem::remove(directory.path() / "system.log");
  ASSERT_EQ(::mkfifo((directory.path() / "system.log").c_str(), 0600), 0);
  log.write("com.x", 1, "two");
  std::filesystem::remove(directory.path() / "system.log");
  log.write("com.x", 1, "three");
  EXPECT_THAT(readFile(directory.path() / "system.log"), testing::HasSubstr("three"));
}

/// Whether a new log accepts that text as its first entry.
bool takes(const std::string& text) {
  const TemporaryDirectory directory;
  SystemLog log(open(directory.path()));
  bool isLeftOut = false;
  log.onLeavingOut([&] { isLeftOut = true; });
  log.write("com.x", 1, text);
  EXPECT_EQ(isLeftOut, readFile(directory.path() / "system.log").empty());
  return !isLeftOut;
}

TEST(SystemLog, WhatAnEntryMayBecomeIsCounted) {
  constexpr std::size_t room = jobd::LogBudget::kCapacity - 64;
  EXPECT_TRUE(takes(std::string(room, 'x')));
  EXPECT_FALSE(takes(std::string(room + 1, 'x')));
  for (const char plain : {' ', '~', '\x20'}) {
    EXPECT_TRUE(takes(std::string(room, plain)));
  }
  for (const char escaped : {'\x01', '\x1F', '\x7F', '\x80', '\xFF'}) {
    EXPECT_TRUE(takes(std::string(room / 4, escaped)));
    EXPECT_FALSE(takes(std::string(room / 4 + 1, escaped)));
  }
}

TEST(SystemLog, ALogOfItsLimitIsBegunAnewByTheNextEntry) {
  const TemporaryDirectory directory;
  EXPECT_EQ(SystemLog::kDefaultLimit, 4'194'304U);
  testsupport::writeFile(directory.path() / "system.log", std::string(100, 'x'));
  SystemLog under(open(directory.path()), 101);
  under.write("com.x", 1, "opens it");  // an existing file is appended to when it is opened
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "system.log.0"));
  const auto size = std::filesystem::file_size(directory.path() / "system.log");
  SystemLog exact(open(directory.path()), size + 1);
  exact.write("com.x", 1, "opens it");
  std::filesystem::resize_file(directory.path() / "system.log", size);
  exact.write("com.x", 1, "one byte is left");
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "system.log.0"));
  std::filesystem::resize_file(directory.path() / "system.log", size + 1);
  exact.write("com.x", 1, "none is left");
  EXPECT_EQ(std::filesystem::file_size(directory.path() / "system.log.0"), size + 1);
  EXPECT_THAT(readFile(directory.path() / "system.log"), testing::EndsWith("none is left\n"));
}

TEST(SystemLog, IsForAllToReadAndItsOwnerToWrite) {
  const TemporaryDirectory directory;
  const mode_t mask = ::umask(0);
  SystemLog(open(directory.path())).note(kNote);
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat((directory.path() / "system.log").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST(SystemLog, NobodyNeedBeToldOfWhatIsLeftOut) {
  const TemporaryDirectory directory;
  SystemLog log(open(directory.path()));
  for (int i = 0; i < 2; ++i) log.write("com.x", 1, std::string(jobd::LogBudget::kCapacity, 'x'));
  log.logLeftOut();
  EXPECT_THAT(readFile(directory.path() / "system.log"),
              testing::HasSubstr("2 lines of com.x were left out"));
}

TEST(SystemLog, WithoutADirectoryNothingIsWritten) {
  SystemLog log{platform::FileDescriptor()};
  EXPECT_NO_FATAL_FAILURE(log.note(kNote));
}

/// Whether this process may give the machine another name, for itself alone.
bool mayRenameHost() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::unshare(CLONE_NEWUTS) == 0 && ::sethostname("x", 1) == 0 ? 0 : 1);
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// The host in an entry when the machine has that name.
std::string hostWhereItIs(const std::string& name) {
  const TemporaryDirectory directory;
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWUTS) == 0 && ::sethostname(name.data(), name.size()) == 0)
      SystemLog(open(directory.path())).write("com.x", 1, "text");
    ::_exit(0);
  }
  ::waitpid(child, nullptr, 0);
  const std::string entry = readFile(directory.path() / "system.log");
  if (entry.empty()) return entry;
  const std::size_t afterTime = std::string("Nov 21 03:12:45 ").size();
  return entry.substr(afterTime, entry.find(" com.x[") - afterTime);
}

TEST(SystemLog, TheHostIsOneWord) {
  const std::string longest(64, 'h');  // the longest that the system accepts
  if (!mayRenameHost()) GTEST_SKIP() << "needs the superuser";
  EXPECT_EQ(hostWhereItIs("x"), "x");
  EXPECT_EQ(hostWhereItIs("my host"), "my_host");
  EXPECT_EQ(hostWhereItIs(""), "localhost");
  EXPECT_EQ(hostWhereItIs(longest), longest);
  EXPECT_EQ(hostWhereItIs("a\nb"), "a\\x0ab");
}

}  // namespace
