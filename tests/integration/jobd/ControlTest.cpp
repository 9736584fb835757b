// SPDX-License-Identifier: Apache-2.0

// The daemon's control endpoint against callers that are hostile or ask for too much at once.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/integration/jobd/SuiteFixture.h"

namespace {

using namespace jobdtest;
using platform::ControlRequest;
using platform::FileDescriptor;
using platform::ServiceErrorCode;
using testing::HasSubstr;

class Control : public JobdSuite {
 protected:
  void SetUp() override {
    JobdSuite::SetUp();
    ASSERT_TRUE(bless(echoImage()).succeeded());
  }

  [[nodiscard]] FileDescriptor rawConnection() const {
    FileDescriptor socket(
        platform::connectUnixSocket(root.controlEndpoint().string(), SOCK_STREAM));
    EXPECT_TRUE(socket);
    return socket;
  }

  /// Whether the daemon closes the connection.
  static bool isDropped(const FileDescriptor& socket) {
    pollfd entry{socket.get(), POLLIN, 0};
    char c = 0;
    return ::poll(&entry, 1, kTimeoutMilliseconds) == 1 && ::recv(socket.get(), &c, 1, 0) <= 0;
  }

  static void sendBytes(const FileDescriptor& socket, std::span<const std::uint8_t> bytes) {
    // The daemon may hang up before everything is sent; that is its answer.
    (void)::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  void expectService() {
    const auto status = daemon().status();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->jobs.size(), 1U);
    EXPECT_EQ(connect().ask("echo fine"), "fine");
  }
};

std::vector<std::uint8_t> frameOf(std::uint32_t length, std::string_view content) {
  std::vector<std::uint8_t> frame;
  for (int i = 0; i < 4; ++i) frame.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
  frame.insert(frame.end(), content.begin(), content.end());
  return frame;
}

TEST_F(Control, MalformedFramesLoseTheirConnection) {
  for (const auto& frame :
       {frameOf(0, ""), frameOf(0xFFFFFFFF, "x"), frameOf(platform::kMaximumControlBytes + 1, ""),
        frameOf(7, "garbage"), frameOf(8, "bplist00"), frameOf(8, std::string(8, '\0'))}) {
    const auto socket = rawConnection();
    sendBytes(socket, frame);
    EXPECT_TRUE(isDropped(socket));
  }
  expectService();
}

TEST_F(Control, RandomBytesAreSurvived) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    auto frame = encode(ControlRequest{ControlRequest::Operation::Status, "com.x", true});
    for (int hit = 0; hit < 4; ++hit)
      frame[4 + random() % (frame.size() - 4)] = static_cast<std::uint8_t>(random());
    const auto socket = rawConnection();
    sendBytes(socket, frame);
    ::shutdown(socket.get(), SHUT_WR);
    pollfd entry{socket.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, kTimeoutMilliseconds), 1);
  }
  expectService();
}

TEST_F(Control, HalfAFrameHoldsUpNobody) {
  const auto frame = encode(ControlRequest{});
  std::vector<FileDescriptor> stalled;
  for (int i = 0; i < 10; ++i) {
    stalled.push_back(rawConnection());
    sendBytes(stalled.back(), std::span(frame).first(frame.size() / 2));
  }
  expectService();
  for (auto& socket : stalled) socket.reset();
  expectService();
}

TEST_F(Control, IdleConnectionsKeepNobodyOut) {
  std::vector<FileDescriptor> idle;
  for (int i = 0; i < 40; ++i) idle.push_back(rawConnection());
  expectService();
  EXPECT_TRUE(bless(echoImage("1.1")).succeeded());
  EXPECT_TRUE(isDropped(idle.front()));
}

