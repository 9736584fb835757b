// SPDX-License-Identifier: Apache-2.0

// Both ends of the connection layer in one process, for tests: a protocol that both ends speak, an
// object that records what it receives, a service whose endpoint is a socket in the test's own
// directory, and a peer that sends raw bytes.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/NSXPCListener.h"
#include "platform/xpc/XPCTraits.h"
#include "tests/support/LogSink.h"
#include "tests/support/OneEndpoint.h"
#include "tests/support/TemporaryDirectory.h"

namespace testsupport {

inline constexpr std::chrono::seconds kPatience{20};

using Lines = std::vector<std::string>;

/// What has happened, in order; a test can wait for it.
class EventLog {
 public:
  void add(std::string line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    threads_.insert(std::this_thread::get_id());
    changed_.notify_all();
  }
  [[nodiscard]] Lines lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  [[nodiscard]] std::set<std::thread::id> threads() const {
    const std::lock_guard lock(mutex_);
    return threads_;
  }
  [[nodiscard]] std::size_t count(const std::string& line) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line));
  }
  [[nodiscard]] bool waitFor(const std::string& line, std::size_t times = 1) {
    return wait([&] {
      return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line)) >= times;
    });
  }
  [[nodiscard]] bool waitForEither(const std::string& one, const std::string& other) {
    return wait([&] {
      return std::any_of(lines_.begin(), lines_.end(),
                         [&](const std::string& line) { return line == one || line == other; });
    });
  }
  [[nodiscard]] bool waitForLines(std::size_t count) {
    return wait([&] { return lines_.size() >= count; });
  }

 private:
  template <class Condition>
  bool wait(const Condition& condition) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, condition);
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Lines lines_;
  std::set<std::thread::id> threads_;
};

/// What both ends export.
class Talk {
 public:
  static const platform::XPCProtocol& protocol();
  virtual ~Talk() = default;
  virtual void note(std::uint64_t number) = 0;
  virtual void data_tag(const std::shared_ptr<platform::NSData>& data, std::uint32_t tag) = 0;
  virtual void list(const std::shared_ptr<platform::NSArray>& list) = 0;
  virtual void echo_reply(const std::shared_ptr<platform::NSString>& text,
                          platform::XPCReply<const std::shared_ptr<platform::NSString>&> reply) = 0;
  /// Answered when the test of the receiving end decides.
  virtual void ask(platform::XPCReply<const std::shared_ptr<platform::NSError>&> reply) = 0;
};

using TalkMethods = platform::XPCMethodList<Talk, &Talk::note, &Talk::data_tag, &Talk::list,
                                            &Talk::echo_reply, &Talk::ask>;

class TalkProxy final : public Talk, platform::XPCProxy<TalkMethods> {
 public:
  using XPCProxy::XPCProxy;
  void note(std::uint64_t number) override { message<&Talk::note>(number); }
  void data_tag(const std::shared_ptr<platform::NSData>& data, std::uint32_t tag) override {
    message<&Talk::data_tag>(data, tag);
  }
  void list(const std::shared_ptr<platform::NSArray>& list) override { message<&Talk::list>(list); }
  void echo_reply(const std::shared_ptr<platform::NSString>& text,
                  platform::XPCReply<const std::shared_ptr<platform::NSString>&> reply) override {
    message<&Talk::echo_reply>(text, std::move(reply));
  }
  void ask(platform::XPCReply<const std::shared_ptr<platform::NSError>&> reply) override {
    message<&Talk::ask>(std::move(reply));
  }
};

inline const platform::XPCProtocol& Talk::protocol() {
  return platform::xpcProtocol<TalkMethods, TalkProxy>(
      "Talk", {"note:", "data:tag:", "list:", "echo:reply:", "ask:"});
}

using AskReply = platform::XPCReply<const std::shared_ptr<platform::NSError>&>;

/// Records what arrives; holds back the replies to ask().
class Talker final : public Talk {
 public:
  explicit Talker(EventLog& log) : log_(log) {}

  void note(std::uint64_t number) override {
    log_.add("note " + std::to_string(number));
    if (onNote) onNote(number);
  }
  void data_tag(const std::shared_ptr<platform::NSData>& data, std::uint32_t tag) override {
    if (onData) onData();
    log_.add("data " + std::to_string(data ? data->length() : 0) + " " + std::to_string(tag));
  }
  void list(const std::shared_ptr<platform::NSArray>& list) override {
    log_.add("list " + (list ? std::to_string(list->count()) : std::string("nil")));
  }
  void echo_reply(const std::shared_ptr<platform::NSString>& text,
                  platform::XPCReply<const std::shared_ptr<platform::NSString>&> reply) override {
    reply(text);
  }
  void ask(AskReply reply) override {
    {
      const std::lock_guard lock(mutex_);
      held_.push_back(std::move(reply));
    }
    log_.add("asked");
  }
  std::vector<AskReply> takeHeld() {
    const std::lock_guard lock(mutex_);
    return std::exchange(held_, {});
  }

