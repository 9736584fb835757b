// Any text is a recording or a RecordingError of one line; the reports of a recording lie within it
// and have due times that never fall.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "router/ReplaySource.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void check(const router::Recording& recording, std::size_t textLength) {
  const router::ReplaySchedule schedule(recording, 0.001);
  std::size_t length = 0;
  unsigned sum = 0;
  for (std::size_t i = 0; i < recording.reportCount(); ++i) {
    for (const std::uint8_t byte : recording.report(i)) sum += byte;  // every byte can be read
    length += recording.report(i).size();
    require(schedule.due(i) >= schedule.due(i == 0 ? 0 : i - 1));
    require(schedule.due(i) <= schedule.period());  // equal only where both are at the bound
  }
  require(length <= textLength && sum <= 255 * length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const std::uint32_t device : {0U, 1U}) {
    try {
      check(router::Recording::parse(text, "input", device), size);
    } catch (const router::RecordingError& error) {
      const std::string_view what = error.what();
      require(what.starts_with("input:") && what.find('\n') == std::string_view::npos);
    }
  }
  return 0;
}
