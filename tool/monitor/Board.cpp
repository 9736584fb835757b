// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Board.h"

#include <algorithm>
#include <iterator>

#include "tool/measuring/Controls.h"

namespace tool::monitor {

Board::Board(const router::ReportDescriptor& descriptor) {
  for (Control& control : controlsOf(descriptor)) {
    if (control.kind == Control::Kind::Axis) continue;
    const bool isSelected = control.kind == Control::Kind::Key;
    keys_.push_back({std::move(control.name), false, 0});
    places_.push_back({control.field->reportID, control.cookie,
                       isSelected ? control.field->count : 1, isSelected, control.usage});
  }
  down_.resize(keys_.size());
}

/// A key of an array is down while one of the array's slots selects it, so a report says of all of
/// them whether they are.
void Board::take(std::uint32_t reportID, std::span<const platform::HIDElementValueRecord> values) {
  ++reports_;
  if (keys_.empty()) return;
  for (std::size_t i = 0; i < keys_.size(); ++i)
    down_[i] = keys_[i].isDown && !(places_[i].isSelected && places_[i].reportID == reportID);
  for (const auto& value : values) takeSelection(value, down_);
  for (std::size_t i = 0; i < keys_.size(); ++i) set(i, down_[i]);
}

void Board::takeSelection(const platform::HIDElementValueRecord& value,
                          std::vector<bool>& down) const {
  const auto isBefore = [](std::uint64_t cookie, const Place& place) {
    return cookie < place.firstCookie;
  };
  auto place = std::upper_bound(places_.begin(), places_.end(), value.cookie, isBefore);
  if (place == places_.begin()) return;
  const std::uint32_t firstCookie = (--place)->firstCookie;
  if (value.cookie >= firstCookie + place->cookies) return;
  if (!place->isSelected) {
    down[static_cast<std::size_t>(place - places_.begin())] = value.integerValue != 0;
    return;
  }
  if (value.usage == 0) return;
  for (++place; place != places_.begin() && std::prev(place)->firstCookie == firstCookie;) {
    --place;
    if (place->usage.id == value.usage && place->usage.page == value.usagePage)
      down[static_cast<std::size_t>(place - places_.begin())] = true;
  }
}

void Board::set(std::size_t index, bool isDown) {
  BoardKey& key = keys_[index];
  if (isDown && !key.isDown) key.lastDown = reports_;
  key.isDown = isDown;
}

}  // namespace tool::monitor
