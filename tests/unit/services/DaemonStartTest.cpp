// SPDX-License-Identifier: Apache-2.0

// Starting the job daemon: what the program receives, what it may report, and what remains of one
// that fails. The daemons here are scripts.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/services/JobDaemon.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "tests/support/Emulation.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/services/FakeDaemon.h"

namespace {

using namespace platform;
using servicestest::FakeDaemon;
using testing::ElementsAre;
using testing::HasSubstr;
using testsupport::readFile;
using testsupport::ScopedVariable;
namespace fs = std::filesystem;

class DaemonStart : public testing::Test {
 protected:
  DaemonStart() { fs::create_directories(root_.path()); }

  /// Creates the program to start; "$said" is a file that the test reads.
  void program(const std::string& lines) const {
    testsupport::writeFile(program_, "#!/bin/sh\nsaid='" + said_.string() + "'\n" + lines + "\n");
    ASSERT_EQ(::chmod(program_.c_str(), 0755), 0);
  }
  /// The error that starting it throws; "" if it does not throw.
  [[nodiscard]] std::string failure() const {
    try {
      JobDaemon(root_).ensureRunning();
    } catch (const ServiceError& error) {
      EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
      return error.what();
    }
    return "";
  }
  static bool hasNoChild() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

  testsupport::TemporaryDirectory temporary_;
  fs::path program_ = temporary_.path() / "program";
  fs::path said_ = temporary_.path() / "said";
  SystemRoot root_{temporary_.path() / "root"};
  ScopedVariable chosen_{"WLHID_JOBD", program_.c_str()};
};

TEST_F(DaemonStart, ItIsToldTheRootAndWhereToSaySo) {
  program("echo \"$0 $*\" >$said; echo >&3");
  EXPECT_EQ(failure(), "");
  EXPECT_EQ(readFile(said_),
            program_.string() + " --root " + root_.path().string() + " --ready-fd 3\n");
  EXPECT_TRUE(hasNoChild());
}

TEST_F(DaemonStart, ItGetsNoEnvironment) {
  program("cat /proc/$$/environ >$said; echo >&3");
  EXPECT_EQ(failure(), "");
  EXPECT_EQ(readFile(said_), "");
}

TEST_F(DaemonStart, ItsStreamsLeadNowhereAndNothingElseOfOursIsOpen) {
  // Left open across an exec, as a careless application does; 10 and beyond may be the shell's.
  const FileDescriptor careless(::fcntl(::fileno(stderr), F_DUPFD, 4));
  ASSERT_LT(careless.get(), 10);
  program(
      "for n in 0 1 2; do link=$(readlink /proc/$$/fd/$n); echo $link >>$said; done\n"
      "for n in 3 4 5 6 7 8 9; do [ -e /proc/$$/fd/$n ] && echo $n >>$said; done\n"
      "echo >&3");
  EXPECT_EQ(failure(), "");
  EXPECT_EQ(readFile(said_), "/dev/null\n/dev/null\n/dev/null\n3\n");
}

TEST_F(DaemonStart, ItIsASessionOfItsOwnWithSignalsAsTheSystemSetsThem) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction before {};
  ::sigaction(SIGUSR2, &ignored, &before);
  sigset_t blocked;
  sigset_t mask;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &mask);
  program(
      "grep -E '^Sig(Blk|Ign)' /proc/$$/status | sed 's/:.*\\(........\\)$/ \\1/' >$said\n"
      "read stat </proc/$$/stat; set -- ${stat##*)}; [ $4 = $$ ] && echo session >>$said\n"
      "echo >&3");
  EXPECT_EQ(failure(), "");
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  ::sigaction(SIGUSR2, &before, nullptr);
  // The first 32 signals, the last of which belongs to the C library.
  EXPECT_THAT(readFile(said_),
              testing::MatchesRegex("SigBlk 00000000\nSigIgn [08]0000000\nsession\n"));
}

TEST_F(DaemonStart, ItsOwnWordsAreTheCauseTheirFirstLine) {
  program("echo 'no luck' >&3; echo 'and more' >&3");
  EXPECT_EQ(failure(), "the job daemon did not start: no luck");
  program("printf 'half a line' >&3");
  EXPECT_EQ(failure(), "the job daemon did not start: half a line");
  program("exit 0");
  EXPECT_EQ(failure(), "the job daemon did not start: it exited before it was ready");
  EXPECT_TRUE(hasNoChild());
}

TEST_F(DaemonStart, OneThatTalksOnWithoutALineIsNotListenedToForEverAndDoesNotStay) {
  program(
      "i=0; while [ $i -lt 512 ]; do printf 12345678 >&3; i=$((i+1)); done\n"
      "printf 9 >&3; exec sleep 600");
  std::string expected;
  for (int i = 0; i < 512; ++i) expected += "12345678";
  EXPECT_EQ(failure(), "the job daemon did not start: " + expected + "9");
  EXPECT_TRUE(hasNoChild());
}

