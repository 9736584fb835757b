#include "router-client/WLHIDEventRouterProtocols.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "platform/xpc/NSXPCConnection.h"

namespace {

using platform::NSArray;
using platform::NSData;
using platform::NSDictionary;
using platform::NSError;
using platform::NSObject;
using platform::XPCArgument;
using platform::XPCArgumentKind;
using platform::XPCMessageSink;
using platform::XPCMethod;
using platform::XPCProtocol;
using platform::XPCReplySender;
using platform::XPCValues;

enum RouterMethod : std::size_t { kStartRouting, kStopRouting };
enum ClientMethod : std::size_t { kReceivedData, kReceivedElementValues };

/// The argument as a `T`, or null where there is none. The allow-lists admit subclasses, so this
/// asks the class object and leaves C++ run-time type information, which costs several times as
/// much, alone.
template <class T>
std::shared_ptr<T> object(const XPCValues& values, std::size_t index) {
  const auto& value = std::get<std::shared_ptr<NSObject>>(values.values.at(index));
  if (!value || !value->isKindOfClass(T::classObject())) return nullptr;
  return std::static_pointer_cast<T>(value);
}

template <class Number>
Number number(const XPCValues& values, std::size_t index) {
  return std::get<Number>(values.values.at(index));
}

template <class... Arguments>
XPCValues pack(Arguments&&... arguments) {
  XPCValues values;
  (values.append(std::forward<Arguments>(arguments)), ...);
  return values;
}

[[noreturn]] void throwUnknownMethod(const XPCProtocol& protocol) {
  throw std::invalid_argument(std::string(protocol.name) + " has no method of that number");
}

// -------------------------------------------------------------------------------------
// WLHIDEventRouterProtocol

void invokeStart(WLHIDEventRouterProtocol& router, const XPCValues& arguments,
                 const XPCReplySender& reply) {
  router.startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      number<std::uint64_t>(arguments, 0), number<std::uint64_t>(arguments, 1),
      object<NSDictionary>(arguments, 2), object<NSDictionary>(arguments, 3),
      [reply](const std::shared_ptr<NSError>& error) {
        if (reply) reply(pack(std::shared_ptr<NSObject>(error)));
      });
}

void invokeRouter(void* receiver, std::size_t method, const XPCValues& arguments,
                  const XPCReplySender& reply) {
  auto& router = *static_cast<WLHIDEventRouterProtocol*>(receiver);
  switch (method) {
    case kStartRouting:
      return invokeStart(router, arguments, reply);
    case kStopRouting:
      return router.stopRoutingService();
    default:
      throwUnknownMethod(WLHIDEventRouterProtocol::protocol());
  }
}

/// The answer to a start request. The reply's allow-list is wider than NSError, for what an error
/// may carry; an answer that is itself one of those other classes is an error too, and must not
/// pass for the null that means success.
std::shared_ptr<NSError> startError(const XPCValues& values) {
  const auto& answer = std::get<std::shared_ptr<NSObject>>(values.values.at(0));
  if (!answer || answer->isKindOfClass(NSError::classObject())) return object<NSError>(values, 0);
  return NSError::errorWithDomain_code_userInfo(platform::str(platform::NSCocoaErrorDomain),
                                                platform::NSXPCConnectionReplyInvalid, nullptr);
}

class RouterProxy final : public WLHIDEventRouterProtocol {
 public:
  explicit RouterProxy(std::shared_ptr<XPCMessageSink> sink) : sink_(std::move(sink)) {}

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t entryID, std::uint64_t deviceMode,
      const std::shared_ptr<NSDictionary>& tagDictionary,
      const std::shared_ptr<NSDictionary>& typeDictionary, StartReply reply) override {
    sink_->send(kStartRouting,
                pack(entryID, deviceMode, std::shared_ptr<NSObject>(tagDictionary),
                     std::shared_ptr<NSObject>(typeDictionary)),
                [reply = std::move(reply)](const XPCValues& values) {
                  if (reply) reply(startError(values));
                });
  }
  void stopRoutingService() override { sink_->send(kStopRouting, {}, nullptr); }

 private:
  const std::shared_ptr<XPCMessageSink> sink_;
};

// -------------------------------------------------------------------------------
// WLHIDEventRouterClientProtocol

void invokeClient(void* receiver, std::size_t method, const XPCValues& arguments,
                  const XPCReplySender&) {
  auto& client = *static_cast<WLHIDEventRouterClientProtocol*>(receiver);
  switch (method) {
    case kReceivedData:
      return client.receivedData_forReportID(object<NSData>(arguments, 0),
                                             number<std::uint32_t>(arguments, 1));
    case kReceivedElementValues:
      return client.receivedElementValues(object<NSArray>(arguments, 0));
    default:
      throwUnknownMethod(WLHIDEventRouterClientProtocol::protocol());
  }
}

class ClientProxy final : public WLHIDEventRouterClientProtocol {
 public:
  explicit ClientProxy(std::shared_ptr<XPCMessageSink> sink) : sink_(std::move(sink)) {}

  void receivedData_forReportID(const std::shared_ptr<NSData>& data,
                                std::uint32_t reportID) override {
    sink_->send(kReceivedData, pack(std::shared_ptr<NSObject>(data), reportID), nullptr);
  }
  void receivedElementValues(const std::shared_ptr<NSArray>& elementValues) override {
    sink_->send(kReceivedElementValues, pack(std::shared_ptr<NSObject>(elementValues)), nullptr);
  }

 private:
  const std::shared_ptr<XPCMessageSink> sink_;
};

template <class Proxy, class Protocol>
std::shared_ptr<void> makeProxy(std::shared_ptr<XPCMessageSink> sink) {
  // The layer hands the pointer out as the protocol's own class, so that is what it must point to.
  const std::shared_ptr<Protocol> proxy = std::make_shared<Proxy>(std::move(sink));
  return proxy;
}

}  // namespace

const XPCProtocol& WLHIDEventRouterProtocol::protocol() {
  static const std::array<XPCArgument, 4> startArguments{{
      {XPCArgumentKind::UInt64, nullptr},
      {XPCArgumentKind::UInt64, nullptr},
      {XPCArgumentKind::Object, &NSDictionary::classObject()},
      {XPCArgumentKind::Object, &NSDictionary::classObject()},
  }};
  static const std::array<XPCArgument, 1> startReply{
      {{XPCArgumentKind::Object, &NSError::classObject()}}};
  static const std::array<XPCMethod, 2> methods{{
      {"startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:",
       startArguments, true, startReply},
      {"stopRoutingService", {}, false, {}},
  }};
  static const XPCProtocol protocol{"WLHIDEventRouterProtocol", methods, &invokeRouter,
                                    &makeProxy<RouterProxy, WLHIDEventRouterProtocol>};
  return protocol;
}

const XPCProtocol& WLHIDEventRouterClientProtocol::protocol() {
  static const std::array<XPCArgument, 2> dataArguments{{
      {XPCArgumentKind::Object, &NSData::classObject()},
      {XPCArgumentKind::UInt32, nullptr},
  }};
  static const std::array<XPCArgument, 1> elementArguments{
      {{XPCArgumentKind::Object, &NSArray::classObject()}}};
  static const std::array<XPCMethod, 2> methods{{
      {"receivedData:forReportID:", dataArguments, false, {}},
      {"receivedElementValues:", elementArguments, false, {}},
  }};
  static const XPCProtocol protocol{"WLHIDEventRouterClientProtocol", methods, &invokeClient,
                                    &makeProxy<ClientProxy, WLHIDEventRouterClientProtocol>};
  return protocol;
}
