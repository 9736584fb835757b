// SPDX-License-Identifier: Apache-2.0

// One user's thousand connections, on a router that serves several users with the limits that it
// has on the system's own root: another user is served.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "LostPermissionFixture.h"
#include "platform/xpc/Hello.h"
#include "tests/support/OtherUser.h"

namespace {

using lostpermission::kDevice;
using lostpermission::YesUntilRevoked;
using platform::xpc::WireWriter;
using routertest::Client;
using testing::ElementsAre;

constexpr int kConnections = 1000;

void allowManyDescriptors() {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4 * kConnections);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

/// A process of another user that holds connections to a socket until it is destroyed. Every second
/// one says hello as a client does, the others say nothing.
class Crowd {
 public:
  explicit Crowd(const std::string& path) {
    EXPECT_EQ(::pipe2(arrivals_.data(), O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(leave_.data(), O_CLOEXEC), 0);
    platform::xpc::writeHello(hello_, {platform::xpc::kWireVersion,
                                       std::string(WLHIDEventRouterClientProtocol::protocol().name),
                                       std::string(WLHIDEventRouterProtocol::protocol().name)});
    process_ = ::fork();
    if (process_ == 0) ::_exit(come(path) ? 0 : 1);
    ::close(arrivals_[1]);
    ::close(leave_[0]);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    ::close(leave_[1]);
    int status = -1;
    ::waitpid(process_, &status, 0);
    EXPECT_EQ(status, 0) << "not all of the connections were made";
    ::close(arrivals_[0]);
  }
  /// Returns when all of them have connected.
  void await() const {
    pollfd arrived{arrivals_[0], POLLIN, 0};
    EXPECT_EQ(::poll(&arrived, 1, 120'000), 1);
  }

 private:
  bool come(const std::string& path) const {
    ::close(leave_[1]);
    if (::setgid(testsupport::kOtherUser) != 0 || ::setuid(testsupport::kOtherUser) != 0)
      return false;
    for (int i = 0; i < kConnections; ++i) {
      const int socket = platform::connectUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC);
      if (socket < 0) return false;
      const auto hello = hello_.bytes();
      // Who has been refused already cannot say it any more.
      if (i % 2 == 0) static_cast<void>(::send(socket, hello.data(), hello.size(), MSG_NOSIGNAL));
    }
    char byte = 0;
    if (::write(arrivals_[1], "!", 1) != 1) return false;
    return ::read(leave_[0], &byte, 1) == 0;
  }

  std::array<int, 2> arrivals_{-1, -1};
  std::array<int, 2> leave_{-1, -1};
  WireWriter hello_;
  pid_t process_ = -1;
};

using CrowdTest = lostpermission::LostPermissionFixture;

TEST_F(CrowdTest, OfOneUserLeavesAnotherServed) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can act as another user";
  allowManyDescriptors();
  authority_ = std::make_shared<YesUntilRevoked>();
  startRouterThatStopsAt("nothing");
  const std::string path = directory_ / "router.sock";
  ASSERT_EQ(::chmod(directory_.c_str(), 0711), 0);
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  const Crowd crowd(path);
  crowd.await();
  routerLog_->awaitLine("user " + std::to_string(testsupport::kOtherUser) + " has more than " +
                        std::to_string(router::RouterLimits().sessionsPerUser) + " connections");
  Client client;
  client.start(kDevice);
  device_.feed.report("01");
  EXPECT_THAT(client.log->await(3), ElementsAre("started", "data 0 01", "values 1/48=1"));
}

}  // namespace
