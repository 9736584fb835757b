// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Tracks.h"

#include <algorithm>
#include <map>

#include "input/UsageNames.h"

namespace tool::monitor {

namespace {

constexpr std::uint32_t kWidestNumber = 64;

Track::Kind kindOf(const router::ReportField& field) {
  if (field.bitSize > kWidestNumber) return Track::Kind::Bytes;
  if (!field.variable) return Track::Kind::Slot;
  if (field.relative) return Track::Kind::Relative;
  return field.logicalMinimum == 0 && field.logicalMaximum == 1 ? Track::Kind::Switch
                                                                : Track::Kind::Absolute;
}

History::Merge mergeOf(Track::Kind kind) {
  if (kind == Track::Kind::Switch || kind == Track::Kind::Slot) return History::Merge::Largest;
  return kind == Track::Kind::Relative ? History::Merge::Farthest : History::Merge::Last;
}

Track trackOf(const router::ReportField& field, std::uint32_t index) {
  const Track::Kind kind = kindOf(field);
  Track track{.kind = kind, .name = {}, .usage = {}, .history = History(mergeOf(kind))};
  track.usage = field.variable ? field.usageOfField(index) : field.noSelection();
  track.name = field.variable ? wlhid::usageName(track.usage.page, track.usage.id)
                              : wlhid::usagePageName(track.usage.page);
  track.cookie = field.firstCookie + index;
  track.reportID = field.reportID;
  track.minimum = field.logicalMinimum;
  track.maximum = field.logicalMaximum;
  track.hasNullState = field.hasNullState;
  return track;
}

void makeNamesUnique(std::vector<Track>& tracks) {
  std::map<std::string, int> times;
  for (const Track& track : tracks) ++times[track.name];
  std::map<std::string, int> numbers;
  for (Track& track : tracks) {
    if (times[track.name] > 1) track.name += " " + std::to_string(++numbers[track.name]);
  }
}

}  // namespace

double Track::partOf(std::int64_t at) const {
  const double range = static_cast<double>(maximum) - static_cast<double>(minimum);
  if (range <= 0) return 0;
  return std::clamp((static_cast<double>(at) - static_cast<double>(minimum)) / range, 0.0, 1.0);
}

std::string Track::valueText() const {
  if (!hasValue) return "-";
  if (kind == Kind::Bytes) return "bytes";
  if (kind == Kind::Switch) return value != 0 ? "on" : "off";
  if (kind == Kind::Slot)
    return selected.id == 0 ? "none" : wlhid::usageName(selected.page, selected.id);
  if (hasNullState && (value < minimum || value > maximum)) return "none";
  return std::to_string(value);
}

Tracks::Tracks(const router::ReportDescriptor& descriptor) {
  for (const router::ReportField& field : descriptor.fields()) {
    if (field.type != router::ReportType::Input || field.constant) continue;
    for (std::uint32_t i = 0; i < field.count && tracks_.size() < kMost; ++i)
      tracks_.push_back(trackOf(field, i));
  }
  makeNamesUnique(tracks_);
}

void Tracks::take(Time time, std::span<const platform::HIDElementValueRecord> values) {
  auto track = tracks_.begin();
  for (const auto& value : values) {
    track = std::lower_bound(
        track, tracks_.end(), value.cookie,
        [](const Track& each, std::uint64_t cookie) { return each.cookie < cookie; });
    if (track == tracks_.end()) return;
    if (track->cookie != value.cookie) continue;
    track->hasValue = true;
    track->value = value.integerValue;
    track->selected = {value.usagePage, value.usage};
    track->history.take(time,
                        track->kind == Track::Kind::Slot ? value.usage != 0 : value.integerValue);
  }
}

}  // namespace tool::monitor
