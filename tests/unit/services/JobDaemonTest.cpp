#include "platform/services/JobDaemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <thread>

#include "platform/services/ServiceEndpoints.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::FileDescriptor;
using platform::FrameReader;

FrameReader::State readRequest(const FileDescriptor& socket) {
  FrameReader reader;
  for (;;) {
    const auto state = reader.readFrom(socket.get());
    if (state != FrameReader::State::NeedMore) return state;
  }
}

/// A daemon that hangs up on so many who ask before it answers one.
void serve(const FileDescriptor& endpoint, int hangUps) {
  for (int i = 0; i <= hangUps; ++i) {
    const FileDescriptor socket(::accept4(endpoint.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (i < hangUps || readRequest(socket) != FrameReader::State::Complete) continue;
    platform::ControlReply reply;
    reply.daemonProcessIdentifier = 42;
    EXPECT_TRUE(platform::sendFrame(socket.get(), encode(reply), -1));
  }
}

TEST(JobDaemon, WhoeverIsHungUpOnAsksForTheStatusAgain) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  std::filesystem::create_directories(root.controlEndpoint().parent_path());
  const FileDescriptor endpoint(
      platform::listenUnixSocket(root.controlEndpoint().string(), SOCK_STREAM, 8, 0600));
  ASSERT_TRUE(endpoint);
  std::thread daemon([&] { serve(endpoint, 2); });
  const auto status = platform::JobDaemon(root).status();
  ::shutdown(endpoint.get(), SHUT_RDWR);  // if it was not asked often enough
  daemon.join();
  ASSERT_TRUE(status);
  EXPECT_EQ(status->daemonProcessIdentifier, 42);
}

}  // namespace