TEST_F(Control, AChangeSentStraightToTheSocketIsRefused) {
  const std::string installed = testsupport::readFile(root.helperTool(kEchoLabel));
  const FileDescriptor image(::open(echoImage("6.6").c_str(), O_RDONLY | O_CLOEXEC));
  const auto blessed =
      daemon().ask({ControlRequest::Operation::Bless, kEchoLabel, true}, image.get());
  EXPECT_EQ(blessed.code, ServiceErrorCode::NotPermitted) << blessed.message;
  const auto removed = daemon().ask({ControlRequest::Operation::Remove, kEchoLabel, true}, -1);
  EXPECT_EQ(removed.code, ServiceErrorCode::NotPermitted) << removed.message;
  EXPECT_EQ(testsupport::readFile(root.helperTool(kEchoLabel)), installed);
  expectService();
}

TEST_F(Control, TheLogSaysWhoWasGivenLeave) {
  EXPECT_THAT(log(), HasSubstr("permission to change com.quillmar.echo granted to process " +
                               std::to_string(::getpid()) + " (" +
                               std::filesystem::read_symlink("/proc/self/exe").string() +
                               ") of user " + std::to_string(::geteuid()) + "\n"));
}

TEST_F(Control, StalledConnectionsAreGivenUp) {
  const auto socket = rawConnection();
  EXPECT_TRUE(isDropped(socket));
  expectService();
}

TEST_F(Control, DescriptorsNobodyAskedForAreClosed) {
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto count = [&] {
    const std::filesystem::path open =
        "/proc/" + std::to_string(daemonProcess().identifier()) + "/fd";
    return std::distance(std::filesystem::directory_iterator(open),
                         std::filesystem::directory_iterator());
  };
  const auto before = count();
  for (int i = 0; i < 20; ++i) (void)daemon().ask(ControlRequest{}, null.get());
  ASSERT_TRUE(eventually([&] { return count() <= before; }));
}

TEST_F(Control, ABlessWithoutADescriptorIsRefused) {
  const auto reply = change({ControlRequest::Operation::Bless, kEchoLabel, true}, -1);
  EXPECT_EQ(reply.code, ServiceErrorCode::Protocol);
  EXPECT_EQ(reply.message, "no helper was sent with the request");
  expectService();
}

TEST_F(Control, InvalidLabelsAreRefused) {
  for (const std::string label : {"", "..", "../../etc/passwd", "a/b"}) {
    EXPECT_EQ(remove(label).code, ServiceErrorCode::InvalidArgument) << label;
  }
  EXPECT_EQ(remove("com.nobody").code, ServiceErrorCode::NoSuchJob);
  EXPECT_EQ(remove("com.nobody").message, "there is no job com.nobody");
  expectService();
}

TEST_F(Control, StatusTellsWhatIsKept) {
  Client client = connect();
  const Process helper = client.process();
  const auto status = job();
  EXPECT_EQ(status.label, kEchoLabel);
  EXPECT_THAT(status.services, testing::ElementsAre(kEchoLabel));
  EXPECT_EQ(status.processIdentifier, helper.identifier());
  EXPECT_EQ(status.starts, 1);
  EXPECT_EQ(status.heldBackMilliseconds, 0);
}

TEST_F(Control, SomebodyElseIsNotServed) {
  // Needs a second user, which only the superuser can become; in any case the endpoint's mode keeps
  // others out.
  struct stat status {};
  ASSERT_EQ(::stat(root.controlEndpoint().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  if (::geteuid() != 0) GTEST_SKIP() << "needs the superuser";
  const auto above = temporary.path().parent_path();
  for (auto path = root.controlEndpoint(); path != above; path = path.parent_path())
    ::chmod(path.c_str(), 0777);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(12345) != 0) ::_exit(1);
    const FileDescriptor socket(
        platform::connectUnixSocket(root.controlEndpoint().string(), SOCK_STREAM));
    if (!socket) ::_exit(2);
    ::_exit(isDropped(socket) ? 42 : 3);
  }
  int end = 0;
  ::waitpid(child, &end, 0);
  EXPECT_EQ(WEXITSTATUS(end), 42);
}

}  // namespace
