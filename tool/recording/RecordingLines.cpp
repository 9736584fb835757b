// SPDX-License-Identifier: Apache-2.0

#include "tool/recording/RecordingLines.h"

#include <algorithm>
#include <span>
#include <utility>

#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"
#include "router/RouterLimits.h"

namespace tool {

namespace {

void appendBytes(std::string& out, std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  out += std::to_string(bytes.size());
  for (const std::uint8_t byte : bytes) {
    out += ' ';
    out += kDigits[byte >> 4U];
    out += kDigits[byte & 0xfU];
  }
  out += '\n';
}

std::string deviceLine(std::optional<std::uint32_t> device) {
  return device ? "D: " + std::to_string(*device) + "\n" : std::string();
}

class RecordingLines final : public DeliveryLines {
 public:
  RecordingLines(std::shared_ptr<RecordingState> state,
                 std::function<std::chrono::microseconds()> clock,
                 std::optional<std::uint32_t> device)
      : state_(std::move(state)), clock_(std::move(clock)), deviceLine_(deviceLine(device)) {}

  void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                    std::uint32_t /*reportID*/) override {
    const std::size_t before = out.size();
    out += deviceLine_;
    appendTime(out);
    appendBytes(out, bytes);
    const std::size_t length = out.size() - before;
    if (state_->leftOut == 0 && state_->bytes.fetch_add(length) + length <= state_->maximumBytes)
      return;
    out.resize(before);
    ++state_->leftOut;
  }
  void appendStatus(std::string& /*out*/, WLHIDEventRouterClientStatus /*status*/) override {}
  void appendError(std::string& /*out*/, const platform::NSError& /*error*/) override {}
  void appendElementValues(std::string& /*out*/, const platform::NSArray& /*values*/) override {}
  void appendEnd(std::string& /*out*/, const std::string& /*reason*/) override {}

 private:
  void appendTime(std::string& out) {
    constexpr std::int64_t kSecond = 1'000'000;
    const std::int64_t now = clock_().count();
    std::int64_t beginning = -1;
    if (state_->beginning.compare_exchange_strong(beginning, now)) beginning = now;
    const std::int64_t time = std::max<std::int64_t>(now - beginning, 0);
    out += platform::stringWithFormat("E: %06lld.%06lld ", time / kSecond, time % kSecond);
  }

  const std::shared_ptr<RecordingState> state_;
  const std::function<std::chrono::microseconds()> clock_;
  const std::string deviceLine_;  // each report names its device, in a recording of several
};

}  // namespace

std::string recordingHeader(const router::DeviceDescription& description,
                            const std::vector<std::uint8_t>& reportDescriptor,
                            std::optional<std::uint32_t> device) {
  const auto line = [](const std::string& text) {
    return platform::printableLine(text, router::RouterLimits::kNameCharacters) + "\n";
  };
  std::string header = deviceLine(device) + "R: ";
  appendBytes(header, reportDescriptor);
  header += "N: " + line(description.name);
  if (!description.physicalPath.empty()) header += "P: " + line(description.physicalPath);
  return header + platform::stringWithFormat("I: %x %04x %04x\n", description.bus,
                                             description.vendor, description.product);
}

std::string recordingFooter(const std::optional<Losses>& losses) {
  if (!losses || losses->reports == 0) return {};
  return "# reports lost: " + std::to_string(losses->reports) +
         (losses->ofOthersToo ? ", by all sessions together\n" : "\n");
}

std::unique_ptr<DeliveryLines> recordingLines(std::shared_ptr<RecordingState> state,
                                              std::function<std::chrono::microseconds()> clock,
                                              std::optional<std::uint32_t> device) {
  return std::make_unique<RecordingLines>(std::move(state), std::move(clock), device);
}

}  // namespace tool
