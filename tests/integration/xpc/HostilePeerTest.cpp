// SPDX-License-Identifier: Apache-2.0

// Peers that break the rules: each one ends its own connection and nothing else.
#include <fcntl.h>

#include <array>
#include <cstring>
#include <fstream>
#include <random>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/xpc/Hello.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/support/WireDocument.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

/// A real connection as client, a raw socket as service.
class HostileService : public ::testing::Test {
 protected:
  HostileService() : path_((directory_.path() / "service.sock").string()) {
    listening_ = listenUnixSocket(path_, SOCK_STREAM | SOCK_CLOEXEC, 16, 0600);
    renew();
  }
  ~HostileService() override {
    connection_.reset();
    peer_.reset();
    ::close(listening_);
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
    serviceEndpoints().exchange(previous_);
  }
  /// A client that has sent a stop message, and its service's end of the socket.
  void connect() {
    connection_->resume();
    proxy()->stopRoutingService();
    accept();
  }
  void accept() {
    const int accepted = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_GE(accepted, 0);
    peer_ = std::make_unique<RawPeer>(accepted);
  }
  /// Another client, to a service name without a history.
  void renew() {
    name_ = freshServiceName();
    auto endpoint = serviceEndpoints().exchange(std::make_shared<OneEndpoint>(name_, path_));
    if (!previous_) previous_ = std::move(endpoint);
    log_ = std::make_unique<EventLog>();
    connection_ = NSXPCConnection::initWithMachServiceName_options(str(name_), 0);
    const auto exported =
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
    exported->setClasses_forSelector_argumentIndex_ofReply(
        {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
        "receivedElementValues:", 0, false);
    connection_->setExportedInterface(exported);
    connection_->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    connection_->setExportedObject<WLHIDEventRouterClientProtocol>(receiver_);
    connection_->setInterruptionHandler([log = log_.get()] { log->add("interruption"); });
    connection_->setInvalidationHandler([log = log_.get()] { log->add("invalidation"); });
  }
  void finish() {
    connection_.reset();
    peer_.reset();
    ASSERT_TRUE(waitUntilNoConnectionIsLeft());
  }
  std::shared_ptr<WLHIDEventRouterProtocol> proxy() {
    return connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [log = log_.get()](const std::shared_ptr<NSError>& error) {
          log->add("error " + std::to_string(error->code()));
        });
  }

  struct Receiver final : WLHIDEventRouterClientProtocol {
    void receivedData_forReportID(const std::shared_ptr<NSData>& data,
                                  std::uint32_t reportID) override {
      log.add("data " + descriptionOf(data) + " " + std::to_string(reportID));
    }
    void receivedElementValues(const std::shared_ptr<NSArray>& values) override {
      log.add("values " + std::to_string(values->count()));
    }
    EventLog log;
  };

  TemporaryDirectory directory_;
  const std::string path_;
  std::string name_;
  LogCapture logged_;
  int listening_ = -1;
  std::shared_ptr<Receiver> receiver_ = std::make_shared<Receiver>();
  std::unique_ptr<EventLog> log_;
  std::shared_ptr<NSXPCConnection> connection_;
  std::unique_ptr<RawPeer> peer_;
  std::shared_ptr<ServiceEndpoints> previous_;
};

