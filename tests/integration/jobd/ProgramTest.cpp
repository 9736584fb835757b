// SPDX-License-Identifier: Apache-2.0

// The daemon as a program: its options, its messages, and what it inherits from its parent.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tests/integration/jobd/SuiteFixture.h"

namespace {

using namespace jobdtest;
using platform::FileDescriptor;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

class Program : public JobdSuite {
 protected:
  struct Run {
    int status = -1;
    std::string errors;
    std::string readiness;
  };
  /// Runs it until it ends, with its readiness pipe at that number. A daemon in the background ends
  /// with its parent here.
  Run run(std::vector<std::string> options, int readyAt = 9) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor ready(ends[0]);
    FileDescriptor told(::fcntl(ends[1], F_DUPFD_CLOEXEC, 100));  // out of the way of `readyAt`
    ::close(ends[1]);
    const fs::path errors = temporary.path() / "errors";
    options.insert(options.begin(), WLHID_JOBD_PROGRAM);
    std::vector<char*> arguments;
    for (auto& each : options) arguments.push_back(each.data());
    arguments.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      const int file = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(file, 2);
      ::dup2(told.get(), readyAt);
      ::execv(WLHID_JOBD_PROGRAM, arguments.data());
      ::_exit(126);
    }
    told.reset();
    Run result;
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = ::read(ready.get(), buffer.data(), buffer.size())) > 0;)
      result.readiness.append(buffer.data(), static_cast<std::size_t>(got));
    int status = 0;
    ::waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.errors = testsupport::readFile(errors);
    return result;
  }
  std::string path() const { return root.path().string(); }
  /// A root with a job, which keeps a daemon running even without requests.
  void prepareJob() {
    ASSERT_TRUE(bless(echoImage()).succeeded());
    const Process process = daemonProcess();
    process.signal(SIGTERM);
    ASSERT_TRUE(process.hasGone());
  }
};

TEST_F(Program, WrongOptionsAreNamed) {
  using Options = std::vector<std::string>;
  const std::vector<std::pair<Options, std::string>> cases{
      {{}, "--root needs an absolute path"},
      {{"--root", ""}, "--root needs an absolute path"},
      {{"--root", "relative"}, "--root needs an absolute path"},
      {{"--foreground"}, "--root needs an absolute path"},
      {{"--root"}, "--root is unknown or needs a value"},
      {{"--other", "x"}, "unknown option --other"},
      {{"--root", path(), "--idle-ms", "x"}, "--idle-ms needs a number"},
      {{"--root", path(), "--idle-ms", "1x"}, "--idle-ms needs a number"},
      {{"--root", path(), "--idle-ms", "-1"}, "--idle-ms needs a number"},
      {{"--root", path(), "--idle-ms", ""}, "--idle-ms needs a number"},
      {{"--root", path(), "--ready-fd", "99999999999"}, "--ready-fd needs a number"},
      {{"--root", path(), "--idle-ms"}, "--idle-ms is unknown or needs a value"},
  };
  for (const auto& [options, cause] : cases) {
    const Run result = run(options);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "wlhid-jobd: " + cause + "\n");
  }
  EXPECT_FALSE(fs::exists(root.path()));
}

