// SPDX-License-Identifier: Apache-2.0

// Child processes of a routing application: whatever they do to its client, its input continues.
#include <sys/wait.h>
#include <unistd.h>

#include "tests/integration/router-client/RealLayerFixture.h"

namespace test {
namespace {

std::shared_ptr<platform::NSData> report() {
  return platform::NSData::dataWithBytes(std::vector<std::uint8_t>{1});
}

class ClientInAChild : public RealLayerTest {
 protected:
  /// Runs `action` in a child and waits for it; returns whether it completed.
  template <class Action>
  static bool inChild(const Action& action) {
    constexpr unsigned kLongest = 30;  // seconds; a child that hangs is killed by SIGALRM
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(kLongest);
      action();
      ::_exit(0);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && status == 0;
  }
  /// A report reaches the delegate, and the session has not been told to end.
  void expectInput(std::uint32_t reportID) {
    const auto sessions = routing();
    ASSERT_EQ(sessions.size(), 1U);
    sessions[0]->client->receivedData_forReportID(report(), reportID);
    EXPECT_TRUE(trace().waitFor("delegate receivedReportData {length = 1, bytes = 0x01} " +
                                std::to_string(reportID)));
    EXPECT_EQ(sessions[0]->stops, 0);
  }
};

TEST_F(ClientInAChild, IsStoppedWithoutAnEffectOnItsParents) {
  makeRoutingClient();
  EXPECT_TRUE(inChild([this] {
    client_->setStarted(false);
    client_->setStarted(true);
  }));
  expectInput(1);
}

TEST_F(ClientInAChild, IsReleasedWithoutAnEffectOnItsParents) {
  makeRoutingClient();
  ASSERT_TRUE(waitUntilOnlyOursHolds());
  EXPECT_TRUE(inChild([this] { client_.reset(); }));
  expectInput(2);
}

TEST_F(ClientInAChild, EndsWhileInputComes) {
  makeRoutingClient();
  const auto session = routing().at(0);
  std::atomic<bool> isOver{false};
  std::thread input([&] {
    while (!isOver) {
      session->client->receivedData_forReportID(report(), 3);
      static_cast<void>(session->connection->waitUntilUnsentBelow(1 << 16, kPatience));
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(inChild([this] {
      client_->setStarted(false);
      client_.reset();
    }));
  }
  isOver = true;
  input.join();
  expectInput(4);
}

}  // namespace
}  // namespace test
