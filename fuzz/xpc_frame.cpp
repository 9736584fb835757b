// Takes a stream apart as a connection does, against the client's protocol and the start request's
// reply: headers, hello, arguments. Whatever is accepted must be written back as the same bytes.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/foundation/NSArray.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
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

void checkValues(Bytes bytes, const std::vector<ArgumentRule>& rules) {
  WireReader reader(bytes);
  XPCValues values;
  if (decodeValues(reader, rules, values).verdict != DecodeVerdict::Accepted) return;
  WireWriter writer;
  encodeValues(writer, values);
  require(std::equal(bytes.begin(), bytes.end(), writer.bytes().begin(), writer.bytes().end()));
}

void checkHello(Bytes body) {
  const auto hello = readHello(body);
  if (!hello || hello->version != kWireVersion) return;
  WireWriter writer;
  writeHello(writer, *hello);
  const Bytes written = writer.bytes().subspan(kFrameHeaderSize);
  require(std::equal(body.begin(), body.end(), written.begin(), written.end()));
}

void checkFrame(const FrameHeader& header, Bytes body) {
  if (header.kind == FrameKind::Hello) return checkHello(body);
  const bool numbered = header.kind != FrameKind::Message && header.kind != FrameKind::Farewell;
  if (numbered && body.size() < kRequestIDSize) return;
  const Bytes rest = numbered ? body.subspan(kRequestIDSize) : body;
  if (header.kind == FrameKind::Reply) return checkValues(rest, routerTable().methods()[0].reply);
  if (header.kind == FrameKind::Request && header.method == 0)
    return checkValues(rest, routerTable().methods()[0].arguments);
  if (header.kind == FrameKind::Message && header.method < clientTable().methods().size()) {
    checkValues(rest, clientTable().methods()[header.method].arguments);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes left(data, size);
  while (left.size() >= kFrameHeaderSize) {
    FrameHeader header;
    if (readFrameHeader(left.data(), header) != HeaderVerdict::Valid) return 0;
    if (left.size() - kFrameHeaderSize < header.length) return 0;
    checkFrame(header, left.subspan(kFrameHeaderSize, header.length));
    left = left.subspan(kFrameHeaderSize + header.length);
  }
  return 0;
}
