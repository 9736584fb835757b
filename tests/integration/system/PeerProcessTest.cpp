// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PeerProcess.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/system/ProcessFiles.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/OtherUser.h"

namespace {

using platform::FileDescriptor;
using platform::system::PeerProcess;
using platform::system::startTimeInStat;
using testsupport::OtherProcess;

std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

FileDescriptor descriptorOf(pid_t process) {
  return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

void expectToBe(const std::optional<PeerProcess>& peer, const OtherProcess& other, uid_t user) {
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->processID(), other.processID());
  EXPECT_EQ(peer->user(), user);
  EXPECT_EQ(peer->startTime(),
            startTimeInStat(contentOf("/proc/" + std::to_string(other.processID()) + "/stat")));
  EXPECT_TRUE(peer->program().ends_with("/system_integration_tests")) << peer->program();
  EXPECT_TRUE(peer->isAlive());
}

TEST(PeerProcess, IsKnownByItsSocket) {
  const OtherProcess other;
  std::string whyNot;
  expectToBe(PeerProcess::ofSocket(other.socket(), whyNot), other, ::geteuid());
  EXPECT_EQ(whyNot, "");
}

TEST(PeerProcess, IsKnownByItsNumberOnAnOlderKernel) {
  const OtherProcess other;
  std::string whyNot;
  expectToBe(PeerProcess::ofProcess(other.processID(), ::geteuid(), FileDescriptor(), whyNot),
             other, ::geteuid());
}

TEST(PeerProcess, OfAnotherUserIsKnown) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can start one";
  const OtherProcess other(testsupport::kOtherUser);
  std::string whyNot;
  expectToBe(PeerProcess::ofSocket(other.socket(), whyNot), other, testsupport::kOtherUser);
}

TEST(PeerProcess, LearnsOfItsEnd) {
  OtherProcess other;
  std::string whyNot;
  const auto peer = PeerProcess::ofSocket(other.socket(), whyNot);
  ASSERT_TRUE(peer);
  const PeerProcess copy = *peer;
  other.end();
  EXPECT_FALSE(peer->isAlive());
  EXPECT_FALSE(copy.isAlive());
}

TEST(PeerProcess, ThatHasEndedIsNone) {
  OtherProcess other;
  const pid_t process = other.processID();
  other.end();
  std::string whyNot;
  EXPECT_FALSE(PeerProcess::ofSocket(other.socket(), whyNot));
  EXPECT_NE(whyNot, "");
  whyNot.clear();
  EXPECT_FALSE(PeerProcess::ofProcess(process, ::geteuid(), FileDescriptor(), whyNot));
  EXPECT_NE(whyNot, "");
}

/// A number that has gone to another process: the descriptor is still the old one's.
TEST(PeerProcess, ANumberThatWasUsedAgainIsNone) {
  OtherProcess ended;
  FileDescriptor descriptor = descriptorOf(ended.processID());
  ended.end();
  const OtherProcess successor;
  std::string whyNot;
  EXPECT_FALSE(
      PeerProcess::ofProcess(successor.processID(), ::geteuid(), std::move(descriptor), whyNot));
  EXPECT_EQ(whyNot, "the process has ended");
}

TEST(PeerProcess, OfAUserThatItIsNotIsNone) {
  const OtherProcess other;
  std::string whyNot;
  EXPECT_FALSE(
      PeerProcess::ofProcess(other.processID(), ::geteuid() + 1, FileDescriptor(), whyNot));
  EXPECT_EQ(whyNot, "the process is not the peer's user's any more");
}

TEST(PeerProcess, WithoutANumberIsNone) {
  std::string whyNot;
  EXPECT_FALSE(PeerProcess::ofProcess(0, ::geteuid(), FileDescriptor(), whyNot));
  EXPECT_FALSE(PeerProcess::ofProcess(-1, ::geteuid(), FileDescriptor(), whyNot));
  EXPECT_EQ(whyNot, "the process has no number in this system");
}

TEST(PeerProcess, APipeHasNone) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  std::string whyNot;
  EXPECT_FALSE(PeerProcess::ofSocket(pipe[0], whyNot));
  EXPECT_TRUE(whyNot.starts_with("the kernel does not name the process: ")) << whyNot;
  ::close(pipe[0]);
  ::close(pipe[1]);
}

}  // namespace