TEST_F(Program, WithNothingToKeepItEndsAfterTheTimeGiven) {
  const Run result = run({"--foreground", "--root", path(), "--idle-ms", "0", "--ready-fd", "9"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.readiness, "\n");
  EXPECT_FALSE(fs::exists(root.controlEndpoint()));
}

TEST_F(Program, TheCauseOfAFailureGoesToBothWhoWaitAndWhoRead) {
  testsupport::writeFile(root.path(), "");
  const Run result = run({"--foreground", "--root", path(), "--ready-fd", "9"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.readiness, "the system root " + path() + " is not a directory\n");
  EXPECT_EQ(result.errors, "wlhid-jobd: " + result.readiness);
}

TEST_F(Program, ReadinessIsSaidOnAnyDescriptor) {
  for (const int number : {3, 4, 9}) {
    const Run result = run(
        {"--foreground", "--root", path(), "--idle-ms", "0", "--ready-fd", std::to_string(number)},
        number);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.readiness, "\n") << number;
  }
  const Run none = run({"--foreground", "--root", path(), "--idle-ms", "0"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.readiness, "");
}

TEST_F(Program, WhereAnotherServesItIsReadyAtOnceAndEnds) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const auto serving = daemonProcess().identifier();
  const Run result = run({"--foreground", "--root", path(), "--ready-fd", "9"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.readiness, "\n");
  EXPECT_EQ(daemonProcess().identifier(), serving);
}

TEST_F(Program, InTheBackgroundItIsASessionOfItsOwnWhereNothingIsHeldOpen) {
  prepareJob();
  const FileDescriptor careless(::fcntl(::open("/dev/zero", O_RDONLY), F_DUPFD, 20));
  const mode_t mask = ::umask(077);
  const Run result = run({"--root", path(), "--ready-fd", "9"});
  ::umask(mask);
  EXPECT_EQ(result.status, 0) << "the parent does not wait for it";
  EXPECT_EQ(result.readiness, "\n");
  const auto daemon = daemonProcess().identifier();
  EXPECT_NE(daemon, ::getpid());
  EXPECT_EQ(::getsid(daemon), daemon);
  const fs::path process = "/proc/" + std::to_string(daemon);
  EXPECT_EQ(fs::read_symlink(process / "cwd"), "/");
  for (const auto& entry : fs::directory_iterator(process / "fd")) {
    std::error_code ignored;
    const std::string target = fs::read_symlink(entry.path(), ignored).string();
    EXPECT_THAT(target, Not(HasSubstr("/dev/zero"))) << entry.path();
    EXPECT_FALSE(entry.path().filename() == "9" && target.starts_with("pipe:"))
        << "the readiness pipe is closed after the report";
  }
  struct stat status {};
  ASSERT_EQ(::stat(root.systemLog().parent_path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(Program, WhatItMakesIsForOthersToReadWhateverTheMaskWas) {
  const mode_t mask = ::umask(077);
  const Run result = run({"--foreground", "--root", path(), "--idle-ms", "0"});
  ::umask(0);
  const Run again = run({"--foreground", "--root", path() + "2", "--idle-ms", "0"});
  ::umask(mask);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(again.status, 0);
  for (const std::string& made : {path(), path() + "2"}) {
    struct stat status {};
    ASSERT_EQ(::stat(made.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U) << made;
  }
}

TEST_F(Program, AHangUpIsNoReasonToEndAndAnInterruptIs) {
  prepareJob();
  daemon().ensureRunning();
  const Process process = daemonProcess();
  process.signal(SIGHUP);
  Client client = connect();
  EXPECT_EQ(client.ask("echo still here"), "still here");
  EXPECT_EQ(daemonProcess().identifier(), process.identifier());
  process.signal(SIGINT);
  EXPECT_TRUE(process.hasGone());
  EXPECT_FALSE(fs::exists(root.controlEndpoint()));
  EXPECT_FALSE(fs::exists(root.endpoint(kEchoLabel)));
}

TEST_F(Program, AReplacedEndpointEndsIt) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process process = daemonProcess();
  fs::rename(root.controlEndpoint(), root.controlEndpoint().string() + ".away");
  EXPECT_TRUE(process.hasGone());
}

TEST_F(Program, OtherChangesBesideItsEndpointDoNotEndIt) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process process = daemonProcess();
  testsupport::writeFile(root.controlEndpoint().parent_path() / "other", "");
  fs::remove(root.controlEndpoint().parent_path() / "other");
  EXPECT_EQ(connect().ask("echo still here"), "still here");
  EXPECT_EQ(daemonProcess().identifier(), process.identifier());
}

}  // namespace
