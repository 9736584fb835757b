// SPDX-License-Identifier: Apache-2.0

// What exists on a system root, and why a part of it cannot be determined.
#include "tool/findings/Inventory.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "platform/services/Control.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceEndpoints.h"
#include "tests/support/OtherUser.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;
using testsupport::ScopedVariable;
using testsupport::writeFile;

class InventoryTest : public testing::Test {
 protected:
  InventoryTest() { fs::permissions(directory_.path(), fs::perms(0755)); }

  /// Makes `path` a listening socket.
  static FileDescriptor listenAt(const fs::path& path) {
    fs::create_directories(path.parent_path());
    FileDescriptor socket(platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 4, 0755));
    EXPECT_TRUE(socket) << path;
    return socket;
  }
  [[nodiscard]] Endpoint endpoint(const std::string& service) const {
    return endpointsOf(root_, {service}).at(0);
  }
  /// The path of a program with this mode.
  [[nodiscard]] std::string programOf(mode_t mode) const {
    const fs::path program = directory_.path() / "jobd";
    writeFile(program, "");
    EXPECT_EQ(::chmod(program.c_str(), mode), 0);
    return program;
  }

  const testsupport::TemporaryDirectory directory_;
  const fs::path path_ = directory_.path() / "root";
  const platform::SystemRoot root_{path_};
};

// ---- The root

TEST_F(InventoryTest, ARootMayBeStillToBeMade) {
  const RootState state = stateOf(root_);
  EXPECT_EQ(state.path, path_.string());
  EXPECT_FALSE(state.exists);
  EXPECT_EQ(state.owner, static_cast<uid_t>(-1));
  EXPECT_EQ(state.problem, "");
}

TEST_F(InventoryTest, ARootIsADirectoryOfSomebody) {
  fs::create_directory(path_);
  const RootState state = stateOf(root_);
  EXPECT_TRUE(state.exists);
  EXPECT_EQ(state.owner, ::geteuid());
  EXPECT_EQ(state.problem, "");
}

TEST_F(InventoryTest, ARootThatIsAFileSaysSo) {
  writeFile(path_, "");
  const RootState state = stateOf(root_);
  EXPECT_TRUE(state.exists);
  EXPECT_EQ(state.owner, ::geteuid());
  EXPECT_EQ(state.problem, path_.string() + ": Not a directory");
}

TEST_F(InventoryTest, ARootThatCannotBeLookedAtSaysWhy) {
  writeFile(path_, "");
  const RootState state = stateOf(platform::SystemRoot(path_ / "below"));
  EXPECT_FALSE(state.exists);
  EXPECT_EQ(state.problem, (path_ / "below").string() + ": Not a directory");
}

// ---- The disk

TEST_F(InventoryTest, TheDiskIsThatOnWhichTheRootWouldLie) {
  const DiskState disk = diskOf(platform::SystemRoot(path_ / "a/b"));
  EXPECT_EQ(disk.problem, "");
  EXPECT_GT(disk.freeBytes, 0U);
  EXPECT_GT(disk.freeFiles, 0U);
}

