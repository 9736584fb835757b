// SPDX-License-Identifier: Apache-2.0

// A router that serves its own service only: there is no directory that says which devices there
// are, and whose connection ends with the router.
#include "InputFixture.h"
#include "platform/foundation/Format.h"
#include "tests/support/RouterStatusWait.h"

namespace {

using inputtest::InputFixture;
using inputtest::Lines;
using wlhid::Input;

wlhid::InputHandlers noting(Lines& lines) {
  return {.report = [&lines](const wlhid::Report&) { lines.add("report"); },
          .status = [&lines](const wlhid::Status& status) { lines.add(status.text); }};
}

class LoneRouterTest : public InputFixture {
 protected:
  void SetUp() override {
    InputFixture::SetUp();
    installElsewhere(LONE_ROUTER);
  }
  void awaitInput() {
    lines_.await(platform::stringWithFormat("routing 0x%llx", device_));
    lines_.await("report");
  }
  /// Once it can be noticed: the input has another connection, which routes nothing.
  void killRouterThatIsWatched() {
    const pid_t process = routerProcess();
    testsupport::awaitRouterStatus(root_, inputtest::kPatience, [&](const auto& status) {
      return status.pid == process && status.sessions.size() == 2 &&
             status.sessions[0].device.has_value() != status.sessions[1].device.has_value();
    });
    killRouter();
    lines_.await("reconnecting: the router has ended unexpectedly");
  }
  Lines lines_;
  const std::uint64_t device_ = addDevice("Mouse");
};

TEST_F(LoneRouterTest, TheInputGoesOnAfterItsDeath) {
  const Input input({.device = device_}, noting(lines_));
  awaitInput();
  killRouterThatIsWatched();
  awaitInput();
  killRouterThatIsWatched();
  awaitInput();
}

TEST_F(LoneRouterTest, TheInputGoesOnAfterItTookLeave) {
  const Input input({.device = device_}, noting(lines_));
  awaitInput();
  endProcess(routerProcess(), SIGTERM);
  lines_.await("reconnecting: the router has closed the connection");
  awaitInput();
  killRouterThatIsWatched();
  awaitInput();
}

TEST_F(LoneRouterTest, TheInputGoesOnWhenItReplacesOneWithADirectory) {
  installElsewhere(ownRouter());
  const Input input({.device = device_}, noting(lines_));
  lines_.await("routing Mouse");
  installElsewhere(LONE_ROUTER);
  lines_.await("routing Mouse");
  lines_.await("report");
  killRouterThatIsWatched();
  lines_.await("routing Mouse");
  lines_.await("report");
}

TEST_F(LoneRouterTest, ADeviceThatIsNotThereIsAskedForAgain) {
  removeDevice("Mouse");
  const Input input({.device = device_}, noting(lines_));
  lines_.await("waiting for the device: no device has the registry entry ID");
  EXPECT_EQ(addDevice("Mouse"), device_);
  awaitInput();
}

TEST_F(LoneRouterTest, AnInputThatHasEndedBeginsAgainIfItIsTold) {
  Input input({.device = addDevice("Once", /*repeat=*/false)}, noting(lines_));
  lines_.await("ended: the recording \"Once\" has been played to its end");
  input.retry();
  lines_.await("report");
}

}  // namespace