Bytes example(const std::string& name) {
  for (const WireExample& each : wireExamples()) {
    if (each.name == name) return each.bytes;
  }
  ADD_FAILURE() << "no example " << name;
  return {};
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::size_t residentKiB() {
  std::ifstream in("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  in >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace

TEST_F(HostileService, TheDocumentedFramesAreEnoughToServeAClient) {
  connect();
  EXPECT_EQ(peer_->receiveFrame(), example("hello-client"));
  EXPECT_EQ(peer_->receiveFrame(), example("stop-message"));
  ASSERT_TRUE(peer_->send(example("hello-router") + example("received-data") +
                          example("received-element-values")));
  ASSERT_TRUE(receiver_->log.waitFor("values 2"));
  EXPECT_EQ(receiver_->log.lines()[0], "data {length = 4, bytes = 0x0201ff00} 2");
  proxy()->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      0x100000abc, 0,
      NSDictionary::dictionaryWithEntries({{NSNumber::numberWithLongLong(65542), str("keys")}}),
      nullptr, [log = log_.get()](const std::shared_ptr<NSError>& error) {
        log->add("reply " + descriptionOf(error));
      });
  EXPECT_EQ(peer_->receiveFrame(), example("start-request"));
  ASSERT_TRUE(peer_->send(example("start-reply-success")));
  ASSERT_TRUE(log_->waitFor("reply (null)"));
  ASSERT_TRUE(peer_->send(example("farewell")));
  ASSERT_TRUE(log_->waitFor("invalidation"));
  EXPECT_TRUE(logged_.lines().empty());
}

TEST_F(HostileService, TheFarewellIsTheLastFrame) {
  connect();
  connection_->invalidate();
  EXPECT_EQ(peer_->receiveFrame(), example("hello-client"));
  EXPECT_EQ(peer_->receiveFrame(), example("stop-message"));
  EXPECT_EQ(peer_->receiveFrame(), example("farewell"));
  EXPECT_TRUE(peer_->waitForEnd());
  EXPECT_TRUE(log_->waitFor("invalidation"));
}

TEST_F(HostileService, RefusedFramesEndTheConnectionForTheReasonGiven) {
  std::size_t count = 0;
  for (const WireExample& each : wireExamples()) {
    if (each.kind != "frame" || each.verdict != "refused") continue;
    ++count;
    if (count > 1) renew();
    connect();
    ASSERT_TRUE(peer_->send(example("hello-router") + each.bytes));
    ASSERT_TRUE(log_->waitFor("invalidation")) << each.name;
    EXPECT_TRUE(peer_->waitForEnd()) << each.name;
    EXPECT_EQ(logged_.linesWith("connection to " + name_ + ": breach: " + each.reason), 1U)
        << each.name;
    finish();
  }
  EXPECT_GE(count, 12U);
}

TEST_F(HostileService, AStreamThatDoesNotBeginWithAHelloIsABreach) {
  connect();
  ASSERT_TRUE(peer_->send(example("received-data")));
  ASSERT_TRUE(log_->waitFor("invalidation"));
  EXPECT_EQ(logged_.linesWith("the first frame is not a hello"), 1U);
  EXPECT_TRUE(receiver_->log.lines().empty());
}

TEST_F(HostileService, AnotherProtocolIsABreach) {
  connect();
  ASSERT_TRUE(peer_->send(example("hello-client")));
  ASSERT_TRUE(log_->waitFor("invalidation"));
  EXPECT_EQ(logged_.linesWith(
                "the peer exports WLHIDEventRouterClientProtocol, not WLHIDEventRouterProtocol"),
            1U);
}

TEST_F(HostileService, AStreamThatEndsAnywhereWithoutAFarewellIsAnInterruption) {
  const Bytes all = example("hello-router") + example("received-data");
  for (std::size_t length = 0; length <= all.size(); ++length) {
    if (length > 0) renew();
    connect();
    peer_->receiveFrame();
    ASSERT_EQ(peer_->receiveFrame(), example("stop-message"));
    ASSERT_TRUE(peer_->send(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(length))));
    peer_->close();
    ASSERT_TRUE(log_->waitFor("interruption")) << length;
    EXPECT_EQ(log_->lines(), Lines({"interruption"}));
    finish();
  }
  EXPECT_EQ(receiver_->log.lines().size(), 1U);
}

TEST_F(HostileService, TheRestOfAHalfFrameDoesNotMeetTheNextStream) {
  const Bytes report = example("received-data");
  for (const std::size_t length :
       {std::size_t{3}, std::size_t{8}, std::size_t{12}, report.size() - 1}) {
    renew();
    connect();
    peer_->receiveFrame();
    ASSERT_EQ(peer_->receiveFrame(), example("stop-message"));
    ASSERT_TRUE(
        peer_->send(example("hello-router") +
                    Bytes(report.begin(), report.begin() + static_cast<std::ptrdiff_t>(length))));
    peer_->close();
    ASSERT_TRUE(log_->waitFor("interruption")) << length;
    proxy()->stopRoutingService();
    accept();
    ASSERT_TRUE(peer_->send(example("hello-router") + report + example("farewell")));
    ASSERT_TRUE(log_->waitFor("invalidation")) << length;
    EXPECT_EQ(log_->lines(), Lines({"interruption", "invalidation"}));
    finish();
  }
  EXPECT_EQ(receiver_->log.lines().size(), 4U);
  EXPECT_EQ(logged_.lines(), Lines());
}

TEST_F(HostileService, NamesInAHelloAreEscapedInTheLog) {
  connect();
  xpc::WireWriter hello;
  xpc::writeHello(hello, {xpc::kWireVersion, "\x1b[2J\nforged entry\xc2\x9b\xe2\x80\xae", ""});
  ASSERT_TRUE(peer_->send(Bytes(hello.bytes().begin(), hello.bytes().end())));
  ASSERT_TRUE(log_->waitFor("invalidation"));
  ASSERT_EQ(logged_.lines().size(), 1U);
  const std::string line = logged_.lines()[0];
  EXPECT_EQ(line.find_first_of("\x1b\n"), line.npos);
  EXPECT_EQ(line.find("\xc2\x9b"), line.npos);
  EXPECT_EQ(line.find("\xe2\x80\xae"), line.npos);
  EXPECT_NE(line.find("\\x1b[2J"), line.npos);
}

TEST_F(HostileService, BytesThatComeSinglyAreAFrameAllTheSame) {
  connect();
  for (const std::uint8_t byte : example("hello-router") + example("received-data"))
    ASSERT_TRUE(peer_->send({byte}));
  EXPECT_TRUE(receiver_->log.waitForLines(1));
}

TEST_F(HostileService, AnAnnouncedLengthAllocatesNothing) {
  connect();
  ASSERT_TRUE(peer_->send(example("hello-router") + example("received-data")));
  ASSERT_TRUE(receiver_->log.waitForLines(1));
  const std::size_t before = residentKiB();
  ASSERT_TRUE(peer_->send({0xF8, 0xFF, 0xFF, 0x00, 2, 0, 0, 0, 1}));
  proxy()->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      1, 0, nullptr, nullptr, {});
  while (peer_->receiveFrame().size() !=
         8 + 8 + 8 + 8 + 2) {  // the request has arrived, so the thread is running
  }
  EXPECT_LT(residentKiB(), before + 1024);
}

