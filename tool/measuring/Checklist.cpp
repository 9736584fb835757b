// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Checklist.h"

#include <algorithm>

#include "tool/descriptor/UsageText.h"

namespace tool {

Checklist::Checklist(std::shared_ptr<const router::ReportDescriptor> descriptor)
    : decoder_(std::move(descriptor)) {
  for (Control& control : controlsOf(decoder_.descriptor())) {
    if (hasUsageName(control.usage.page, control.usage.id))
      entries_.push_back({std::move(control)});
  }
}

std::vector<std::string> Checklist::take(std::span<const std::uint8_t> report) {
  const auto values = decoder_.decode(report);
  std::vector<std::string> names;
  for (Entry& entry : entries_) {
    if (entry.hasAnswered) continue;
    takeReport(values, &entry);
    if (!entry.wasLow || !entry.wasHigh) continue;
    entry.hasAnswered = true;
    ++answered_;
    names.push_back(entry.control.name);
  }
  return names;
}

void Checklist::takeReport(std::span<const platform::HIDElementValueRecord> values,
                           Entry* entry) const {
  const Control& control = entry->control;
  const auto value =
      std::ranges::find_if(values, [&](const auto& each) { return control.isValue(each); });
  if (control.kind == Control::Kind::Key) {
    const auto isSlot = [&](const auto& each) { return each.cookie == control.cookie; };
    if (std::ranges::any_of(values, isSlot)) takeSwitch(value != values.end(), entry);
  } else if (value != values.end() && control.kind == Control::Kind::Button) {
    takeSwitch(value->integerValue != 0, entry);
  } else if (value != values.end()) {
    takeAxis(value->integerValue, entry);
  }
}

/// What is up before it has been down says nothing.
void Checklist::takeSwitch(bool isDown, Entry* entry) const {
  if (isDown) entry->wasHigh = true;
  if (!isDown && entry->wasHigh) entry->wasLow = true;
}

void Checklist::takeAxis(std::int64_t value, Entry* entry) {
  constexpr double kEnd = 0.1;  // part of the range that counts as its end
  const router::ReportField& field = *entry->control.field;
  if (field.relative) {
    entry->wasLow = entry->wasLow || value < 0;
    entry->wasHigh = entry->wasHigh || value > 0;
    return;
  }
  if (value < field.logicalMinimum || value > field.logicalMaximum) return;
  const auto low = static_cast<double>(field.logicalMinimum);
  const auto high = static_cast<double>(field.logicalMaximum);
  const double place = (static_cast<double>(value) - low) / (high - low);
  entry->wasLow = entry->wasLow || place <= kEnd;
  entry->wasHigh = entry->wasHigh || place >= 1 - kEnd;
}

std::string Checklist::nextStep() const {
  const auto entry = std::ranges::find(entries_, false, &Entry::hasAnswered);
  if (entry == entries_.end()) return {};
  const Control& control = entry->control;
  if (control.kind != Control::Kind::Axis) return "press " + control.name;
  return "move " + control.name + (control.field->relative ? " to and fro" : " from end to end");
}

}  // namespace tool
