// SPDX-License-Identifier: Apache-2.0

// The router's program, started as by the job daemon: with a listening socket as descriptor 3.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "RouterFixture.h"
#include "platform/services/FileDescriptor.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using routertest::Client;
using testing::ElementsAre;

class RouterProcessTest : public routertest::RouterFixture {
 protected:
  /// Like the job daemon: the socket as descriptor 3, followed by the root's directory. LISTEN_PID
  /// must be the child's own process ID, so a shell sets it and then becomes the router.
  void spawn(int listener) {
    const platform::FileDescriptor rootDirectory(
        ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::pair<std::string, int>> handedOn;
    if (listener >= 0) handedOn.emplace_back("com.quillmar.hideventrouter", listener);
    handedOn.emplace_back(".root", rootDirectory.get());
    spawnWith(handedOn, {});
  }
  void spawnWith(const std::vector<std::pair<std::string, int>>& handedOn,
                 const std::vector<std::string>& options, const std::string& user = {}) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFirst = 3;
    constexpr int kAbove = 100;  // no descriptor is overwritten before it has moved
    std::string names = "LISTEN_FDNAMES=";
    const int count = static_cast<int>(handedOn.size());
    for (int i = 0; i < count; ++i) {
      const auto& [name, descriptor] = handedOn[static_cast<std::size_t>(i)];
      names += (i == 0 ? "" : ":") + name;
      posix_spawn_file_actions_adddup2(&actions, descriptor, kAbove + i);
    }
    for (int i = 0; i < count; ++i)
      posix_spawn_file_actions_adddup2(&actions, kAbove + i, kFirst + i);
    posix_spawn_file_actions_addclosefrom_np(&actions, kFirst + count);
    posix_spawn_file_actions_addopen(&actions, 2, logFile().c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0600);
    std::string command = "LISTEN_PID=$$ exec ";
    if (!user.empty()) command += "setpriv --reuid " + user + " --clear-groups ";
    command += "\"$0\" \"$@\"";
    const std::string fds = "LISTEN_FDS=" + std::to_string(count);
    // Would lead elsewhere if it were used.
    const std::string misleading = "WLHID_ROOT=" + (directory_ / "misleading").string();
    std::vector<const char*> arguments{"sh", "-c", command.c_str(), WLHID_ROUTER_PROGRAM};
    for (const auto& option : options) arguments.push_back(option.c_str());
    arguments.push_back(nullptr);
    std::array<const char*, 4> environment{fds.c_str(), names.c_str(), misleading.c_str(), nullptr};
    ASSERT_EQ(
        ::posix_spawn(&process_, "/bin/sh", &actions, nullptr, const_cast<char**>(arguments.data()),
                      const_cast<char**>(environment.data())),
        0);
    posix_spawn_file_actions_destroy(&actions);
  }
  /// With a listening socket that no other process holds.
  void spawnListening() {
    const platform::FileDescriptor listener(listen());
    spawn(listener.get());
  }
  int exitStatus() {
    int status = 0;
    EXPECT_EQ(::waitpid(process_, &status, 0), process_);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void TearDown() override {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      exitStatus();
    }
    RouterFixture::TearDown();
  }
  fs::path logFile() const { return outside_.path() / "log"; }
  std::string log() const {
    std::ifstream in(logFile());
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  testsupport::TemporaryDirectory outside_;
  pid_t process_ = -1;
};

TEST_F(RouterProcessTest, ServesTheSocketThatItIsHandedUntilItIsTerminated) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  spawnListening();
  Client client;
  client.start(id);
  EXPECT_THAT(client.log->await(3), ElementsAre("started", "data 7 07 01", "values 9/1=1 9/2=0"));
  const auto status = router::readRouterStatus(root());
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_EQ(client.log->await(4)[3], "invalidated");
  EXPECT_EQ(router::readRouterStatus(root()), std::nullopt);
  EXPECT_THAT(log(), testing::HasSubstr("routes device"));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("07 01")));
}