  std::function<void(std::uint64_t)> onNote;  ///< set before anything can arrive, like the next
  std::function<void()> onData;

 private:
  EventLog& log_;
  std::mutex mutex_;
  std::vector<AskReply> held_;
};

/// Collects the platform's log lines of the test's process.
class LogCapture final {
 public:
  [[nodiscard]] Lines lines() const { return log_->lines(); }
  [[nodiscard]] std::size_t linesWith(const std::string& part) const {
    const Lines all = lines();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(),
        [&](const std::string& line) { return line.find(part) != std::string::npos; }));
  }

 private:
  std::shared_ptr<EventLog> log_ = std::make_shared<EventLog>();
  LogSink sink_{[log = log_](std::string_view text) { log->add(std::string(text)); }};
};

/// The layer remembers per name how often connections have ended, so each test uses a new name.
inline std::string freshServiceName() {
  static std::atomic<int> number{0};
  return "com.quillmar.test" + std::to_string(number.fetch_add(1));
}

[[nodiscard]] inline bool waitUntilNoConnectionIsLeft() {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (platform::liveConnectionCount() != 0) {  // no event to wait for
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

/// One end of a connection: the handle, the object that it exports and what has happened to both.
struct End {
  EventLog log;
  std::shared_ptr<Talker> talker = std::make_shared<Talker>(log);
  std::shared_ptr<platform::NSXPCConnection> connection;

  void configure(std::shared_ptr<platform::NSXPCConnection> made) {
    connection = std::move(made);
    connection->setExportedInterface(
        platform::NSXPCInterface::interfaceWithProtocol(Talk::protocol()));
    connection->setRemoteObjectInterface(
        platform::NSXPCInterface::interfaceWithProtocol(Talk::protocol()));
    connection->setExportedObject<Talk>(talker);
    connection->setInterruptionHandler([this] { log.add("interruption"); });
    connection->setInvalidationHandler([this] { log.add("invalidation"); });
  }
  [[nodiscard]] std::shared_ptr<Talk> proxy() {
    return connection->remoteObjectProxyWithErrorHandler<Talk>(
        [this](const std::shared_ptr<platform::NSError>& error) {
          log.add("error " + std::to_string(error->code()));
        });
  }
  /// Returns also a proxy whose messages wait in the batch.
  [[nodiscard]] std::pair<std::shared_ptr<platform::XPCMessageBatch>, std::shared_ptr<Talk>>
  batch() {
    auto made = connection->makeBatch();
    auto batched =
        made->proxyWithErrorHandler<Talk>([this](const std::shared_ptr<platform::NSError>& error) {
          log.add("error " + std::to_string(error->code()));
        });
    return {std::move(made), std::move(batched)};
  }
  void ask() {
    proxy()->ask([this](const std::shared_ptr<platform::NSError>& error) {
      log.add("reply " + (error ? std::to_string(error->code()) : std::string("nil")));
    });
  }
};

/// A listening service in this process that accepts into fresh ends.
class Service final : public platform::NSXPCListenerDelegate,
                      public std::enable_shared_from_this<Service> {
 public:
  static std::shared_ptr<Service> listen(const std::string& path,
                                         const platform::NSXPCListenerLimits& limits = {}) {
    const int descriptor = platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 512, 0600);
    if (descriptor < 0) throw std::runtime_error("no endpoint at " + path);
    return serve(descriptor, limits);
  }
  /// Takes over a listening socket, which may have waiting peers already.
  static std::shared_ptr<Service> serve(int descriptor,
                                        const platform::NSXPCListenerLimits& limits) {
    auto service = std::make_shared<Service>();
    service->listener_ = platform::NSXPCListener::initWithListeningDescriptor(descriptor);
    service->listener_->setLimits(limits);
    service->listener_->setDelegate(service);
    service->listener_->resume();
    return service;
  }
  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>&,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override {
    if (refuses.load()) return false;
    auto end = std::make_shared<End>();
    if (prepare) prepare(*end);
    end->configure(connection);
    connection->resume();
    const std::lock_guard lock(mutex_);
    ends_.push_back(std::move(end));
    changed_.notify_all();
    return true;
  }
  /// The accepted connection of that index.
  [[nodiscard]] std::shared_ptr<End> end(std::size_t index = 0) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kPatience, [&] { return ends_.size() > index; })) return nullptr;
    return ends_[index];
  }
  [[nodiscard]] std::size_t accepted() {
    const std::lock_guard lock(mutex_);
    return ends_.size();
  }
  void stopListening() { listener_->invalidate(); }
  void forgetDelegate() { listener_->setDelegate({}); }
  void stop() {
    if (listener_) listener_->invalidate();
    listener_.reset();
    const std::lock_guard lock(mutex_);
    for (const auto& end : ends_) {
      end->talker->takeHeld();
      end->connection.reset();
    }
  }

  std::atomic<bool> refuses{false};
  std::function<void(End&)> prepare;  ///< set before any client connects

 private:
  std::shared_ptr<platform::NSXPCListener> listener_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<End>> ends_;
};

