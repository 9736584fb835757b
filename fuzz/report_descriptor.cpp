// SPDX-License-Identifier: Apache-2.0

// Any bytes are a descriptor or a ReportDescriptorError, and any bytes after it a report. The input
// is the descriptor's length in two bytes, little-endian, the descriptor, and the report.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "router/ReportDecoder.h"
#include "router/RouterLimits.h"

namespace {

using router::Element;
using router::ReportDecoder;
using router::ReportDescriptor;

void require(bool condition) {
  if (!condition) std::abort();
}

void checkValue(const ReportDescriptor& descriptor, const platform::HIDElementValueRecord& value,
                std::span<const std::uint8_t> report) {
  const auto element = descriptor.elementWithCookie(value.cookie);
  require(element.has_value());
  const std::uint32_t bits = element->field->bitSize;
  require(!element->field->constant);
  require(std::uint64_t{element->bitOffset()} + bits <= report.size() * 8);
  require(value.bytes.size() == (bits + 7) / 8);
  // The bytes and the integer agree; bits beyond the field are zero.
  std::uint64_t integer = 0;
  for (std::size_t i = 0; i < value.bytes.size() && i < 8; ++i)
    integer |= std::uint64_t{value.bytes[i]} << (8 * i);
  if (bits > 64) return require(value.integerValue == 0);
  const std::uint64_t mask = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
  require(integer == (static_cast<std::uint64_t>(value.integerValue) & mask));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::span<const std::uint8_t> input(data + 2, size - 2);
  const std::size_t length = std::min<std::size_t>(data[0] | data[1] << 8, input.size());
  const auto report = input.subspan(length);
  try {
    const auto descriptor =
        std::make_shared<const ReportDescriptor>(ReportDescriptor::parse(input.first(length)));
    require(descriptor->elementCount() <= router::RouterLimits::kElements);
    ReportDecoder decoder(descriptor);
    std::uint64_t last = 0;
    for (const auto& value : decoder.decode(report)) {
      require(value.cookie > last);
      last = value.cookie;
      checkValue(*descriptor, value, report);
    }
  } catch (const router::ReportDescriptorError& error) {
    require(error.offset() <= length);
  }
  return 0;
}
