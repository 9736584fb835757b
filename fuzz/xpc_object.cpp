// SPDX-License-Identifier: Apache-2.0

// Decodes one object under an allow-list that the first bytes choose. Whatever is accepted must
// encode to exactly the bytes that were read, and those must decode to an equal object; a refusal
// must create no object.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/xpc/ObjectCoder.h"

using namespace platform;
using namespace platform::xpc;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  const auto outermost = static_cast<TagSet>(data[0] | (data[1] << 8U));
  const auto inside = static_cast<TagSet>(data[2] | (data[3] << 8U));
  const std::span<const std::uint8_t> bytes(data + 4, size - 4);
  WireReader reader(bytes);
  const DecodeResult result = decodeObject(reader, outermost, inside);
  if (result.verdict != DecodeVerdict::Accepted) {
    require(result.object == nullptr && !result.reason.empty());
    return 0;
  }
  WireWriter writer;
  encodeObject(writer, result.object);
  const std::span<const std::uint8_t> read = bytes.first(bytes.size() - reader.remaining());
  require(std::equal(read.begin(), read.end(), writer.bytes().begin(), writer.bytes().end()));
  WireReader again(writer.bytes());
  const DecodeResult second = decodeObject(again, outermost, inside);
  require(second.verdict == DecodeVerdict::Accepted && again.remaining() == 0);
  require(NSObject::compare(result.object.get(), second.object.get()) == 0);
  static_cast<void>(descriptionOf(result.object));
  return 0;
}
