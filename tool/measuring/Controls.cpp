// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Controls.h"

#include <algorithm>
#include <map>

#include "input/UsageNames.h"

namespace tool {

namespace {

using router::ReportField;
using router::ReportType;
using router::Usage;

constexpr std::size_t kMaxControls = 1024;
constexpr std::uint32_t kFirstVendorPage = 0xff00;
constexpr std::uint32_t kWidestValue = 32;

bool hasName(const Usage& usage) {
  return usage.id != 0 && usage.page != 0 && usage.page < kFirstVendorPage;
}

/// The keys that are no keys: no event, and the errors.
bool isKey(const Usage& usage) {
  constexpr std::uint32_t kLastError = 3;
  return hasName(usage) && (usage.page != wlhid::kKeyboardPage || usage.id > kLastError);
}

class Collector {
 public:
  void take(const ReportField& field) {
    const bool isInput = field.type == ReportType::Input && !field.constant;
    if (!isInput || field.bitSize > kWidestValue) return;
    if (field.variable)
      takeVariable(field);
    else
      takeArray(field);
  }
  [[nodiscard]] std::vector<Control> take() && { return std::move(controls_); }

 private:
  void takeVariable(const ReportField& field) {
    const bool isSwitch = field.logicalMaximum - field.logicalMinimum <= 1;
    for (std::uint32_t i = 0; i < field.count && controls_.size() < kMaxControls; ++i) {
      const Usage usage = field.usageOfField(i);
      if (!hasName(usage)) continue;
      add({isSwitch ? Control::Kind::Button : Control::Kind::Axis,
           {},
           &field,
           field.firstCookie + i,
           usage});
    }
  }
  void takeArray(const ReportField& field) {
    const auto values = static_cast<std::uint64_t>(field.logicalMaximum - field.logicalMinimum) + 1;
    const std::uint64_t count =
        std::min({field.usages.count(), values, std::uint64_t{kMaxControls}});
    for (std::uint64_t i = 0; i < count && controls_.size() < kMaxControls; ++i) {
      const Usage usage = *field.usages.at(i);
      if (isKey(usage)) add({Control::Kind::Key, {}, &field, field.firstCookie, usage});
    }
  }
  void add(Control control) {
    control.name = wlhid::usageName(control.usage.page, control.usage.id);
    const int count = ++names_[control.name];
    if (count > 1) control.name += " (" + std::to_string(count) + ")";
    controls_.push_back(std::move(control));
  }

  std::vector<Control> controls_;
  std::map<std::string, int> names_;
};

}  // namespace

std::vector<Control> controlsOf(const router::ReportDescriptor& descriptor) {
  Collector collector;
  for (const ReportField& field : descriptor.fields()) collector.take(field);
  return std::move(collector).take();
}

}  // namespace tool
