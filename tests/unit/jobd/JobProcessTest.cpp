// SPDX-License-Identifier: Apache-2.0

#include "jobd/JobProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/Emulation.h"
#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::EventLoop;
using jobd::JobProcess;
using platform::FileDescriptor;

constexpr const char* kLabel = "com.quillmar.sleeper";
constexpr int kPipeBytes = 1 << 20;
constexpr const char* kNoShell = "/bin/sh is of another processor, so no job can run it";

FileDescriptor open(const std::string& path, int flags) {
  return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC));
}

/// The write end of the job's output pipe.
FileDescriptor outputOf(const JobProcess& job) {
  return open("/proc/" + std::to_string(job.identifier()) + "/fd/1", O_WRONLY | O_NONBLOCK);
}

int waitingIn(const FileDescriptor& pipe) {
  int bytes = -1;
  EXPECT_EQ(::ioctl(pipe.get(), FIONREAD, &bytes), 0);
  return bytes;
}

int fill(const FileDescriptor& pipe) {
  EXPECT_GE(::fcntl(pipe.get(), F_SETPIPE_SZ, kPipeBytes), kPipeBytes);
  const std::string lines(4096, '\n');
  while (::write(pipe.get(), lines.data(), lines.size()) > 0) {
  }
  return waitingIn(pipe);
}

TEST(JobProcess, OthersHaveTheirTurnWhileAJobWritesWithoutEnd) {
  if (!testsupport::isOfThisProcessor("/bin/sh")) GTEST_SKIP() << kNoShell;
  const testsupport::TemporaryDirectory temporary;
  const std::string directory = temporary.path().string();
  testsupport::makeImage(WLHID_MKIMAGE, {kLabel, "1.0", "/bin/sh", {}}, temporary.path() / kLabel);
  const auto tools = open(directory, O_RDONLY | O_DIRECTORY);
  const std::vector<jobd::ListeningSocket> noSockets;
  EventLoop loop;
  jobd::SystemLog log(open(directory, O_RDONLY | O_DIRECTORY));
  const jobd::ProcessPlan plan{
      kLabel, {"sh", "-c", "echo ready; exec sleep 600"}, tools.get(), &noSockets, tools.get()};
  const JobProcess job(loop, log, plan, [&](const jobd::JobEnd&) { loop.stop(); });

  FileDescriptor output;
  int written = 0;
  int left = 0;
  const FileDescriptor always(::eventfd(1, EFD_CLOEXEC));
  const auto other = loop.watch(always.get(), EPOLLIN, [&] {
    if (!output) {
      // Until it runs the program, the process is a copy of this one, with another output.
      if (testsupport::readFile(directory + "/system.log").find("ready") == std::string::npos)
        return;
      output = outputOf(job);
      written = left = fill(output);
    } else if (left == written) {
      left = waitingIn(output);
      if (left < written) job.signal(SIGKILL);
    }
  });
  loop.run();
  EXPECT_GE(written, kPipeBytes);
  EXPECT_LT(left, written);
  EXPECT_GE(left, written - 64 * 1024) << "the rest waits for the next iteration";
}

/// Runs a job; the one in place is a shell.
class JobRun : public testing::Test {
 protected:
  JobRun() {
    testsupport::makeImage(WLHID_MKIMAGE, {kLabel, "1.0", "/bin/sh", {}},
                           temporary_.path() / kLabel);
  }
  /// Runs it to its end and returns how it ended.
  std::string run(const std::string& lines) {
    return run({kLabel, {"sh", "-c", lines}, tools_.get(), &sockets_, tools_.get()});
  }
  static std::string run(const jobd::ProcessPlan& plan, const testsupport::TemporaryDirectory& at) {
    EventLoop loop;
    jobd::SystemLog log(open(at.path().string(), O_RDONLY | O_DIRECTORY));
    std::string end;
    const JobProcess job(loop, log, plan, [&](const jobd::JobEnd& how) {
      end = how.text();
      loop.stop();
    });
    loop.run();
    return end;
  }
  std::string run(const jobd::ProcessPlan& plan) { return run(plan, temporary_); }
  /// Its output: the text of each entry on a line.
  [[nodiscard]] std::string said() const {
    std::string all = testsupport::readFile(temporary_.path() / "system.log");
    std::string texts;
    for (std::size_t at = 0; at < all.size();) {
      const auto end = all.find('\n', at);
      const auto line = all.substr(at, end - at);
      texts += line.substr(line.find("]: ") + 3) + "\n";
      at = end + 1;
    }
    return texts;
  }

