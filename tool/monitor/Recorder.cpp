// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Recorder.h"

#include <array>
#include <ctime>
#include <utility>

#include "router/RouterLimits.h"
#include "tool/command/Command.h"

namespace tool::monitor {

Recorder::Recorder(const std::string& file, const router::DeviceDescription& device,
                   const std::vector<std::uint8_t>& reportDescriptor)
    : file_(file),
      state_(std::make_shared<RecordingState>(router::RouterLimits::kRecordingBytes)),
      lines_(recordingLines(
          state_, [this] { return now_; }, std::nullopt)) {
  const std::string header = "# recorded with wlhid " WLHID_VERSION "\n" +
                             recordingHeader(device, reportDescriptor, std::nullopt);
  state_->bytes = header.size();
  try {
    file_.write(header);
  } catch (const Failure&) {
    file_.remove();
    throw;
  }
}

void Recorder::take(Time time, std::span<const std::uint8_t> report) {
  now_ = time;
  lines_->appendReport(text_, report, 0);
  ++reports_;
}

void Recorder::write() {
  if (text_.empty()) return;
  try {
    file_.write(std::exchange(text_, {}));
  } catch (const Failure& failure) {
    throw Failure(std::string(failure.what()) + " (what had been recorded before is in the file)");
  }
}

std::string Recorder::finish() {
  write();
  file_.finish();
  std::string text = file_.path() + ": " + std::to_string(reports()) + " reports";
  if (state_->leftOut > 0) text += "; it is as large as a recording can be";
  return text;
}

std::string recordingName(std::string_view device, std::int64_t secondsSinceEpoch) {
  constexpr std::size_t kLongest = 60;
  std::string name;
  for (const char c : device.substr(0, kLongest)) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (isPlain)
      name += c;
    else if (!name.empty() && name.back() != '-')
      name += '-';
  }
  if (name.empty()) name = "device";
  if (name.back() != '-') name += '-';
  const std::time_t time = secondsSinceEpoch;
  std::tm local{};
  ::localtime_r(&time, &local);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local);
  return name.append(text.data(), length) + ".hid";
}

}  // namespace tool::monitor