/// A client end and a service end over a real socket. Anything left over at the end fails the test.
class XPCTest : public ::testing::Test {
 protected:
  XPCTest()
      : path_((directory_.path() / "service.sock").string()),
        endpoint_(std::make_shared<OneEndpoint>(name_, path_)),
        service_(Service::listen(path_)) {
    previous_ = platform::serviceEndpoints().exchange(endpoint_);
    client_.configure(makeConnection());
  }
  ~XPCTest() override {
    client_.talker->takeHeld();
    client_.connection.reset();
    service_->stop();
    EXPECT_TRUE(waitUntilNoConnectionIsLeft());
    platform::serviceEndpoints().exchange(previous_);
  }
  [[nodiscard]] std::shared_ptr<platform::NSXPCConnection> makeConnection() const {
    return platform::NSXPCConnection::initWithMachServiceName_options(platform::str(name_), 0);
  }
  /// Connects by sending a first message and waits until it has arrived.
  std::shared_ptr<End> connect(std::uint64_t first = 0, std::size_t index = 0) {
    client_.connection->resume();
    client_.proxy()->note(first);
    auto end = service_->end(index);
    EXPECT_TRUE(end && end->log.waitFor("note " + std::to_string(first)));
    return end;
  }

  TemporaryDirectory directory_;
  const std::string name_ = freshServiceName();
  const std::string path_;
  LogCapture logged_;
  std::shared_ptr<OneEndpoint> endpoint_;
  std::shared_ptr<Service> service_;
  End client_;

 private:
  std::shared_ptr<platform::ServiceEndpoints> previous_;
};

using Bytes = std::vector<std::uint8_t>;

/// A peer without the connection layer: a socket and bytes.
class RawPeer {
 public:
  explicit RawPeer(int descriptor) : descriptor_(descriptor) {}
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;
  ~RawPeer() { close(); }

  static int connectTo(const std::string& path) {
    return platform::connectUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC);
  }
  bool connect(const sockaddr_un& address) {
    return ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  bool send(const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t n = ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<std::size_t>(n);
    }
    return true;
  }
  /// Exactly `count` bytes; fewer at the end of the stream or on a timeout.
  Bytes receive(std::size_t count) {
    Bytes bytes(count);
    std::size_t got = 0;
    while (got < count) {
      pollfd watched{descriptor_, POLLIN, 0};
      if (::poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0)
        break;
      const ssize_t n = ::recv(descriptor_, bytes.data() + got, count - got, 0);
      if (n <= 0) break;
      got += static_cast<std::size_t>(n);
    }
    bytes.resize(got);
    return bytes;
  }
  /// A whole frame including its header; empty at the end of the stream.
  Bytes receiveFrame() {
    Bytes frame = receive(8);
    if (frame.size() < 8) return {};
    const std::size_t length =
        frame[0] | (frame[1] << 8U) | (frame[2] << 16U) | (std::size_t{frame[3]} << 24U);
    const Bytes body = receive(length);
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
  }
  /// Reads until the peer closes; returns whether it did.
  bool waitForEnd() {
    while (!receive(1).empty()) {
    }
    char byte = 0;
    return ::recv(descriptor_, &byte, 1, MSG_DONTWAIT) <= 0 && errno != EAGAIN;
  }
  void shutdownReading() { ::shutdown(descriptor_, SHUT_RD); }
  void close() {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
  }

 private:
  int descriptor_;
};

}  // namespace testsupport
