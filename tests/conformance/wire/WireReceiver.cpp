// SPDX-License-Identifier: Apache-2.0

#include "tests/conformance/wire/WireReceiver.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "platform/xpc/ConnectionHandle.h"
#include "router-client/WLHIDDeviceDirectoryProtocols.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/conformance/wire/WireJudge.h"
#include "tests/support/LogSink.h"

namespace conformance {
namespace {

using namespace platform;

constexpr std::chrono::seconds kPatience{20};

class Record {
 public:
  void add(std::string event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }
  void end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }
  std::vector<std::string> waitForEnd() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kPatience, [&] { return ended_; }))
      throw std::runtime_error("the connection did not end");
    return events_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
  bool ended_ = false;
};

/// Translates a line of the layer's log into the judge's words; empty if it is not an event.
std::string eventOfLog(std::string_view line) {
  constexpr std::string_view kBreach = "accepted connection: breach: ";
  constexpr std::string_view kNotAdmitted = " is not admitted";
  if (line.starts_with(kBreach)) return "breach " + std::string(line.substr(kBreach.size()));
  if (line.find("no object is exported") != line.npos) return {};
  const auto end = line.find(kNotAdmitted);
  const auto start = line.rfind(": ", end);
  if (end == line.npos || start == line.npos) return "log " + std::string(line);
  return "refused " + std::string(line.substr(start + 2, end - start - 2));
}

template <class... V>
std::string encoded(V... values) {
  XPCValues packed;
  (packed.append(XPCValue(std::move(values))), ...);
  xpc::WireWriter writer;
  xpc::encodeValues(writer, packed);
  return digest(writer.bytes());
}

using Object = std::shared_ptr<NSObject>;

/// Exported by all kinds of ends; encodes what arrives again.
class Exported final : public WLHIDEventRouterClientProtocol,
                       public WLHIDEventRouterProtocol,
                       public WLHIDDeviceDirectoryProtocol,
                       public WLHIDDeviceDirectoryClientProtocol {
 public:
  explicit Exported(std::shared_ptr<Record> record) : record_(std::move(record)) {}
  void receivedData_forReportID(const std::shared_ptr<NSData>& data,
                                std::uint32_t reportID) override {
    record_->add("call 0 " + encoded(Object(data), reportID));
  }
  void receivedElementValues(const std::shared_ptr<NSArray>& values) override {
    record_->add("call 1 " + encoded(Object(values)));
  }
  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode, const std::shared_ptr<NSDictionary>& tags,
      const std::shared_ptr<NSDictionary>& types, StartReply reply) override {
    record_->add("call 0 " + encoded(entryID, deviceMode, Object(tags), Object(types)));
    reply(nullptr);
  }
  void stopRoutingService() override { record_->add("call 1 "); }
  void watchDevicesMatching_excluding_reply(const std::shared_ptr<NSArray>& matching,
                                            const std::shared_ptr<NSArray>& excluding,
                                            WatchReply reply) override {
    record_->add("call 0 " + encoded(Object(matching), Object(excluding)));
    reply(nullptr, nullptr);
  }
  void reportDescriptorOfDevice_reply(std::uint64_t entryID, DescriptorReply reply) override {
    record_->add("call 1 " + encoded(entryID));
    reply(nullptr, nullptr);
  }
  void deviceArrived(const std::shared_ptr<NSDictionary>& device) override {
    record_->add("call 0 " + encoded(Object(device)));
  }
  void deviceChanged(const std::shared_ptr<NSDictionary>& device) override {
    record_->add("call 1 " + encoded(Object(device)));
  }
  void deviceDeparted(std::uint64_t entryID) override {
    record_->add("call 2 " + encoded(entryID));
  }

 private:
  const std::shared_ptr<Record> record_;
};

constexpr std::string_view kStart =
    "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";

NSClassSet startErrorClasses() {
  return {&NSData::classObject(),  &NSArray::classObject(),  &NSNumber::classObject(),
          &NSError::classObject(), &NSString::classObject(), &NSDictionary::classObject(),
          &NSDate::classObject(),  &NSURL::classObject(),    &KQIOObject::classObject()};
}

