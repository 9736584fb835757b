// SPDX-License-Identifier: Apache-2.0

// Feeds a stream to a connection's frame receiver: headers, hello, calls of the two protocols,
// replies to the start request. Whatever is accepted must encode to the same bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/foundation/NSArray.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/xpc/FrameReceiver.h"
#include "platform/xpc/Hello.h"
#include "platform/xpc/InterfaceTable.h"
#include "router-client/WLHIDEventRouterProtocols.h"

using namespace platform;
using namespace platform::xpc;

namespace {

using Bytes = std::span<const std::uint8_t>;

void require(bool condition) {
  if (!condition) std::abort();
}

const InterfaceTable& clientTable() {
  static const auto* const table = [] {
    auto interface = std::make_shared<NSXPCInterface>(WLHIDEventRouterClientProtocol::protocol());
    interface->setClasses_forSelector_argumentIndex_ofReply(
        {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
        "receivedElementValues:", 0, false);
    return new InterfaceTable(std::move(interface));
  }();
  return *table;
}

/// Admits every class wherever the start request and its reply carry objects.
const InterfaceTable& routerTable() {
  static const auto* const table = [] {
    constexpr std::string_view kStart =
        "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";
    const NSClassSet all = {&NSObject::classObject()};
    auto interface = std::make_shared<NSXPCInterface>(WLHIDEventRouterProtocol::protocol());
    for (const std::size_t argument : {2U, 3U})
      interface->setClasses_forSelector_argumentIndex_ofReply(all, kStart, argument, false);
    interface->setClasses_forSelector_argumentIndex_ofReply(all, kStart, 0, true);
    return new InterfaceTable(std::move(interface));
  }();
  return *table;
}

bool areEqual(Bytes a, Bytes b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void requireSameWritten(const ValuesResult& result, const XPCValues& values, Bytes encoded) {
  if (result.verdict != DecodeVerdict::Accepted) return;
  WireWriter writer;
  encodeValues(writer, values);
  require(areEqual(encoded, writer.bytes()));
}

void checkHello(Bytes body) {
  const auto hello = readHello(body);
  if (!hello || hello->version != kWireVersion) return;
  WireWriter writer;
  writeHello(writer, *hello);
  require(areEqual(body, writer.bytes().subspan(kFrameHeaderSize)));
}

/// Messages are the router's, requests the client's.
void checkFrame(const FrameReceiver& receiver) {
  const Frame& frame = receiver.frame();
  XPCValues values;
  switch (frame.kind) {
    case FrameKind::Hello:
      return checkHello(frame.values);
    case FrameKind::Message:
      return requireSameWritten(receiver.decodeCall(clientTable(), values), values, frame.values);
    case FrameKind::Request:
      return requireSameWritten(receiver.decodeCall(routerTable(), values), values, frame.values);
    case FrameKind::Reply:
      return requireSameWritten(receiver.decodeReply(routerTable().methods()[0].reply, values),
                                values, frame.values);
    case FrameKind::ReplyDropped:
    case FrameKind::Farewell:
      return;
  }
}

/// Lets a stream without a hello be read beyond its first frame.
void greet(FrameReceiver& receiver) {
  WireWriter hello;
  writeHello(hello, {kWireVersion, "A", "B"});
  require(receiver.next(hello.bytes()) == FrameReceiver::Outcome::Frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes left(data, size);
  FrameReceiver receiver;
  if (size <= 4 || data[4] != static_cast<std::uint8_t>(FrameKind::Hello)) greet(receiver);
  while (receiver.next(left) == FrameReceiver::Outcome::Frame) {
    checkFrame(receiver);
    left = left.subspan(receiver.frameSize());
  }
  return 0;
}
