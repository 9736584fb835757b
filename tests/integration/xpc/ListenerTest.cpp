// SPDX-License-Identifier: Apache-2.0

// The service's end: which peers it accepts, passed descriptors, and a shortage of descriptors.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>

#include "platform/xpc/Hello.h"
#include "platform/xpc/PassedDescriptors.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

class Listener : public XPCTest {};

/// The connection sends one request, is told that it is invalid, and ends.
void expectRefusal(const std::shared_ptr<NSXPCConnection>& connection) {
  End refused;
  refused.configure(connection);
  refused.connection->resume();
  refused.ask();
  ASSERT_TRUE(refused.log.waitFor("invalidation"));
  EXPECT_EQ(refused.log.lines(), Lines({"error 4099", "invalidation"}));
}

/// A service whose listener has lower limits.
class Limited : public XPCTest {
 protected:
  Limited() {
    limits_.helloWithin = std::chrono::hours{1};
    service_->stop();
  }
  void serve() { service_ = Service::listen(path_, limits_); }

  static Bytes helloFrame(const std::string& exported = "") {
    xpc::WireWriter hello;
    xpc::writeHello(hello, {xpc::kWireVersion, exported, exported});
    return {hello.bytes().begin(), hello.bytes().end()};
  }
  static Bytes noteFrame(std::uint64_t number) {
    xpc::WireWriter note;
    note.beginFrame(xpc::FrameKind::Message, 0);
    note.u64(number);
    note.finishFrame();
    return {note.bytes().begin(), note.bytes().end()};
  }

  NSXPCListenerLimits limits_;
};

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

/// Sets up what a starter passes on: variables and descriptors from 3 on; restored afterwards.
class Handed : public ::testing::Test {
 protected:
  Handed() { socket_ = listenUnixSocket((directory_.path() / "s").string(), SOCK_STREAM, 4, 0600); }
  ~Handed() override {
    ::close(socket_);
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) ::unsetenv(name);
  }
  void set(const std::string& process, const std::string& count, const std::string& names) {
    ::setenv("LISTEN_PID", process.c_str(), 1);
    ::setenv("LISTEN_FDS", count.c_str(), 1);
    ::setenv("LISTEN_FDNAMES", names.c_str(), 1);
  }
  static int failure(const char* service) {
    errno = 0;
    const auto listener = NSXPCListener::initWithMachServiceName(str(service));
    return listener ? 0 : errno;
  }
  static std::string self() { return std::to_string(::getpid()); }

  TemporaryDirectory directory_;
  int socket_ = -1;
};

}  // namespace

TEST_F(Listener, ARefusedConnectionIsAnInvalidationAtItsPeer) {
  service_->refuses = true;
  client_.connection->resume();
  client_.ask();
  ASSERT_TRUE(client_.log.waitFor("invalidation"));
  EXPECT_EQ(client_.log.lines(), Lines({"error 4099", "invalidation"}));
}

TEST_F(Listener, KnowsItsCallerFromTheKernel) {
  const auto end = connect();
  EXPECT_EQ(end->connection->effectiveUserIdentifier(), ::geteuid());
  EXPECT_EQ(end->connection->processIdentifier(), ::getpid());
}

TEST_F(Listener, KeepsTheLimitsThatItWasResumedWith) {
  const std::string path = (directory_.path() / "limited").string();
  const auto listener = NSXPCListener::initWithListeningDescriptor(
      listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 4, 0600));
  listener->setDelegate(service_);
  listener->resume();
  NSXPCListenerLimits nobody;
  nobody.connections = 0;
  listener->setLimits(nobody);
  RawPeer peer(RawPeer::connectTo(path));
  EXPECT_NE(service_->end(), nullptr) << "it was accepted";
}

TEST_F(Listener, OffersNothingAfterInvalidateButWhatItAcceptedLivesOn) {
  const auto end = connect();
  service_->stopListening();
  client_.proxy()->note(1);
  EXPECT_TRUE(end->log.waitFor("note 1"));
}

TEST_F(Listener, WithoutADelegateEveryConnectionIsRefused) {
  service_->forgetDelegate();
  client_.connection->resume();
  client_.ask();
  EXPECT_TRUE(client_.log.waitFor("invalidation"));
}

TEST_F(Listener, ADelegateThatThrowsRefusesThatConnection) {
  int asked = 0;
  service_->prepare = [&asked](End&) {
    switch (asked++) {
      case 0:
        throw std::runtime_error("no room");
      case 1:
        throw 1;
      default:
        break;
    }
  };
  for (int i = 0; i < 2; ++i) expectRefusal(makeConnection());
  EXPECT_NE(connect(), nullptr);
  EXPECT_EQ(logged_.linesWith("a listener's delegate threw: no room"), 1U);
  EXPECT_EQ(logged_.linesWith("a listener's delegate threw"), 2U);
}

