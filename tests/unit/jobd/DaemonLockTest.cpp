// SPDX-License-Identifier: Apache-2.0

#include "jobd/DaemonLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <optional>
#include <thread>

#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::DaemonLock;
using platform::FileDescriptor;

class DaemonLockTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor listen() const {
    return platform::listenUnixSocketAt(run_.get(), "jobd.sock", SOCK_STREAM, 8, 0600);
  }

  testsupport::TemporaryDirectory temporary_;
  FileDescriptor run_{::open(temporary_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(DaemonLockTest, IsAFileOfItsOwner) {
  const mode_t mask = ::umask(0);
  const auto lock = DaemonLock::acquire(run_.get());
  ::umask(mask);
  ASSERT_TRUE(lock);
  struct stat status {};
  ASSERT_EQ(::stat((temporary_.path() / "jobd.lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(DaemonLockTest, IsNobodyElsesWhileADaemonServes) {
  auto lock = DaemonLock::acquire(run_.get());
  ASSERT_TRUE(lock);
  const FileDescriptor endpoint = listen();
  EXPECT_FALSE(DaemonLock::acquire(run_.get()));
  lock.reset();
  EXPECT_TRUE(DaemonLock::acquire(run_.get())) << "the endpoint alone does not lock anyone out";
}

TEST_F(DaemonLockTest, WaitsForADaemonThatIsGoingDown) {
  const FileDescriptor file(
      ::open((temporary_.path() / "jobd.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(file.get(), LOCK_EX), 0);
  std::optional<DaemonLock> lock;
  std::thread waiting([&] { lock = DaemonLock::acquire(run_.get()); });
  ::flock(file.get(), LOCK_UN);
  waiting.join();
  EXPECT_TRUE(lock);
}

TEST_F(DaemonLockTest, ASymbolicLinkIsNotFollowed) {
  std::filesystem::create_symlink("elsewhere", temporary_.path() / "jobd.lock");
  try {
    (void)DaemonLock::acquire(run_.get());
    ADD_FAILURE() << "locked";
  } catch (const platform::ServiceError& error) {
    EXPECT_EQ(error.code(), platform::ServiceErrorCode::FileSystem);
    EXPECT_STREQ(error.what(), "cannot open jobd.lock: Too many levels of symbolic links");
  }
  EXPECT_FALSE(std::filesystem::exists(temporary_.path() / "elsewhere"));
}

}  // namespace