TEST_F(RouterProcessTest, ALogLineIsOneLineWhateverStandsInIt) {
  const std::string name = "a\x1b[2J\nforged: \u202e";
  std::filesystem::create_directories(directory_ / "etc/hideventrouter");
  std::ofstream(directory_ / "etc/hideventrouter" / (name + ".plist")) << "nothing";
  spawnListening();
  Client client;
  client.start(0x42);
  client.log->await(1);
  EXPECT_THAT(log(),
              testing::HasSubstr("a\\x1b[2J\\x0aforged: \\u202e.plist: is not a property list"));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("\x1b")));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("\nforged")));
}

TEST_F(RouterProcessTest, WithoutASocketItSaysSoAndFails) {
  spawn(-1);
  EXPECT_EQ(exitStatus(), 1);
  EXPECT_THAT(log(), testing::HasSubstr("no endpoint was passed for com.quillmar.hideventrouter"));
}

TEST_F(RouterProcessTest, WithoutARootItSaysSoAndFails) {
  const int listener = listen();
  spawnWith({{"com.quillmar.hideventrouter", listener}}, {});
  EXPECT_EQ(exitStatus(), 1);
  EXPECT_THAT(log(), testing::HasSubstr("no system root was passed"));
  EXPECT_FALSE(fs::exists(directory_ / "misleading"));
  spawnWith({{"com.quillmar.hideventrouter", listener}, {".root", listener}}, {});
  EXPECT_EQ(exitStatus(), 1) << "a socket is not a root";
  ::close(listener);
}

TEST_F(RouterProcessTest, ARootMayBeNamedWhereNoneIsHandedOver) {
  const int listener = listen();
  spawnWith({{"com.quillmar.hideventrouter", listener}}, {"--root", directory_.string()});
  Client client;
  client.start(addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1"));
  client.log->await(3);
  EXPECT_TRUE(awaitStatus([](const auto& status) { return status.isRunning; }).isRunning);
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
  fs::create_directory_symlink(directory_, outside_.path() / "link");
  spawnWith({{"com.quillmar.hideventrouter", listener}},
            {"--root", (outside_.path() / "link").string()});
  EXPECT_EQ(exitStatus(), 1);
  EXPECT_THAT(log(), testing::HasSubstr("is a symbolic link"));
  ::close(listener);
}

TEST_F(RouterProcessTest, ARootThatOthersCanWriteIsRefused) {
  ::chmod(directory_.c_str(), 0777);
  spawnListening();
  EXPECT_EQ(exitStatus(), 1);
  EXPECT_THAT(log(), testing::HasSubstr("can be written by others"));
}

TEST_F(RouterProcessTest, WhatIsPutInTheRootsPlaceGetsNothing) {
  const fs::path planted = outside_.path() / "planted";
  const fs::path away = outside_.path() / "away";
  fs::create_directories(planted);
  spawnListening();
  Client first;
  first.start(1);
  first.log->await(1);  // the router is running
  awaitStatus([](const auto& status) { return status.isRunning; });
  fs::rename(directory_, away);
  fs::create_directory_symlink(planted, directory_);
  testsupport::writeFile(planted / "etc/hideventrouter/stolen.plist",
                         "<plist version=\"1.0\"><dict><key>Source</key><string>replay</string>"
                         "<key>Recording</key><string>stolen.hid</string></dict></plist>");
  fs::rename(away / "router.sock", planted / "router.sock");  // the client still has the path
  Client second;
  second.start(2);  // looks at the devices again
  second.log->await(1);
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_FALSE(fs::exists(planted / "var"));
  EXPECT_TRUE(fs::exists(away / "var/run"));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("stolen")));
  fs::remove(directory_);
  fs::rename(away, directory_);
}

TEST_F(RouterProcessTest, ARouterThatIsKilledInterruptsItsClients) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  spawnListening();
  Client client;
  client.start(id);
  client.log->await(3);
  awaitStatus([](const auto& status) { return status.isRunning; });
  ::kill(process_, SIGKILL);
  exitStatus();
  EXPECT_EQ(client.log->await(4)[3], "interrupted");
  const auto left = router::readRouterStatus(root());
  ASSERT_TRUE(left.has_value());
  EXPECT_FALSE(left->isRunning);
}

