// SPDX-License-Identifier: Apache-2.0

// Callers that hang up or die while polkit is asked on their behalf: the question is taken back,
// and nothing is done. With the whole daemon, and a mock of polkit on a bus of the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "jobd/PolkitAuthority.h"
#include "jobd/SystemDaemon.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "tests/support/HelperImages.h"
#include "tests/support/MockPolkit.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/SystemRootTest.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::ControlReply;
using platform::ControlRequest;
using platform::FileDescriptor;
using testsupport::MockPolkit;
using Operation = ControlRequest::Operation;
using Says = MockPolkit::Says;
namespace fs = std::filesystem;

const std::string kLabel(platform::kSystemJobLabel);

class HangUp : public testsupport::SystemRootTest {
 protected:
  HangUp() {
    testsupport::waitForConnection(bus_);
    thread_ = std::thread([this] { serve(); });
  }
  ~HangUp() override {
    ::eventfd_write(stop_.get(), 1);
    thread_.join();
  }

  void serve() {
    jobd::EventLoop loop;
    const auto stop = loop.watch(stop_.get(), EPOLLIN, [&] { loop.stop(); });
    jobd::Mailbox mailbox(loop);
    jobd::PolkitAuthority authority(mailbox, bus_);
    jobd::SystemSeams seams;
    seams.authority = [&](const jobd::Question& question, const jobd::Decided& decided) {
      authority.decide(question, decided);
    };
    const jobd::SystemDaemon daemon(loop, root_, jobd::RootDirectories::openSystem(root_),
                                    std::move(listening_), seams, std::chrono::minutes(10));
    loop.run();
  }

  [[nodiscard]] FileDescriptor connect() const {
    return FileDescriptor(
        platform::connectUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM));
  }
  static ControlReply replyTo(const FileDescriptor& socket) {
    platform::FrameReader reader;
    auto state = platform::FrameReader::State::NeedMore;
    while (state == platform::FrameReader::State::NeedMore) state = reader.readFrom(socket.get());
    return platform::decodeControlReply(reader.content()).value();
  }
  static void send(const FileDescriptor& socket, const ControlRequest& request, int helper = -1) {
    ASSERT_TRUE(platform::sendFrame(socket.get(), encode(request), helper));
  }

  /// The question is taken back, and the daemon is done with it.
  void expectWithdrawn(const MockPolkit::Asked& asked) {
    EXPECT_EQ(polkit_.nextCanceled(), asked.cancellation);
    polkit_.answerAllWith(Says::No);
    const FileDescriptor next = connect();
    send(next, {Operation::Authorize, kLabel});
    EXPECT_FALSE(replyTo(next).succeeded()) << "the daemon serves the next one";
    EXPECT_FALSE(fs::exists(root_.path() / "var/lib/wlhid/helpers" / kLabel));
    EXPECT_TRUE(fs::is_empty(root_.path() / "var/lib/wlhid/staging"));
    EXPECT_THAT(platform::readDeviceGrants(platform::openRoot(root_).get()), testing::IsEmpty());
    EXPECT_THAT(polkit_.complaints(), testing::IsEmpty());
  }

  void takesBack(const ControlRequest& request) {
    FileDescriptor caller = connect();
    send(caller, request);
    const auto asked = polkit_.next();
    caller.reset();
    expectWithdrawn(asked);
  }
  static ControlRequest aboutPedal(Operation operation) {
    ControlRequest request{operation};
    request.grant = platform::DeviceGrant{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
    return request;
  }

  testsupport::PrivateBus daemon_;
  MockPolkit polkit_{daemon_.address()};
  platform::system::SystemBus bus_{{.address = daemon_.address()}};
  FileDescriptor stop_{::eventfd(0, EFD_CLOEXEC)};
  std::thread thread_;
};

TEST_F(HangUp, TakesTheQuestionAboutAnInstallationBack) {
  takesBack({Operation::Authorize, kLabel});
}

TEST_F(HangUp, TakesTheQuestionAboutARemovalBack) {
  ControlRequest request{Operation::Authorize, kLabel};
  request.purpose = platform::ChangePurpose::Remove;
  takesBack(request);
}

TEST_F(HangUp, TakesTheQuestionAboutAGrantBack) {
  takesBack(aboutPedal(Operation::Grant));
}

TEST_F(HangUp, TakesTheQuestionAboutARevocationBack) {
  takesBack(aboutPedal(Operation::Revoke));
}

TEST_F(HangUp, TakesTheQuestionAboutAnOlderVersionBack) {
  const fs::path package = root_.path() / "usr/lib/wlhid";
  fs::create_directories(package / "helpers");
  testsupport::makeImage(WLHID_MKIMAGE, {kLabel, "2.0", "/bin/true", {}},
                         package / "helpers" / kLabel);
  const auto older = testsupport::makeImage(WLHID_MKIMAGE, {kLabel, "1.0", "/bin/true", {}},
                                            temporary_.path() / "older");
  const FileDescriptor image(::open(older.c_str(), O_RDONLY | O_CLOEXEC));
  FileDescriptor caller = connect();
  send(caller, {Operation::Authorize, kLabel});
  polkit_.answer(polkit_.next(), Says::Yes);
  ASSERT_TRUE(replyTo(caller).succeeded());
  send(caller, {Operation::Bless, kLabel}, image.get());
  const auto asked = polkit_.next();
  EXPECT_EQ(asked.action, "com.quillmar.hideventrouter.replace-newer");
  caller.reset();
  expectWithdrawn(asked);
}

TEST_F(HangUp, ACallerThatIsKilledHasHungUp) {
  const pid_t caller = ::fork();
  if (caller == 0) {
    const FileDescriptor socket = connect();
    send(socket, {Operation::Authorize, kLabel});
    for (;;) ::pause();
  }
  const auto asked = polkit_.next();
  EXPECT_EQ(asked.processID, static_cast<std::uint32_t>(caller));
  ::kill(caller, SIGKILL);
  ::waitpid(caller, nullptr, 0);
  expectWithdrawn(asked);
}

TEST_F(HangUp, ACallerThatOnlyHasNothingMoreToSayIsAnswered) {
  const FileDescriptor caller = connect();
  send(caller, {Operation::Authorize, kLabel});
  ::shutdown(caller.get(), SHUT_WR);
  polkit_.answer(polkit_.next(), Says::Yes);
  EXPECT_TRUE(replyTo(caller).succeeded());
}

}  // namespace
