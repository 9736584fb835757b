// Redaction of any text: the same in whatever pieces it comes, one line for each line, nothing that
// a terminal would obey, and never a string that is known to be secret.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tool/report/Redaction.h"

namespace {

constexpr std::string_view kSecret = "QWERTZ";

void require(bool condition) {
  if (!condition) std::abort();
}

std::string redactedInPieces(const tool::Redactor& redactor, std::string_view text,
                             std::size_t size) {
  tool::RedactedLines lines(redactor);
  std::string result;
  for (std::size_t at = 0; at < text.size(); at += size)
    result += lines.feed(text.substr(at, size));
  return result + lines.finish();
}

void requireHarmless(std::string_view text) {
  require(text.find(kSecret) == std::string_view::npos);
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    require((byte >= 0x20 || c == '\n') && byte != 0x7f);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const tool::Redactor redactor({{std::string(kSecret)}, {0x100000abc}, "/home/u/root"});
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string whole = redactedInPieces(redactor, text, size + 1);
  requireHarmless(whole);
  require(redactedInPieces(redactor, text, 1) == whole);
  require(redactedInPieces(redactor, text, 7) == whole);
  for (const std::string& line :
       {redactor.text(text), redactor.logLine(text), redactor.name(text), redactor.version(text)}) {
    requireHarmless(line);
    require(line.find('\n') == std::string::npos);
  }
  return 0;
}
