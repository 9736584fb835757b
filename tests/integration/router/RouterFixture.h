// SPDX-License-Identifier: Apache-2.0

// A router on its own socket, in this process, and clients that record what they receive.
//
// Threading: run from the test's thread; clients are called on their connections' queues. Every
//   wait is bounded.
// Ownership: the fixture installs its endpoints and removes them again.
// Order: a client's lines are in the order in which it received things.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "platform/foundation/Format.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/NSXPCListener.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/Router.h"
#include "tests/support/OneEndpoint.h"
#include "tests/support/RouterStatusWait.h"
#include "tests/support/TemporaryDirectory.h"

namespace routertest {

inline constexpr std::chrono::seconds kPatience{30};

using Lines = std::vector<std::string>;

inline constexpr const char* kThreeReports = "E: 0.0 3 07 02 ff\n"
                                             "E: 0.1 2 07 01\n"
                                             "E: 0.2 2 09 55\n";

/// Lines that several threads add and one waits for.
class LineLog {
 public:
  void add(std::string line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    changed_.notify_all();
  }
  [[nodiscard]] Lines lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  [[nodiscard]] std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return lines_.size();
  }
  /// The lines once there are `count`; fails if they do not come.
  Lines await(std::size_t count) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, kPatience, [&] { return lines_.size() >= count; });
    EXPECT_TRUE(came) << "only " << lines_.size() << " of " << count << " lines came";
    return lines_;
  }
  /// Waits for a line that contains `part`.
  void awaitLine(const std::string& part) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, kPatience, [&] {
      return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
      });
    });
    EXPECT_TRUE(came) << "no line with \"" << part
                      << "\" came; the last: " << (lines_.empty() ? std::string() : lines_.back());
  }
  /// Waits until the last line contains `part`.
  void awaitLast(const std::string& part) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, kPatience, [&] {
      return !lines_.empty() && lines_.back().find(part) != std::string::npos;
    });
    EXPECT_TRUE(came) << "the last line is " << (lines_.empty() ? std::string() : lines_.back());
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Lines lines_;
};

/// What a client exports: records each delivery, as "data 7 07 02 ff" and "values 9/1=0 9/2=1".
class NotingReceiver final : public WLHIDEventRouterClientProtocol {
 public:
  explicit NotingReceiver(LineLog* log) : log_(log) {}

  void receivedData_forReportID(const std::shared_ptr<platform::NSData>& data,
                                std::uint32_t reportID) override {
    waitWhileHeld();
    if (isBrief_) return log_->add("data");
    std::string line = "data " + std::to_string(reportID);
    for (const std::uint8_t byte : data->span()) line += platform::stringWithFormat(" %02x", byte);
    log_->add(line);
  }
  void receivedElementValues(const std::shared_ptr<platform::NSArray>& values) override {
    waitWhileHeld();
    if (isBrief_) return;
    std::string line = "values";
    values->enumerateObjects([&](const std::shared_ptr<platform::NSObject>& member) {
      const auto value = platform::objectCast<platform::KQHIDDeviceElementValue>(member);
      line += platform::stringWithFormat(" %u/%u=%lld", value->hidUsagePage(), value->hidUsage(),
                                         value->integerValue());
    });
    log_->add(line);
  }

  /// Records only that a report came.
  void beBrief() { isBrief_ = true; }
  /// Blocks the connection's queue until release().
  void hold() {
    const std::lock_guard lock(mutex_);
    isHeld_ = true;
  }
  void release() {
    const std::lock_guard lock(mutex_);
    isHeld_ = false;
    changed_.notify_all();
  }

 private:
  void waitWhileHeld() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !isHeld_; });
  }
  LineLog* const log_;
  std::atomic<bool> isBrief_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isHeld_ = false;
};

