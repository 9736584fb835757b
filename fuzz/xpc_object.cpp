// Decodes one object under an allow-list that the first bytes choose. Whatever is accepted must
// encode to the very bytes that were read, and those must decode to an equal object; a refusal must
// leave no object behind.
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
  ObjectBudget budget;
  const DecodeResult result = decodeObject(reader, outermost, inside, budget);
  if (result.verdict != DecodeVerdict::Accepted) {
    require(result.object == nullptr && !result.reason.empty());
    return 0;
  }
  WireWriter writer;
  ObjectBudget encoding;
  encodeObject(writer, result.object, encoding);
  const std::span<const std::uint8_t> read = bytes.first(bytes.size() - reader.remaining());
  require(std::equal(read.begin(), read.end(), writer.bytes().begin(), writer.bytes().end()));
  require(encoding.objects == budget.objects);
  WireReader again(writer.bytes());
  ObjectBudget fresh;
  const DecodeResult second = decodeObject(again, outermost, inside, fresh);
  require(second.verdict == DecodeVerdict::Accepted && again.remaining() == 0);
  static_cast<void>(descriptionOf(result.object));
  return 0;
}