std::shared_ptr<NSXPCInterface> clientInterface() {
  auto interface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
  interface->setClasses_forSelector_argumentIndex_ofReply(
      {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
      "receivedElementValues:", 0, false);
  return interface;
}

std::shared_ptr<NSXPCInterface> routerInterface() {
  auto interface = NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  NSClassSet all = startErrorClasses();
  all.push_back(&KQHIDDeviceElementValue::classObject());
  for (const std::size_t argument : {2U, 3U})
    interface->setClasses_forSelector_argumentIndex_ofReply(all, kStart, argument, false);
  interface->setClasses_forSelector_argumentIndex_ofReply(startErrorClasses(), kStart, 0, true);
  return interface;
}

/// With the classes that are admitted by default, as both ends of the device directory have it.
template <class Protocol>
std::shared_ptr<NSXPCInterface> plainInterface() {
  return NSXPCInterface::interfaceWithProtocol(Protocol::protocol());
}

class ReceivingEnd {
 public:
  ReceivingEnd(Receiver receiver, int socket)
      : connection_(
            std::make_shared<xpc::ConnectionHandle>(xpc::ConnectionCore::accepted(socket))) {
    connection_->setInvalidationHandler([record = record_] { record->end(); });
    switch (receiver) {
      case Receiver::Client:
      case Receiver::ClientFirst:
        exportAs<WLHIDEventRouterClientProtocol>(clientInterface(), routerInterface());
        askToStart();
        break;
      case Receiver::Router:
      case Receiver::RouterFirst:
        exportAs<WLHIDEventRouterProtocol>(routerInterface(), clientInterface());
        break;
      case Receiver::Directory:
        exportAs<WLHIDDeviceDirectoryProtocol>(
            plainInterface<WLHIDDeviceDirectoryProtocol>(),
            plainInterface<WLHIDDeviceDirectoryClientProtocol>());
        break;
      case Receiver::Watcher:
        exportAs<WLHIDDeviceDirectoryClientProtocol>(
            plainInterface<WLHIDDeviceDirectoryClientProtocol>(),
            plainInterface<WLHIDDeviceDirectoryProtocol>());
        askToWatch();
        break;
      case Receiver::BareFirst:
        break;
    }
    connection_->resume();
  }
  [[nodiscard]] const std::shared_ptr<Record>& record() const { return record_; }

 private:
  template <class Protocol>
  void exportAs(std::shared_ptr<NSXPCInterface> exported, std::shared_ptr<NSXPCInterface> remote) {
    connection_->setExportedInterface(std::move(exported));
    connection_->setRemoteObjectInterface(std::move(remote));
    NSXPCConnection& connection = *connection_;
    connection.setExportedObject<Protocol>(exported_);
  }
  /// For request 1.
  template <class Protocol>
  std::shared_ptr<Protocol> proxy() {
    return connection_->remoteObjectProxyWithErrorHandler<Protocol>(
        [record = record_](const std::shared_ptr<NSError>& error) {
          record->add("error " + std::to_string(error->code()));
        });
  }
  void askToStart() {
    proxy<WLHIDEventRouterProtocol>()
        ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
            5, 0, nullptr, nullptr, [record = record_](const std::shared_ptr<NSError>& error) {
              record->add("reply " + encoded(Object(error)));
            });
  }
  void askToWatch() {
    proxy<WLHIDDeviceDirectoryProtocol>()->watchDevicesMatching_excluding_reply(
        nullptr, nullptr,
        [record = record_](const std::shared_ptr<NSArray>& devices,
                           const std::shared_ptr<NSError>& error) {
          record->add("reply " + encoded(Object(devices), Object(error)));
        });
  }

  const std::shared_ptr<Record> record_ = std::make_shared<Record>();
  const std::shared_ptr<Exported> exported_ = std::make_shared<Exported>(record_);
  const std::shared_ptr<xpc::ConnectionHandle> connection_;
};

/// False if the receiver ended the connection before everything was sent.
bool sendAll(int socket, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

Bytes receiveAll(int socket) {
  Bytes all;
  std::uint8_t part[4096];
  for (ssize_t count = 0; (count = ::recv(socket, part, sizeof part, 0)) > 0;)
    all.insert(all.end(), part, part + count);
  return all;
}

std::uint64_t littleEndian(std::span<const std::uint8_t> bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8U | bytes[i];
  return value;
}

/// The replies in a stream written by the layer.
std::vector<std::string> answersIn(std::span<const std::uint8_t> stream) {
  std::vector<std::string> answers;
  while (stream.size() >= 8) {
    const std::size_t length = littleEndian(stream.first(4));
    const std::uint8_t kind = stream[4];
    if (stream.size() - 8 < length) throw std::runtime_error("the layer wrote an incomplete frame");
    if (kind == 4 || kind == 5)
      answers.push_back((kind == 4 ? "reply " : "dropped ") +
                        std::to_string(littleEndian(stream.subspan(8, 8))));
    stream = stream.subspan(8 + length);
  }
  return answers;
}

}  // namespace

Observation observe(Receiver receiver, std::span<const std::uint8_t> bytes) {
  int sockets[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
    throw std::runtime_error("cannot create a socket pair");
  const std::shared_ptr<int> ours(&sockets[1], [](const int* socket) { ::close(*socket); });
  Observation result;
  {
    const ReceivingEnd end(receiver, sockets[0]);
    const testsupport::LogSink sink([record = end.record()](std::string_view line) {
      if (std::string event = eventOfLog(line); !event.empty()) record->add(std::move(event));
    });
    if (sendAll(*ours, prelude(receiver))) static_cast<void>(sendAll(*ours, bytes));
    ::shutdown(*ours, SHUT_WR);
    result.events = end.record()->waitForEnd();
  }
  result.answers = answersIn(receiveAll(*ours));
  return result;
}

}  // namespace conformance