class Client {
 public:
  Client()
      : connection_(platform::NSXPCConnection::initWithMachServiceName_options(
            platform::str(WLHIDEventRouterLabel), 0)) {
    auto exported =
        platform::NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
    exported->setClasses_forSelector_argumentIndex_ofReply(
        {&platform::NSMutableArray::classObject(),
         &platform::KQHIDDeviceElementValue::classObject()},
        "receivedElementValues:", 0, false);
    connection_->setExportedInterface(exported);
    connection_->setExportedObject<WLHIDEventRouterClientProtocol>(receiver);
    auto remote =
        platform::NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
    remote->setClasses_forSelector_argumentIndex_ofReply(
        {&platform::NSData::classObject(), &platform::NSArray::classObject(),
         &platform::NSNumber::classObject(), &platform::NSError::classObject(),
         &platform::NSString::classObject(), &platform::NSDictionary::classObject(),
         &platform::NSDate::classObject(), &platform::NSURL::classObject(),
         &platform::KQIOObject::classObject()},
        "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:", 0, true);
    connection_->setRemoteObjectInterface(remote);
    connection_->setInterruptionHandler([log = log] { log->add("interrupted"); });
    connection_->setInvalidationHandler([log = log] { log->add("invalidated"); });
    connection_->resume();
    router_ = connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [log = log](const std::shared_ptr<platform::NSError>& error) {
          log->add("error " + std::to_string(error->code()));
        });
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    receiver->release();
    connection_->invalidate();
  }

  /// The reply becomes the line "started" or "refused <code> <description>".
  void start(
      std::uint64_t device, std::uint64_t mode = 0,
      const std::shared_ptr<platform::NSDictionary>& tags = platform::NSDictionary::dictionary()) {
    request(device, mode, tags, platform::NSDictionary::dictionary());
  }
  void startWith(std::uint64_t device, const std::shared_ptr<platform::NSDictionary>& tags,
                 const std::shared_ptr<platform::NSDictionary>& types) {
    request(device, 0, tags, types);
  }
  void stop() { router_->stopRoutingService(); }
  void leave() { connection_->invalidate(); }

  const std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  const std::shared_ptr<NotingReceiver> receiver = std::make_shared<NotingReceiver>(log.get());

 private:
  void request(std::uint64_t device, std::uint64_t mode,
               const std::shared_ptr<platform::NSDictionary>& tags,
               const std::shared_ptr<platform::NSDictionary>& types) {
    router_->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        device, mode, tags, types, [log = log](const auto& error) {
          if (error == nullptr) return log->add("started");
          const auto text = error->userInfo()->objectForKey(platform::NSLocalizedDescriptionKey);
          log->add("refused " + std::to_string(error->code()) + " " +
                   platform::descriptionOf(text));
        });
  }
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  std::shared_ptr<WLHIDEventRouterProtocol> router_;
};

class RouterFixture : public testing::Test {
 protected:
  void SetUp() override {
    previous_ = platform::serviceEndpoints().exchange(std::make_shared<testsupport::OneEndpoint>(
        WLHIDEventRouterLabel, (directory_ / "router.sock").string()));
  }
  void TearDown() override {
    router_.reset();
    platform::serviceEndpoints().exchange(previous_);
  }

  [[nodiscard]] platform::SystemRoot root() const { return platform::SystemRoot(directory_); }
  [[nodiscard]] int listen() const {
    const int socket =
        platform::listenUnixSocket((directory_ / "router.sock").string(),
                                   SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 64, 0600);
    EXPECT_GE(socket, 0);
    return socket;
  }
  void startRouter(std::chrono::milliseconds idleLimit = std::chrono::hours(1),
                   const router::RouterLimits& limits = {}) {
    router::RouterOptions options;
    options.idleLimit = idleLimit;
    options.limits = limits;
    options.authority = authority_;
    options.log = [log = routerLog_](std::string_view line) { log->add(std::string(line)); };
    router_ = std::make_unique<router::Router>(
        root(), platform::NSXPCListener::initWithListeningDescriptor(listen()), options);
    router_->resume();
  }

  /// A device that plays `text`. If that has no descriptor, it gets one with two buttons and X in
  /// report 7.
  std::uint64_t addDevice(const std::string& name, const std::string& text,
                          const std::string& speed = "max", bool repeat = false) {
    const auto path = directory_ / (name + ".hid");
    std::ofstream(path) << (text.find("R:") == std::string::npos ? kDescriptor : "") << text;
    return addRecording(name, path, speed, repeat);
  }
  /// Adds `count` devices with three reports each.
  std::vector<std::uint64_t> addMice(int count) {
    std::vector<std::uint64_t> ids;
    for (int i = 0; i < count; ++i)
      ids.push_back(addDevice("mouse" + std::to_string(i), kThreeReports));
    return ids;
  }
  std::uint64_t addRecording(const std::string& name, const std::filesystem::path& recording,
                             const std::string& speed, bool repeat) {
    router::ReplayDevice device;
    device.configuration = name;
    device.recording = recording;
    device.speed = *router::ReplaySpeed::parse(speed);
    device.repeat = repeat;
    return router::addReplayDevice(root(), device);
  }

  /// The copy that such a device plays.
  [[nodiscard]] std::filesystem::path copyOf(const std::string& name) const {
    return directory_ / "etc/hideventrouter/recordings" / (name + ".hid");
  }

  /// Waits until the router's status is as wanted.
  router::RouterStatus awaitStatus(
      const std::function<bool(const router::RouterStatus&)>& isWanted) {
    return testsupport::awaitRouterStatus(root(), kPatience, isWanted);
  }

  static constexpr const char* kDescriptor =
      "R: 38 85 07 05 09 19 01 29 02 15 00 25 01 75 01 95 02 81 02 75 06 95 01 81 03"
      " 05 01 09 30 15 81 25 7f 75 08 95 01 81 06\nN: Mouse\nI: 3 0001 0002\n";

  const testsupport::TemporaryDirectory temporary_;
  const std::filesystem::path& directory_ = temporary_.path();
  std::shared_ptr<LineLog> routerLog_ = std::make_shared<LineLog>();
  std::shared_ptr<router::RoutingAuthority> authority_;  // set it before the router starts
  std::unique_ptr<router::Router> router_;

 private:
  std::shared_ptr<platform::ServiceEndpoints> previous_;
};

}  // namespace routertest