TEST_F(Listener, OutlivesAShortageOfDescriptors) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  client_.connection->resume();
  RawPeer waiting(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int lowest = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
  ::close(lowest);
  rlimit tight = before;
  tight.rlim_cur = static_cast<rlim_t>(lowest);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  const bool connected = waiting.connect(address);
  // The listener meets the shortage now or after the limit is lifted; either way it accepts the
  // connection in the end.
  while (connected && logged_.linesWith("out of descriptors") == 0) std::this_thread::yield();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  ASSERT_TRUE(connected);
  EXPECT_NE(service_->end(), nullptr);
}

TEST_F(Listener, AConnectionThatGetsTheLastDescriptorIsServedAllTheSame) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  RawPeer last(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int lowest = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
  ::close(lowest);
  rlimit tight = before;
  tight.rlim_cur = static_cast<rlim_t>(lowest) + 1;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  const bool connected = last.connect(address);
  const bool sent = connected && last.send({0, 0, 0, 0, 99, 0, 0, 0});
  // Accepted now, or after the shortage if the listener itself needed the last descriptor.
  while (sent && service_->accepted() == 0 && logged_.linesWith("out of descriptors") == 0)
    std::this_thread::yield();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  ASSERT_TRUE(sent);
  const auto end = service_->end();
  ASSERT_NE(end, nullptr);
  EXPECT_TRUE(end->log.waitFor("invalidation"));
  EXPECT_TRUE(last.waitForEnd());
}

TEST_F(Limited, WhoSaysNoHelloInTimeIsClosedAndWhoDoesIsNot) {
  const int socket = listenUnixSocket(path_, SOCK_STREAM | SOCK_CLOEXEC, 16, 0600);
  ASSERT_GE(socket, 0);
  RawPeer silent(RawPeer::connectTo(path_));
  RawPeer halting(RawPeer::connectTo(path_));
  RawPeer polite(RawPeer::connectTo(path_));
  const Bytes hello = helloFrame();
  ASSERT_TRUE(halting.send(Bytes(hello.begin(), hello.begin() + 10)));
  ASSERT_TRUE(polite.send(hello));
  limits_.helloWithin = std::chrono::milliseconds{0};  // so only what has already arrived counts
  service_ = Service::serve(socket, limits_);
  for (RawPeer* peer : {&silent, &halting}) {
    EXPECT_EQ(peer->receiveFrame().size(), helloFrame("Talk").size());
    EXPECT_TRUE(peer->waitForEnd());
  }
  for (std::size_t i = 0; i < 2; ++i)
    EXPECT_TRUE(service_->end(i)->log.waitFor("invalidation")) << i;
  EXPECT_EQ(logged_.linesWith("no hello in time"), 2U);
  ASSERT_TRUE(polite.send(noteFrame(5)));
  EXPECT_TRUE(service_->end(2)->log.waitFor("note 5"));
}

TEST_F(Limited, ConnectionsThatSayNothingKeepNobodyOut) {
  limits_.withoutHelloOfUser = 4;
  limits_.connections = limits_.connectionsOfUser = 6;
  serve();
  const auto before = connect();
  std::vector<std::unique_ptr<RawPeer>> silent;
  for (int i = 0; i < 256; ++i)
    silent.push_back(std::make_unique<RawPeer>(RawPeer::connectTo(path_)));
  EXPECT_TRUE(silent[0]->waitForEnd());
  End other;
  other.configure(makeConnection());
  other.connection->resume();
  other.proxy()->echo_reply(str("in"),
                            [&](const std::shared_ptr<NSString>&) { other.log.add("let in"); });
  EXPECT_TRUE(other.log.waitFor("let in"));
  for (std::size_t i = 0; i < 252; ++i) EXPECT_TRUE(silent[i]->waitForEnd()) << i;
  client_.proxy()->note(1);
  EXPECT_TRUE(before->log.waitFor("note 1"));
  other.connection.reset();
}

TEST_F(Limited, MoreConnectionsThanAUserMayHaveAreRefusedInOrderUntilOneEnds) {
  limits_.connectionsOfUser = 2;
  serve();
  connect();
  End second;
  second.configure(makeConnection());
  second.connection->resume();
  second.proxy()->note(1);
  ASSERT_TRUE(service_->end(1)->log.waitFor("note 1"));
  for (int i = 0; i < 3; ++i) expectRefusal(makeConnection());
  EXPECT_EQ(logged_.linesWith("its user has too many connections"), 1U);
  EXPECT_EQ(service_->accepted(), 2U);
  client_.connection->invalidate();
  ASSERT_TRUE(service_->end(0)->log.waitFor("invalidation"));
  End third;
  third.configure(makeConnection());
  third.connection->resume();
  third.proxy()->note(3);
  EXPECT_TRUE(service_->end(2)->log.waitFor("note 3"));
  third.connection.reset();
  second.connection.reset();
}

