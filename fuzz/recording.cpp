// SPDX-License-Identifier: Apache-2.0

// Any text is a recording or a RecordingError of one line; the reports of a recording are within it
// and have due times that never decrease.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "router/Replay.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

router::RecordingReader readerOf(std::string_view text, std::uint32_t device) {
  return {[rest = text](std::span<char> buffer) mutable {
            const std::size_t count = std::min(buffer.size(), rest.size());
            std::copy_n(rest.begin(), count, buffer.begin());
            rest.remove_prefix(count);
            return count;
          },
          "input", device};
}

void check(std::string_view text, std::uint32_t device) {
  router::RecordingReader first = readerOf(text, device);
  const router::RecordingSummary summary = router::readSummary(first);
  router::ReplaySchedule schedule(summary.hasTimes, 0.001);
  router::RecordingReader reader = readerOf(text, device);
  std::size_t length = 0;
  unsigned sum = 0;
  std::size_t reports = 0;
  std::chrono::nanoseconds last{};
  for (router::RecordedReport report; reader.next(&report); ++reports) {
    for (const std::uint8_t byte : report.bytes) sum += byte;  // every byte is readable
    length += report.bytes.size();
    const auto due = schedule.due(report.time);
    require(due >= last);
    last = due;
  }
  require(reports == summary.reports);
  require(last <= schedule.beginAgain());  // equal only if both are at the bound
  require(length <= text.size() && sum <= 255 * length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const std::uint32_t device : {0U, 1U}) {
    try {
      check(text, device);
    } catch (const router::RecordingError& error) {
      const std::string_view what = error.what();
      require(what.starts_with("input:") && what.find('\n') == std::string_view::npos);
    }
  }
  return 0;
}