  testsupport::TemporaryDirectory temporary_;
  FileDescriptor tools_ = open(temporary_.path().string(), O_RDONLY | O_DIRECTORY);
  std::vector<jobd::ListeningSocket> sockets_;
};

/// Runs shell commands as a job.
class ShellJob : public JobRun {
 protected:
  void SetUp() override {
    if (!testsupport::isOfThisProcessor("/bin/sh")) GTEST_SKIP() << kNoShell;
  }
};

TEST_F(ShellJob, ItsEndIsSaidAsItWas) {
  EXPECT_EQ(run("exit 0"), "exited with status 0");
  EXPECT_EQ(run("exit 7"), "exited with status 7");
  EXPECT_EQ(run("kill -9 $$"), "ended by signal 9");
  EXPECT_EQ(run("kill -15 $$"), "ended by signal 15");
}

TEST_F(ShellJob, WhatItWroteLastIsLoggedWithoutALinesEndToo) {
  run("echo one; echo two >&2; printf 'no end'");
  EXPECT_EQ(said(), "one\ntwo\nno end\n");
}

TEST_F(ShellJob, AnEntryThatGoesOnWithALineSaysSo) {
  run("printf '%02048dsecond%02043dthird\nnext\n' 0 0");
  EXPECT_EQ(said(),
            std::string(2048, '0') + "\n… second" + std::string(2042, '0') + "\n… 0third\nnext\n");
}

TEST_F(ShellJob, MuchThatItWroteLastIsLogged) {
  run("i=0; while [ $i -lt 300 ]; do echo 'a line of some length to fill the pipe with'; "
      "i=$((i+1)); done");
  const std::string all = said();
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 300);
}

TEST_F(ShellJob, WhatItLeavesBehindDoesNotHoldUpItsEnd) {
  EXPECT_EQ(run("sleep 600 & echo $! >" + (temporary_.path() / "left").string()),
            "exited with status 0");
  ::kill(std::stoi(testsupport::readFile(temporary_.path() / "left")), SIGKILL);
}

TEST_F(ShellJob, AnOutputThatItClosedIsNoEnd) {
  EXPECT_EQ(run("exec >&- 2>&-; read x </dev/null; exit 5"), "exited with status 5");
}

TEST_F(ShellJob, ItsSignalsAreAsTheSystemSetsThem) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  std::array<struct sigaction, 2> before{};
  ::sigaction(SIGHUP, &ignored, &before[0]);
  ::sigaction(SIGUSR2, &ignored, &before[1]);
  sigset_t blocked;
  sigset_t mask;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &mask);
  run("grep -E '^Sig(Blk|Ign)' /proc/$$/status | sed 's/:.*\\(........\\)$/ \\1/'");
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  ::sigaction(SIGHUP, &before[0], nullptr);
  ::sigaction(SIGUSR2, &before[1], nullptr);
  EXPECT_TRUE(said() == "SigBlk 00000000\nSigIgn 00000000\n" ||
              said() == "SigBlk 00000000\nSigIgn 80000000\n")  // ignored by the C library
      << said();
}

TEST_F(ShellJob, ItIsASessionOfItsOwn) {
  run("read stat </proc/$$/stat; set -- ${stat##*)}; [ $4 = $$ ] && echo session");
  EXPECT_EQ(said(), "session\n");
}

