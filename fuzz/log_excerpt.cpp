// SPDX-License-Identifier: Apache-2.0

// Any text, in pieces of any length, gives the same excerpt as the plainest implementation gives
// for the whole text, with ICU for the pattern. Text that is not UTF-8 is recognised as such,
// wherever it is split.
//
// The first two bytes of the input give the length of the pieces; the rest is the log.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "diagnostics/LogExcerpt.h"
#include "platform/foundation/UTF8Validator.h"
#include "tests/support/HeaderOracle.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

/// Whether the text is UTF-8; `filter` gets as much of it as is.
bool feed(std::string_view log, std::size_t pieceLength, diagnostics::LogFilter& filter) {
  platform::UTF8Validator validator;
  for (std::size_t at = 0; at < log.size(); at += pieceLength) {
    const auto piece = log.substr(at, pieceLength);
    if (!validator.accept(piece)) return false;
    filter.accept(piece);
  }
  return validator.isComplete();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // ICU's stack has room for lines of this length.
  if (size < 2 || size > std::size_t{64} * 1024) return 0;
  const std::size_t more = data[1] % 2 == 0 ? 0 : std::size_t{data[1]} * 256;
  const std::size_t pieceLength = 1 + data[0] + more;
  const std::string_view log(reinterpret_cast<const char*>(data) + 2, size - 2);

  diagnostics::LogFilter filter;
  const bool isUTF8 = feed(log, pieceLength, filter);
  require(isUTF8 == platform::isValidUTF8(log));
  if (!isUTF8) return 0;

  static testsupport::HeaderOracle oracle;
  const auto excerpt = filter.finish();
  const std::string_view text(reinterpret_cast<const char*>(excerpt->bytes()), excerpt->length());
  require(text == oracle.excerpt(log, diagnostics::kRouterLabel));
  return 0;
}
