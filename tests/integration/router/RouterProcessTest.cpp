// The router's program, started as the job daemon starts it: with a listening socket as
// descriptor 3.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include "RouterFixture.h"

namespace {

using routertest::Client;
using testing::ElementsAre;

class RouterProcessTest : public routertest::RouterFixture {
 protected:
  /// The child sets LISTEN_PID to itself, which only it knows, so a shell does it and becomes the
  /// router.
  void spawn(int listener) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (listener >= 0) posix_spawn_file_actions_adddup2(&actions, listener, 3);
    posix_spawn_file_actions_addopen(&actions, 2, (directory_ / "log").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    const std::string command = "LISTEN_PID=$$ exec \"$0\"";
    const std::string fds = "LISTEN_FDS=" + std::to_string(listener >= 0 ? 1 : 0);
    const std::string rootVariable = "WLHID_ROOT=" + directory_.string();
    const std::string names = "LISTEN_FDNAMES=com.quillmar.hideventrouter";
    std::array<const char*, 5> arguments{"sh", "-c", command.c_str(), WLHID_ROUTER_PROGRAM,
                                         nullptr};
    std::array<const char*, 4> environment{fds.c_str(), names.c_str(), rootVariable.c_str(),
                                           nullptr};
    ASSERT_EQ(
        ::posix_spawn(&process_, "/bin/sh", &actions, nullptr, const_cast<char**>(arguments.data()),
                      const_cast<char**>(environment.data())),
        0);
    posix_spawn_file_actions_destroy(&actions);
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
  std::string log() const {
    std::ifstream in(directory_ / "log");
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  pid_t process_ = -1;
};

TEST_F(RouterProcessTest, ServesTheSocketThatItIsHandedUntilItIsTerminated) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  const int listener = listen();
  spawn(listener);
  ::close(listener);
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
  const int listener = listen();
  spawn(listener);
  ::close(listener);
  Client client;
  client.start(0x42);
  client.log->await(1);
  EXPECT_THAT(log(),
              testing::HasSubstr("a\\x1b[2J\\x0aforged: \\u202e.plist: is no property list"));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("\x1b")));
  EXPECT_THAT(log(), testing::Not(testing::HasSubstr("\nforged")));
}

TEST_F(RouterProcessTest, WithoutASocketItSaysSoAndFails) {
  spawn(-1);
  EXPECT_EQ(exitStatus(), 1);
  EXPECT_THAT(log(),
              testing::HasSubstr("no endpoint was handed over for com.quillmar.hideventrouter"));
}

TEST_F(RouterProcessTest, ARouterThatIsKilledInterruptsItsClients) {
  const std::uint64_t id = addDevice("slow", "E: 0.0 2 07 01\nE: 100000.0 2 07 02\n", "1");
  const int listener = listen();
  spawn(listener);
  ::close(listener);
  Client client;
  client.start(id);
  client.log->await(3);
  ::kill(process_, SIGKILL);
  exitStatus();
  EXPECT_EQ(client.log->await(4)[3], "interrupted");
}

}  // namespace