TEST_F(InventoryTest, ADiskThatCountsNoFilesHasNoBound) {
  const DiskState disk = diskOf(platform::SystemRoot("/proc"));
  EXPECT_EQ(disk.problem, "");
  EXPECT_EQ(disk.freeBytes, 0U);
  EXPECT_EQ(disk.freeFiles, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(InventoryTest, ADiskThatCannotBeAskedSaysWhy) {
  const fs::path tooLong = directory_.path() / std::string(300, 'x');
  EXPECT_EQ(diskOf(platform::SystemRoot(tooLong)).problem,
            tooLong.string() + ": File name too long");
}

// ---- The log

TEST_F(InventoryTest, ALogMayBeStillToBegin) {
  const LogState log = logOf(root_);
  EXPECT_EQ(log.path, root_.systemLog().string());
  EXPECT_FALSE(log.exists);
  EXPECT_FALSE(log.isFile);
  EXPECT_EQ(log.owner, static_cast<uid_t>(-1));
  EXPECT_EQ(log.problem, "");
}

TEST_F(InventoryTest, ALogIsAFileOfSomebodyWithASize) {
  writeFile(root_.systemLog(), "seven b");
  const LogState log = logOf(root_);
  EXPECT_TRUE(log.exists);
  EXPECT_TRUE(log.isFile);
  EXPECT_EQ(log.owner, ::geteuid());
  EXPECT_EQ(log.bytes, 7U);
  EXPECT_EQ(log.problem, "");
}

TEST_F(InventoryTest, ALogThatIsNoFileSaysSo) {
  fs::create_directories(root_.systemLog());
  const LogState directory = logOf(root_);
  EXPECT_TRUE(directory.exists);
  EXPECT_FALSE(directory.isFile);
  EXPECT_EQ(directory.problem, root_.systemLog().string() + ": not a regular file");
  EXPECT_EQ(directory.bytes, 0U);
  fs::remove(root_.systemLog());
  ASSERT_EQ(::mkfifo(root_.systemLog().c_str(), 0600), 0);
  EXPECT_EQ(logOf(root_).problem, root_.systemLog().string() + ": not a regular file")
      << "must not wait for a writer";
}

TEST_F(InventoryTest, ALogThatCannotBeReadSaysWhyAndWhoseItIs) {
  writeFile(root_.systemLog(), "x");
  fs::permissions(root_.systemLog(), fs::perms(0));
  const auto asked = [&] {
    const LogState log = logOf(root_);
    return log.problem + (log.exists ? ", exists" : "") + (log.isFile ? ", file" : "") +
           (log.owner == ::getuid() ? ", own" : ", another's");
  };
  const std::string denied = root_.systemLog().string() + ": Permission denied, exists, file, ";
  if (testsupport::isSuperuser()) {
    EXPECT_EQ(testsupport::asUser(testsupport::kOtherUser, asked), denied + "another's");
  } else {
    EXPECT_EQ(asked(), denied + "own");
  }
}

// ---- Endpoints

TEST_F(InventoryTest, AnEndpointHasAValidName) {
  const Endpoint wrong = endpoint("../\x1b");
  EXPECT_EQ(wrong.service, "../\x1b");
  EXPECT_EQ(wrong.problem, "\"../\\x1b\" is not a valid service name");
  EXPECT_EQ(wrong.path, "");
  EXPECT_FALSE(wrong.exists);
}

TEST_F(InventoryTest, AnEndpointMayBeStillToBeMade) {
  const Endpoint none = endpoint("a.b");
  EXPECT_EQ(none.path, root_.endpoint("a.b").string());
  EXPECT_FALSE(none.exists);
  EXPECT_EQ(none.problem, "");
}

TEST_F(InventoryTest, AnEndpointIsASocketOfThisUsers) {
  const FileDescriptor socket = listenAt(root_.endpoint("a.b"));
  const Endpoint there = endpoint("a.b");
  EXPECT_TRUE(there.exists);
  EXPECT_EQ(there.owner, ::geteuid());
  EXPECT_TRUE(S_ISSOCK(there.mode));
  EXPECT_TRUE(there.mayConnect);
  EXPECT_EQ(there.problem, "");
}

TEST_F(InventoryTest, AnEndpointOfAnothersIsRefused) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs a second user";
  const FileDescriptor socket = listenAt(root_.endpoint("a.b"));
  const std::string path = root_.endpoint("a.b");
  ASSERT_EQ(::chown(path.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  EXPECT_EQ(endpoint("a.b").problem, path + ": belongs to user 12345, not to root or this user");
}

TEST_F(InventoryTest, AnEndpointThatIsNoSocketOrALinkToOneSaysSo) {
  const FileDescriptor socket = listenAt(root_.endpoint("real"));
  fs::create_symlink(root_.endpoint("real"), root_.endpoint("link"));
  writeFile(root_.endpoint("file"), "");
  for (const char* name : {"link", "file"}) {
    EXPECT_EQ(endpoint(name).problem, root_.endpoint(name).string() + ": not a socket");
    EXPECT_TRUE(endpoint(name).exists);
  }
}

TEST_F(InventoryTest, AnEndpointThatCannotBeLookedAtSaysWhy) {
  fs::create_directories(path_ / "var");
  writeFile(path_ / "var/run", "no directory");
  const Endpoint hidden = endpoint("a.b");
  EXPECT_FALSE(hidden.exists);
  EXPECT_EQ(hidden.problem, root_.endpoint("a.b").string() + ": Not a directory");
}

TEST_F(InventoryTest, EndpointsComeInTheOrderOfTheServices) {
  const auto endpoints = endpointsOf(root_, {"b", "a"});
  ASSERT_EQ(endpoints.size(), 2U);
  EXPECT_EQ(endpoints[0].service, "b");
  EXPECT_EQ(endpoints[1].service, "a");
}

// ---- The job daemon

TEST_F(InventoryTest, AJobDaemonThatIsNotThereCanBeStarted) {
  const ScopedVariable program("WLHID_JOBD", programOf(0755).c_str());
  const JobDaemonState daemon = askJobDaemon(root_);
  EXPECT_FALSE(daemon.asked);
  EXPECT_FALSE(daemon.reply);
  EXPECT_FALSE(daemon.isForOthers);
  EXPECT_EQ(daemon.problem, "");
  EXPECT_EQ(daemon.process, -1);
}

TEST_F(InventoryTest, AJobDaemonThatCannotBeStartedSaysWhy) {
  {
    const ScopedVariable program("WLHID_JOBD", programOf(0644).c_str());
    EXPECT_EQ(askJobDaemon(root_).problem, "the job daemon's program " +
                                               (directory_.path() / "jobd").string() +
                                               ": Permission denied");
  }
  for (const char* unnamed : {static_cast<const char*>(nullptr), ""}) {
    const ScopedVariable program("WLHID_JOBD", unnamed);
    const std::string problem = askJobDaemon(root_).problem;
    EXPECT_TRUE(problem.starts_with("the job daemon's program /")) << problem;
    EXPECT_TRUE(problem.ends_with("/Contents/Helpers/wlhid-jobd: No such file or directory"))
        << problem;
  }
}

/// Answers one request at the control endpoint, in a process of its own.
class Daemon {
 public:
  Daemon(FileDescriptor socket, const std::vector<std::uint8_t>& answer) {
    process_ = ::fork();
    if (process_ != 0) return;
    const int client = ::accept(socket.get(), nullptr, nullptr);
    std::array<char, 1024> question{};
    static_cast<void>(!::read(client, question.data(), question.size()));
    static_cast<void>(!::write(client, answer.data(), answer.size()));
    ::close(client);
    ::_exit(0);
  }
  ~Daemon() { ::waitpid(process_, nullptr, 0); }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

 private:
  pid_t process_ = -1;
};

TEST_F(InventoryTest, AJobDaemonThatRunsTellsItsJobs) {
  platform::ControlReply reply;
  reply.daemonProcessIdentifier = 4;
  const Daemon daemon(listenAt(root_.controlEndpoint()), platform::encode(reply));
  const ScopedVariable program("WLHID_JOBD", "/no/such/program");
  const JobDaemonState state = askJobDaemon(root_);
  EXPECT_TRUE(state.asked);
  ASSERT_TRUE(state.reply) << state.problem;
  EXPECT_EQ(state.reply->daemonProcessIdentifier, 4);
  EXPECT_EQ(state.problem, "") << "its program no longer matters";
}

TEST_F(InventoryTest, AJobDaemonThatTalksNonsenseIsNamedWithItsProcess) {
  const FileDescriptor socket = listenAt(root_.controlEndpoint());
  const Daemon daemon(FileDescriptor(::dup(socket.get())), {0, 0, 0, 1, 'x'});
  const JobDaemonState state = askJobDaemon(root_);
  EXPECT_TRUE(state.asked);
  EXPECT_FALSE(state.reply);
  EXPECT_TRUE(state.problem.starts_with("the job daemon cannot be queried: ")) << state.problem;
  EXPECT_EQ(state.process, ::getpid()) << "this process called listen()";
}

TEST_F(InventoryTest, AJobDaemonOfAnotherUsersIsNotAsked) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs a second user";
  const FileDescriptor socket = listenAt(root_.controlEndpoint());
  fs::permissions(root_.controlEndpoint(), fs::perms(0600));
  const auto asked = [&] {
    const JobDaemonState state = askJobDaemon(root_);
    return std::string(state.asked ? "asked" : "not asked") +
           (state.isForOthers ? ", for others: " : ": ") + state.problem;
  };
  EXPECT_EQ(testsupport::asUser(testsupport::kOtherUser, asked), "not asked, for others: ");
}

// ---- Router and devices

TEST_F(InventoryTest, ARouterRunsAsLongAsItHoldsItsStatus) {
  EXPECT_FALSE(runningRouter(root_));
  fs::create_directories(router::routerStatusFile(root_).parent_path());
  {
    router::RouterStatusFile file(root_);
    router::RouterStatus status;
    status.pid = 12;
    file.write(status);
    ASSERT_TRUE(runningRouter(root_));
    EXPECT_EQ(runningRouter(root_)->pid, 12);
  }
  ASSERT_TRUE(fs::exists(router::routerStatusFile(root_)));
  EXPECT_FALSE(runningRouter(root_));
}

TEST_F(InventoryTest, DevicesAreListedWithWhatIsWrongWithOthers) {
  EXPECT_TRUE(devicesOf(root_).devices.empty());
  writeFile(directory_.path() / "m.hid", "R: 2 05 01\nN: Mouse\n");
  router::ReplayDevice device;
  device.recording = directory_.path() / "m.hid";
  router::addReplayDevice(root_, device);
  writeFile(root_.deviceSources() / "broken.plist", "no list");
  const DeviceList list = devicesOf(root_);
  ASSERT_EQ(list.devices.size(), 1U);
  EXPECT_EQ(list.devices[0].name, "Mouse");
  ASSERT_EQ(list.problems.size(), 1U);
  EXPECT_NE(list.problems[0].find("broken.plist"), std::string::npos);
}

TEST_F(InventoryTest, DevicesThatCannotBeListedSayWhy) {
  writeFile(path_, "no directory");
  const DeviceList list = devicesOf(root_);
  EXPECT_TRUE(list.devices.empty());
  ASSERT_EQ(list.problems.size(), 1U);
  EXPECT_NE(list.problems[0].find("is not a directory"), std::string::npos) << list.problems[0];
}

TEST_F(InventoryTest, TakesEveryPartOfTheRootThatIsAskedFor) {
  writeFile(root_.systemLog(), "x");
  const Inventory inventory = takeInventory(root_);
  EXPECT_EQ(inventory.root.path(), path_);
  EXPECT_TRUE(inventory.rootState.exists);
  EXPECT_EQ(inventory.presence.steps.size(), 11U);
  EXPECT_EQ(inventory.log.bytes, 1U);
  EXPECT_TRUE(inventory.endpoints.empty());
  EXPECT_EQ(inventory.disk.problem, "");
}

}  // namespace
}  // namespace tool
