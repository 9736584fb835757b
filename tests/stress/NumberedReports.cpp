// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/NumberedReports.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "platform/kit/KQHIDDeviceElementValue.h"

namespace stress {
namespace {

void appendByte(std::string& text, unsigned byte) {
  static constexpr char kDigits[] = "0123456789abcdef";
  text.push_back(' ');
  text.push_back(kDigits[byte >> 4U & 0xFU]);
  text.push_back(kDigits[byte & 0xFU]);
}

void appendWord(std::string& text, std::uint32_t word) {
  for (unsigned shift = 0; shift < 32; shift += 8) appendByte(text, word >> shift & 0xFFU);
}

std::uint32_t littleEndian(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
         static_cast<std::uint32_t>(bytes[2]) << 16U | static_cast<std::uint32_t>(bytes[3]) << 24U;
}

}  // namespace

std::uint32_t Numbered::word(std::uint32_t number, std::uint32_t place) const {
  if (place == 0) return number;
  std::uint32_t mixed = (number * 0x9E3779B1U) ^ (place * 0x85EBCA6BU) ^ (device * 0xC2B2AE35U);
  mixed ^= mixed >> 15U;
  return mixed & 0x7FFFFFFFU;
}

std::string Numbered::text() const {
  // One application collection with `words` input fields of 32 bits, 0 to 0x7FFFFFFF.
  const std::vector<unsigned> descriptor{0x06, 0x00, 0xff, 0x09,  0x01, 0xa1, 0x01, 0x09,
                                         0x02, 0x15, 0x00, 0x27,  0xff, 0xff, 0xff, 0x7f,
                                         0x75, 0x20, 0x95, words, 0x81, 0x02, 0xc0};
  std::string text = "R: " + std::to_string(descriptor.size());
  for (const unsigned byte : descriptor) appendByte(text, byte);
  text += "\nN: Numbered " + std::to_string(device) + "\nI: 3 1209 0001\n";
  const auto addReport = [&](std::uint32_t number, std::uint64_t time) {
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "E: %06u.%06u %u",
                  static_cast<unsigned>(time / 1'000'000), static_cast<unsigned>(time % 1'000'000),
                  words * 4);
    text += head.data();
    for (std::uint32_t place = 0; place < words; ++place) appendWord(text, word(number, place));
    text.push_back('\n');
  };
  std::uint64_t time = 0;
  for (std::uint32_t number = 0; number < count; ++number, time += microseconds)
    addReport(number, time);
  constexpr std::uint64_t kHour = 3'600'000'000;
  if (stays) addReport(count, time + kHour);
  return text;
}

void Checker::note(const std::function<void(Counts&)>& change) {
  {
    const std::lock_guard lock(mutex_);
    change(counts_);
  }
  changed_.notify_all();
}

void Checker::hidEventRouterClient_clientStatusChangedTo(
    const std::shared_ptr<WLHIDEventRouterClient>&, WLHIDEventRouterClientStatus status) {
  note([=](Counts& counts) { counts.isRouting = status == WLHIDEventRouterClientStatusRouting; });
}

void Checker::hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>&,
                                               const std::shared_ptr<platform::NSError>&) {
  note([](Counts& counts) { ++counts.errors; });
}

bool Checker::isReport(const platform::NSData& data, std::uint32_t number) const {
  const auto bytes = data.span();
  if (bytes.size() != std::size_t{4} * numbered_.words) return false;
  for (std::uint32_t place = 0; place < numbered_.words; ++place) {
    if (littleEndian(bytes.data() + std::size_t{4} * place) != numbered_.word(number, place))
      return false;
  }
  return true;
}

bool Checker::areValues(const platform::NSArray& values, std::uint32_t number) const {
  if (values.count() != numbered_.words) return false;
  for (std::uint32_t place = 0; place < numbered_.words; ++place) {
    const auto value =
        platform::objectCast<platform::KQHIDDeviceElementValue>(values.objectAtIndex(place));
    if (!value || value->record().cookie != place + 1 ||
        value->record().integerValue != numbered_.word(number, place))
      return false;
  }
  return true;
}

void Checker::hidEventRouterClient_receivedReportData_reportID(
    const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
    std::uint32_t) {
  const auto now = std::chrono::steady_clock::now();
  const std::uint32_t number = data->length() >= 4 ? littleEndian(data->span().data()) : UINT32_MAX;
  const bool right = number >= next_ && isReport(*data, number);
  note([&](Counts& counts) {
    ++counts.reports;
    if (!right) ++counts.wrong;
    if (right) counts.missing += number - next_;
    arrivals_.emplace_back(number, now);
  });
  if (right) next_ = number + 1;
  if (burden_) burden_();
}

void Checker::hidEventRouterClient_receivedElementValues(
    const std::shared_ptr<WLHIDEventRouterClient>&,
    const std::shared_ptr<platform::NSArray>& values) {
  const bool right = next_ > 0 && areValues(*values, next_ - 1);
  note([&](Counts& counts) {
    ++counts.valueArrays;
    if (!right) ++counts.wrong;
  });
}

Checker::Counts Checker::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

bool Checker::waitUntil(const std::function<bool(const Counts&)>& condition,
                        std::chrono::seconds limit) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [&] { return condition(counts_); });
}

std::vector<double> Checker::lateness() const {
  const std::lock_guard lock(mutex_);
  std::vector<double> late;
  late.reserve(arrivals_.size());
  for (const auto& [number, when] : arrivals_) {
    const auto due = std::chrono::microseconds(std::uint64_t{numbered_.microseconds} * number);
    late.push_back(
        std::chrono::duration<double, std::micro>(when.time_since_epoch() - due).count());
  }
  std::sort(late.begin(), late.end());
  const double most = late.empty() ? 0 : late.front();
  for (double& each : late) each -= most;
  return late;
}

}  // namespace stress