TEST_F(HostileService, APeerThatTakesNothingMoreButStaysIsLost) {
  connect();
  peer_->shutdownReading();
  for (int i = 0; i < 10; ++i) proxy()->stopRoutingService();
  EXPECT_TRUE(log_->waitFor("interruption"));
}

TEST_F(HostileService, ChangedBytesOfAWholeSessionNeverDoMoreThanEndIt) {
  const Bytes session = example("hello-router") + example("received-data") +
                        example("received-element-values") + example("received-data");
  std::mt19937 random(20261121);  // the same bytes in every run
  for (int round = 0; round < 150; ++round) {
    if (round > 0) renew();
    Bytes changed(session);
    for (int i = 0; i <= round % 4; ++i) {
      changed[random() % changed.size()] ^= static_cast<std::uint8_t>(1U << (random() % 8));
    }
    connect();
    ASSERT_TRUE(peer_->send(changed));
    peer_->close();
    ASSERT_TRUE(log_->waitForEither("interruption", "invalidation"));
    finish();
  }
}

namespace {

class HostileClient : public XPCTest {};

Bytes hello() {
  Bytes bytes{16, 0, 0, 0,   1,   0,   0,   0, 'W', 'L', 'H', 'X',
              2,  0, 4, 'T', 'a', 'l', 'k', 4, 'T', 'a', 'l', 'k'};
  return bytes;
}

bool sendWithDescriptor(int socket, Bytes bytes, int descriptor) {
  iovec content{bytes.data(), bytes.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
  msghdr message{};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  return ::sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

TEST_F(HostileClient, EndsItsOwnConnectionOnly) {
  const auto good = connect();
  RawPeer peer(RawPeer::connectTo(path_));
  ASSERT_TRUE(peer.send(hello() + Bytes{0, 0, 0, 0, 99, 0, 0, 0}));
  const auto bad = service_->end(1);
  ASSERT_TRUE(bad && bad->log.waitFor("invalidation"));
  EXPECT_TRUE(peer.waitForEnd());
  client_.proxy()->note(5);
  EXPECT_TRUE(good->log.waitFor("note 5"));
}

/// As long as somebody has the writing end of the pipe, its reading end does not see the end.
TEST_F(HostileClient, DescriptorsThatItSendsAreNotKept) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  const int socket = RawPeer::connectTo(path_);
  RawPeer peer(socket);
  ASSERT_TRUE(sendWithDescriptor(socket, hello(), pipe[1]));
  ::close(pipe[1]);
  pollfd end{pipe[0], POLLIN, 0};
  ASSERT_EQ(::poll(&end, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())), 1);
  EXPECT_EQ(end.revents, POLLHUP);
  ::close(pipe[0]);
  ASSERT_TRUE(peer.send({0, 0, 0, 0, 99, 0, 0, 0}));  // it was heard all the same
  EXPECT_TRUE(peer.waitForEnd());
}

TEST_F(HostileClient, ThatAsksWithoutReadingTheAnswersIsEnded) {
  RawPeer peer(RawPeer::connectTo(path_));
  ASSERT_TRUE(peer.send(hello()));
  Bytes text(1 << 20, 'x');
  for (std::uint64_t id = 1; id < 200; ++id) {
    Bytes request;
    const std::uint32_t length = 8 + 6 + static_cast<std::uint32_t>(text.size());
    for (int i = 0; i < 4; ++i) request.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
    request = request + Bytes{3, 0, 3, 0};
    for (int i = 0; i < 8; ++i) request.push_back(static_cast<std::uint8_t>(id >> (8 * i)));
    request = request + Bytes{2, 0xFF};
    for (int i = 0; i < 4; ++i)
      request.push_back(static_cast<std::uint8_t>(text.size() >> (8 * i)));
    if (!peer.send(request + text)) break;  // ended while we were still sending
  }
  const auto end = service_->end();
  ASSERT_TRUE(end && end->log.waitFor("invalidation"));
  EXPECT_EQ(logged_.linesWith("replies to the peer can no longer be queued"), 1U);
}