TEST_F(Limited, WhatAUsersConnectionsKeepUnsentIsBoundedTogether) {
  constexpr std::size_t kBlock = std::size_t{64} << 10;
  limits_.unsentBytesOfUser = std::size_t{1} << 20;
  serve();
  std::vector<std::unique_ptr<RawPeer>> deaf;
  for (int i = 0; i < 4; ++i) {
    deaf.push_back(std::make_unique<RawPeer>(RawPeer::connectTo(path_)));
    ASSERT_TRUE(deaf.back()->send(helloFrame() + noteFrame(0)));
  }
  std::uint64_t dropped = 0;
  for (std::size_t i = 0; i < deaf.size(); ++i) {
    const auto end = service_->end(i);
    ASSERT_TRUE(end && end->log.waitFor("note 0"));
    const auto proxy = end->proxy();
    const auto data = NSData::dataWithLength(kBlock, [](std::span<std::uint8_t> bytes) {
      std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    });
    for (std::uint32_t n = 0; n < 100; ++n) proxy->data_tag(data, n);
    dropped += end->connection->messagesDropped();
  }
  EXPECT_GT(dropped, 0U);
  const auto one = service_->end(0)->connection;
  EXPECT_GT(one->unsentBytesOfUser(), limits_.unsentBytesOfUser / 2);
  EXPECT_LE(one->unsentBytesOfUser(), limits_.unsentBytesOfUser + deaf.size() * (kBlock + 64));
  const auto reader = connect(9, deaf.size());  // a peer that reads loses nothing
  for (std::uint32_t n = 0; n < 10; ++n) {
    reader->proxy()->data_tag(NSData::dataWithLength(100, [](auto) {}), n);
    ASSERT_TRUE(client_.log.waitFor("data 100 " + std::to_string(n)));
  }
  EXPECT_EQ(reader->connection->messagesDropped(), 0U);
  deaf.clear();
  for (std::size_t i = 0; i < 4; ++i)
    ASSERT_TRUE(service_->end(i)->log.waitFor("invalidation")) << i;
  EXPECT_EQ(reader->connection->unsentBytesOfUser(), 0U);
}

TEST_F(Handed, NothingWasHandedOver) {
  EXPECT_EQ(failure("a"), ENOENT);
  errno = 0;
  EXPECT_EQ(NSXPCListener::initWithMachServiceName(nullptr), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Handed, ToAnotherProcess) {
  set("1", "1", "a");
  EXPECT_EQ(failure("a"), ENOENT);
}

TEST_F(Handed, UnderAnotherName) {
  set(self(), "1", "b");
  EXPECT_EQ(failure("a"), ENOENT);
}

TEST_F(Handed, NonsenseIsRefused) {
  for (const char* count : {"-1", "x", "1x", "99999999999999999999", "2000", ""}) {
    set(self(), count, "a");
    EXPECT_EQ(failure("a"), EINVAL) << count;
  }
  set(self(), "2", "a");
  EXPECT_EQ(failure("a"), EINVAL);
  set("12x", "1", "a");
  EXPECT_EQ(failure("a"), ENOENT);
}

TEST_F(Handed, SomethingThatIsNoListeningSocketIsRefused) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  EXPECT_EQ(NSXPCListener::initWithListeningDescriptor(pair[0]), nullptr);
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_EQ(NSXPCListener::initWithListeningDescriptor(-1), nullptr);
  EXPECT_EQ(errno, EBADF);
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST_F(Handed, TheNamedDescriptorIsTakenOnceAndIsCloseOnExec) {
  // Descriptors begin at 3, whatever this process has there: ours comes after as many others as
  // needed.
  const int place = ::fcntl(socket_, F_DUPFD, 40);
  ASSERT_GE(place, 40);
  std::string names;
  for (int i = 3; i < place; ++i) names += "other" + std::to_string(i) + ":";
  set(self(), std::to_string(place - 3 + 1), names + "mine");
  auto listener = NSXPCListener::initWithMachServiceName(str("mine"));
  ASSERT_NE(listener, nullptr);
  EXPECT_EQ(::fcntl(place, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(failure("mine"), EBUSY);
}

TEST_F(Handed, ADirectoryIsTakenOnceAndIsCloseOnExec) {
  const int directory = ::open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int place = ::fcntl(directory, F_DUPFD, 60);  // not the number used by the test above
  ::close(directory);
  ASSERT_GE(place, 60);
  std::string names;
  for (int i = 3; i < place; ++i) names += "other" + std::to_string(i) + ":";
  set(self(), std::to_string(place - 3 + 1), names + "root");
  EXPECT_EQ(xpc::takePassedDirectory("root"), place);
  EXPECT_EQ(::fcntl(place, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(xpc::takePassedDirectory("root"), -1);
  EXPECT_EQ(errno, EBUSY);
  ::close(place);
}