TEST_F(RouterProcessTest, AnInterruptFromTheKeyboardEndsItLikewise) {
  spawnListening();
  Client client;
  client.start(0x42);
  client.log->await(1);
  ::kill(process_, SIGINT);
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_EQ(client.log->await(2)[1], "invalidated");
  EXPECT_THAT(log(), testing::HasSubstr(" started: root " + directory_.string() + ", 0 devices\n"));
  EXPECT_THAT(log(), testing::EndsWith("router ends\n"));
}

TEST_F(RouterProcessTest, OtherOptionsAreRefusedBeforeAnythingIsServed) {
  const int listener = listen();
  const std::string root = directory_.string();
  const std::vector<std::string> wrong[] = {
      {"--root"}, {"--root", "relative"},   {"--root", ""},          {"--other", root},
      {root},     {"--root", root, "more"}, {"more", "--root", root}};
  for (const auto& options : wrong) {
    fs::remove(logFile());
    spawnWith({{"com.quillmar.hideventrouter", listener}}, options);
    EXPECT_EQ(exitStatus(), 1);
    EXPECT_EQ(log(),
              "the router cannot run: its only options are --root, with an absolute path, and "
              "--system\n");
  }
  ::close(listener);
}

TEST_F(RouterProcessTest, TheRootThatIsHandedOverGoesBeforeTheNamedOne) {
  const int listener = listen();
  const platform::FileDescriptor rootDirectory(
      ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  spawnWith({{"com.quillmar.hideventrouter", listener}, {".root", rootDirectory.get()}},
            {"--root", (outside_.path() / "named").string()});
  ::close(listener);
  awaitStatus([](const auto& status) { return status.isRunning; });
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_FALSE(fs::exists(outside_.path() / "named"));
}

TEST_F(RouterProcessTest, ALogThatNobodyReadsDoesNotEndIt) {
  ASSERT_EQ(::mkfifo(logFile().c_str(), 0600), 0);
  platform::FileDescriptor reader(::open(logFile().c_str(), O_RDWR | O_CLOEXEC));
  spawnListening();
  Client client;
  client.start(0x42);
  client.log->await(1);
  reader.reset();  // from now on writes to the log fail
  client.start(0x43);
  EXPECT_THAT(client.log->await(2)[1], testing::HasSubstr("0x43"));
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(RouterProcessTest, AnotherUsersRouterServesThatUserAndTheSuperuser) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can act as another user";
  const int listener = listen();
  const std::string user = std::to_string(testsupport::kOtherUser);
  ASSERT_EQ(::chown(directory_.c_str(), testsupport::kOtherUser, testsupport::kOtherUser), 0);
  ASSERT_EQ(::chmod((directory_ / "router.sock").c_str(), 0666), 0);
  const platform::FileDescriptor rootDirectory(
      ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  spawnWith({{"com.quillmar.hideventrouter", listener}, {".root", rootDirectory.get()}}, {}, user);
  ::close(listener);
  Client superuser;
  superuser.start(0x42);
  EXPECT_THAT(superuser.log->await(1)[0], testing::HasSubstr("0x42"));
  // The user's connection lasts until the router ends.
  std::string end;
  std::thread own([&] {
    end = testsupport::asUser(testsupport::kOtherUser, [this]() -> std::string {
      const int socket = platform::connectUnixSocket((directory_ / "router.sock").string(),
                                                     SOCK_STREAM | SOCK_CLOEXEC);
      std::array<char, 256> farewell{};
      if (socket < 0) return "not connected";
      while (::read(socket, farewell.data(), farewell.size()) > 0) continue;
      return "ended";
    });
  });
  const auto deadline = std::chrono::steady_clock::now() + routertest::kPatience;
  while (log().find(", user " + user + ") begins") == std::string::npos &&
         log().find("refused") == std::string::npos && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  ::kill(process_, SIGTERM);
  EXPECT_EQ(exitStatus(), 0);
  own.join();
  EXPECT_EQ(end, "ended");
  EXPECT_THAT(log(), testing::HasSubstr(", user " + user + ") begins"));
}

}  // namespace
