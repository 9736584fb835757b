// SPDX-License-Identifier: Apache-2.0

// What a report shows of any log: it does not depend on how the text is split, and every line is
// shown as its length or as printable ASCII without the host.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tool/report/ShownLines.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

std::string shownInPieces(std::string_view text, std::size_t size) {
  tool::DeviceOrder devices;
  tool::ShownLines lines(tool::ShownLines::Source::SystemLog, devices);
  std::string result;
  for (std::size_t at = 0; at < text.size(); at += size)
    result += lines.feed(text.substr(at, size));
  return result + lines.finish();
}

std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string whole = shownInPieces(text, size + 1);
  require(shownInPieces(text, 1) == whole);
  require(shownInPieces(text, 7) == whole);
  std::string_view shown = whole;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = takeLine(rest);
    const std::string_view its = takeLine(shown);
    for (const char c : its) require(c >= ' ' && c <= '~');
    require(its == tool::lineOfLength(line.size()) || its.substr(15, 11) == " <private> ");
  }
  require(shown.empty());
  return 0;
}
