// SPDX-License-Identifier: Apache-2.0

// A root that disappears with its command, however that ends.
#include "tool/routing/ScratchRoot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <optional>

#include "tests/support/OtherUser.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testsupport::ScopedVariable;

class ScratchRootTest : public testing::Test {
 protected:
  static bool waitUntilGone(const fs::path& path) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (fs::exists(path)) {
      if (std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
  }

  const testsupport::TemporaryDirectory directory_;
  const ScopedVariable jobd_{"WLHID_JOBD", "/no/such/program"};
  const ScopedVariable runtime_{"XDG_RUNTIME_DIR", nullptr};
  const ScopedVariable temporary_{"TMPDIR", directory_.path().c_str()};
};

TEST_F(ScratchRootTest, IsThisUsersAloneAndGoesWithAllThatIsInIt) {
  fs::path path;
  {
    const ScratchRoot root;
    path = root.path();
    EXPECT_EQ(path.parent_path(), directory_.path());
    EXPECT_TRUE(path.filename().string().starts_with("wlhid-")) << path;
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0700));
    testsupport::writeFile(path / "a/b", "x");
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

TEST_F(ScratchRootTest, LiesInTheRuntimeDirectoryWhereThereIsOne) {
  const testsupport::TemporaryDirectory other;
  {
    const ScopedVariable runtime("XDG_RUNTIME_DIR", other.path().c_str());
    EXPECT_EQ(ScratchRoot().path().parent_path(), other.path());
  }
  testsupport::writeFile(other.path() / "file", "");
  for (const fs::path& unusable : {fs::path(), fs::path("relative"), other.path() / "none"}) {
    const ScopedVariable runtime("XDG_RUNTIME_DIR", unusable.c_str());
    EXPECT_EQ(ScratchRoot().path().parent_path(), directory_.path()) << unusable;
  }
  const ScopedVariable nowhere("TMPDIR", (other.path() / "none").c_str());
  EXPECT_EQ(ScratchRoot().path().parent_path(), "/tmp");
}

TEST_F(ScratchRootTest, WhereItCannotBeMadeSaysWhy) {
  if (!testsupport::isSuperuser())
    GTEST_SKIP() << "needs a directory in which nothing can be created";
  const ScopedVariable proc("TMPDIR", "/proc");
  std::string why = "made";
  try {
    const ScratchRoot root;
  } catch (const Failure& failure) {
    why = failure.what();
  }
  EXPECT_EQ(why, "cannot make a directory in /proc: No such file or directory");
}

TEST_F(ScratchRootTest, GoesWhenItsCommandIsKilled) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t command = ::fork();
  if (command == 0) {
    const ScratchRoot root;
    const std::string path = root.path().string() + "\n";
    static_cast<void>(!::write(ends[1], path.data(), path.size()));
    while (true) ::pause();
  }
  ::close(ends[1]);
  std::string path;
  for (char c = 0; ::read(ends[0], &c, 1) == 1 && c != '\n';) path += c;
  EXPECT_TRUE(fs::exists(path)) << path;
  ::kill(command, SIGKILL);
  ::waitpid(command, nullptr, 0);
  ::close(ends[0]);
  EXPECT_TRUE(waitUntilGone(path)) << path;
}

TEST_F(ScratchRootTest, LeavesNoProcessAndNoDescriptor) {
  const int before = ::dup(STDIN_FILENO);
  ::close(before);
  { const ScratchRoot root; }
  const int after = ::dup(STDIN_FILENO);
  ::close(after);
  EXPECT_EQ(after, before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

}  // namespace
}  // namespace tool