TEST_F(DaemonStart, OneThatSaidItIsReadyEndsInItsOwnTime) {
  ASSERT_EQ(::mkfifo((temporary_.path() / "go").c_str(), 0600), 0);
  const FileDescriptor go(::open((temporary_.path() / "go").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::write(go.get(), "on\n", 3), 3);
  program("echo >&3; read word <" + (temporary_.path() / "go").string() + "; echo $word >$said");
  EXPECT_EQ(failure(), "");
  EXPECT_EQ(readFile(said_), "on\n");
}

TEST_F(DaemonStart, AnApplicationThatTakesNoNoticeOfItsChildrenIsNotHeldUp) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction before {};
  ::sigaction(SIGCHLD, &ignored, &before);
  program("echo >&3");
  EXPECT_EQ(failure(), "");
  ::sigaction(SIGCHLD, &before, nullptr);
}

TEST_F(DaemonStart, OneThatNeverListensIsStartedThreeTimes) {
  program("echo started >>$said; echo >&3");
  try {
    static_cast<void>(JobDaemon(root_).ask(ControlRequest{}, -1));
    ADD_FAILURE() << "it answered";
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
    EXPECT_STREQ(error.what(), "the job daemon exited before it answered");
  }
  EXPECT_EQ(readFile(said_), "started\nstarted\nstarted\n");
}

TEST_F(DaemonStart, OneThatRunsIsNotStartedAgain) {
  program("echo started >>$said; echo 'not again' >&3");
  FakeDaemon daemon(root_);
  EXPECT_EQ(failure(), "");
  EXPECT_TRUE(JobDaemon(root_).ask(ControlRequest{}, -1).succeeded());
  EXPECT_THAT(daemon.asked(), ElementsAre("status"));
  EXPECT_FALSE(fs::exists(said_));
}

TEST_F(DaemonStart, AProgramIsChosenByItsWholePathOnly) {
  if (!testsupport::spawnSaysWhatFailed()) GTEST_SKIP() << "posix_spawn does not say what failed";
  for (const char* variable : {"relative/program", "", static_cast<const char*>(nullptr)}) {
    const ScopedVariable chosen("WLHID_JOBD", variable);
    EXPECT_THAT(failure(), testing::MatchesRegex("cannot start /.*/Contents/Helpers/wlhid-jobd: No "
                                                 "such file or directory"));
  }
  EXPECT_TRUE(hasNoChild());
}

class ServiceWithoutDaemon : public DaemonStart {
 protected:
  ServiceWithoutDaemon() {
    SystemRoot::setCurrent(root_);
    program("echo started >>$said; echo >&3");
    job("com.x", {"com.x", "com.x.second"});
  }
  void job(const std::string& label, const std::vector<std::string>& services) const {
    const auto bytes = encodeJobFile({label, {"/p"}, services});
    testsupport::writeFile(root_.jobFile(label),
                           {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  static ServiceConnectResult connect(std::string_view service) {
    return serviceEndpoints().load()->connectToService(service);
  }
};

TEST_F(ServiceWithoutDaemon, ThatAJobOffersGetsTheDaemonStartedThreeTimesAtMost) {
  for (const char* service : {"com.x", "com.x.second"}) {
    const auto result = connect(service);
    EXPECT_EQ(result.outcome, ServiceConnectResult::Outcome::UnknownName);
    EXPECT_EQ(result.descriptor, -1);
    EXPECT_EQ(result.reason,
              "its job is installed, but the job daemon is not listening for it (see its log)");
    EXPECT_EQ(readFile(said_), "started\nstarted\nstarted\n") << service;
    fs::remove(said_);
  }
}

TEST_F(ServiceWithoutDaemon, ThatNoJobOffersStartsNothing) {
  // Files that are not valid job files offer nothing and do not hide the others.
  fs::create_directories(root_.jobFile("com.directory"));
  testsupport::writeFile(root_.jobFile("com.garbage"), "garbage");
  const std::string file = readFile(root_.jobFile("com.x"));
  testsupport::writeFile(root_.jobFile("com.x").replace_extension(".txt"), file);
  testsupport::writeFile(root_.jobFile("com.x.third"), file);
  for (const char* service : {"com.x.third", "com.y", "com.garbage", "com.directory"}) {
    const auto result = connect(service);
    EXPECT_EQ(result.outcome, ServiceConnectResult::Outcome::UnknownName) << service;
    EXPECT_EQ(result.reason, "no job offers it") << service;
  }
  EXPECT_FALSE(fs::exists(said_));
  (void)connect("com.x.second");
  EXPECT_TRUE(fs::exists(said_));
}

TEST_F(ServiceWithoutDaemon, OfAJobFileThatIsTooLargeIsNotOffered) {
  const std::string file = readFile(root_.jobFile("com.x"));
  const auto padded = [&](std::size_t size) {
    testsupport::writeFile(root_.jobFile("com.x"), file + std::string(size - file.size(), '\n'));
    return connect("com.x").reason;
  };
  static_assert(kMaximumJobFileBytes == 65536);
  EXPECT_THAT(padded(65536), HasSubstr("its job is installed"));
  EXPECT_EQ(padded(65537), "no job offers it");
}

TEST_F(ServiceWithoutDaemon, WhoseDaemonDoesNotStartSaysWhy) {
  program("echo 'no luck' >&3");
  const auto result = connect("com.x");
  EXPECT_EQ(result.outcome, ServiceConnectResult::Outcome::UnknownName);
  EXPECT_EQ(result.reason, "the job daemon did not start: no luck");
}

}  // namespace