TEST_F(ShellJob, DescriptorsArriveInOrderWhateverTheirNumbersWere) {
  // The descriptor numbers that the program expects are each in use by another one here.
  const auto one = open("/dev/null", O_RDONLY);
  const auto two = open("/dev/zero", O_RDONLY);
  const auto three = open("/dev/full", O_RDONLY);
  const int high = std::max({one.get(), two.get(), three.get()}) + 8;
  for (const auto* each : {&three, &one, &two})
    sockets_.push_back({"com.s", FileDescriptor(::fcntl(each->get(), F_DUPFD_CLOEXEC, high))});
  for (int i = 0; i < 4; ++i)
    sockets_.push_back({"com.n", FileDescriptor(::fcntl(one.get(), F_DUPFD_CLOEXEC, 3))});
  std::swap(sockets_.front(), sockets_.back());
  run("for n in 0 3 4 5 6 7 8 9; do l=$(readlink /proc/$$/fd/$n); echo $n $l; done");
  EXPECT_EQ(said(),
            "0 /dev/null\n3 /dev/null\n4 /dev/null\n5 /dev/zero\n6 /dev/null\n7 /dev/null\n"
            "8 /dev/null\n9 /dev/full\n");
  sockets_.clear();
  run("l=$(readlink /proc/$$/fd/3); echo $l; [ -e /proc/$$/fd/4 ] || echo closed");
  EXPECT_THAT(said(), testing::EndsWith(temporary_.path().string() + "\nclosed\n"));
}

TEST_F(ShellJob, ItsEnvironmentIsTheHandOverAlone) {
  sockets_.push_back({"com.s", open("/dev/null", O_RDONLY)});
  run("tr '\\0' '\\n' </proc/$$/environ | sed \"s/=$$\\$/=own/\"");
  EXPECT_EQ(said(),
            "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\nLISTEN_FDS=2\n"
            "LISTEN_FDNAMES=com.s:.root\nLISTEN_PID=own\n");
}

TEST_F(JobRun, AnImageThatIsNoneEndsItWithTheCauseInTheLog) {
  const auto end = [&](const char* name) {
    return run({name, {"sh"}, tools_.get(), &sockets_, tools_.get()});
  };
  EXPECT_EQ(end("com.none"), "exited with status 127");
  testsupport::writeFile(temporary_.path() / "com.text", "no image");
  EXPECT_EQ(end("com.text"), "exited with status 127");
  std::filesystem::create_symlink(kLabel, temporary_.path() / "com.link");
  EXPECT_EQ(end("com.link"), "exited with status 127");
  EXPECT_EQ(said(),
            "cannot start com.none: its executable is missing\n"
            "cannot start com.text: the helper has no section __ELF,__program\n"
            "cannot start com.link: its executable cannot be opened: Too many levels of symbolic "
            "links\n");
}

TEST_F(ShellJob, ItsProgramCannotBeChangedAnyMore) {
  run("{ echo x >>/proc/$$/exe; } 2>/dev/null || echo sealed; readlink /proc/$$/exe");
  EXPECT_EQ(said(), "sealed\n/memfd:com.quillmar.sleeper (deleted)\n");
}

TEST_F(ShellJob, LeavesNoDescriptorAndNoChild) {
  const auto open = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  while (::waitpid(-1, nullptr, 0) > 0) {  // children of other tests
  }
  const auto before = open();
  run("exit 0");
  EXPECT_EQ(open(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(ShellJob, ItDoesNotOutliveTheDaemon) {
  std::array<int, 2> life{};
  ASSERT_EQ(::pipe2(life.data(), O_CLOEXEC), 0);
  sockets_.push_back({"com.s", FileDescriptor(life[1])});
  const pid_t daemon = ::fork();
  if (daemon == 0) {
    run("echo up >&3; exec sleep 600");
    ::_exit(0);
  }
  sockets_.clear();
  std::array<char, 3> up{};
  EXPECT_EQ(::read(life[0], up.data(), up.size()), 3);
  ::kill(daemon, SIGKILL);
  ::waitpid(daemon, nullptr, 0);
  EXPECT_EQ(::read(life[0], up.data(), up.size()), 0);  // returns when the job has ended
  ::close(life[0]);
}

}  // namespace
