// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Hello.h"

#include <stdexcept>

#include "platform/foundation/NSString.h"

namespace platform::xpc {
namespace {

void writeName(WireWriter& writer, const std::string& name) {
  if (name.size() > kMaxProtocolName)
    throw std::invalid_argument("a protocol's name is longer than 254 bytes");
  writer.block(name);
}

std::string_view text(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool agree(const std::string& expected, const std::string& offered) {
  return expected.empty() || offered.empty() || expected == offered;
}

}  // namespace

void writeHello(WireWriter& writer, const Hello& hello) {
  writer.beginFrame(FrameKind::Hello, 0);
  writer.raw(kHelloMagic);
  writer.u16(hello.version);
  writeName(writer, hello.exported);
  writeName(writer, hello.remote);
  writer.finishFrame();
}

std::optional<Hello> readHello(std::span<const std::uint8_t> body) {
  WireReader reader(body);
  if (text(reader.raw(kHelloMagic.size())) != kHelloMagic) return std::nullopt;
  Hello hello;
  hello.version = reader.u16();
  if (reader.failed()) return std::nullopt;
  if (hello.version != kWireVersion) return hello;
  hello.exported = text(reader.block());
  hello.remote = text(reader.block());
  if (reader.failed() || reader.remaining() != 0) return std::nullopt;
  if (hello.exported.size() > kMaxProtocolName || hello.remote.size() > kMaxProtocolName)
    return std::nullopt;
  if (!isValidUTF8(hello.exported) || !isValidUTF8(hello.remote)) return std::nullopt;
  return hello;
}

std::string mismatch(const Hello& ours, const Hello& theirs) {
  if (theirs.version != ours.version)
    return "the peer speaks version " + std::to_string(theirs.version);
  if (!agree(ours.remote, theirs.exported))
    return "the peer exports " + theirs.exported + ", not " + ours.remote;
  if (!agree(theirs.remote, ours.exported))
    return "the peer expects " + theirs.remote + ", not " + ours.exported;
  return {};
}

}  // namespace platform::xpc
