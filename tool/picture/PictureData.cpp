// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/PictureData.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "router/ReportDecoder.h"

namespace tool {

namespace {

constexpr std::chrono::milliseconds kGap{50};

/// Reads all reports and makes their times run forwards.
PictureReports readReports(router::RecordingReader& reader, Measurement* measurement) {
  PictureReports reports;
  router::RecordedReport report;
  std::int64_t offset = 0;
  while (reader.next(&report)) {
    const std::int64_t time = report.time.count();
    offset = reports.times.empty() ? -time : std::max(offset, reports.end() - time);
    reports.times.push_back(time + offset);
    reports.bytes.insert(reports.bytes.end(), report.bytes.begin(), report.bytes.end());
    reports.ends.push_back(reports.bytes.size());
    measurement->take(report.time, report.bytes);
  }
  reports.hasTimes = reports.end() > 0;
  for (std::size_t i = 0; !reports.hasTimes && i < reports.count(); ++i)
    reports.times[i] = static_cast<std::int64_t>(i);
  return reports;
}

/// Follows the controls of a device through its reports. The work for a report does not grow with
/// the number of controls.
class Tracker {
 public:
  explicit Tracker(PictureData* data)
      : data_(data), decoder_(data->descriptor), places_(data->descriptor->elementCount() + 1) {
    for (Control& control : controlsOf(*data->descriptor)) add(std::move(control));
    isDown_.resize(data->switches.size());
  }

  void run() {
    for (std::size_t i = 0; i < data_->reports.count(); ++i) take(i);
    for (std::size_t i = 0; i < isDown_.size(); ++i) {
      if (isDown_[i]) data_->switches[i].spans.back().to = data_->reports.end();
    }
  }

 private:
  enum class Kind { None, Axis, Button, Slot };
  /// What the element with a cookie is.
  struct Place {
    Kind kind = Kind::None;
    std::size_t index = 0;  // of the axis, the button or the array
  };
  using Usage = std::pair<std::uint32_t, std::uint32_t>;
  struct Array {
    std::map<Usage, std::size_t> keys;  // indexes of switches
    std::set<std::size_t> down;
    std::set<std::size_t> selected;  // by the current report
  };

  void add(Control control) {
    if (control.kind == Control::Kind::Axis) {
      places_[control.cookie] = {Kind::Axis, data_->axes.size()};
      data_->axes.push_back({std::move(control), {}, {}});
      return;
    }
    if (control.kind == Control::Kind::Button) {
      places_[control.cookie] = {Kind::Button, data_->switches.size()};
    } else {
      Place& first = places_[control.cookie];
      if (first.kind == Kind::None) addArray(control);
      arrays_[first.index].keys.try_emplace({control.usage.page, control.usage.id},
                                            data_->switches.size());
    }
    data_->switches.push_back({std::move(control), {}});
  }

  void addArray(const Control& control) {
    for (std::uint32_t i = 0; i < control.field->count; ++i)
      places_[control.cookie + i] = {Kind::Slot, arrays_.size()};
    arrays_.emplace_back();
  }

  void take(std::size_t index) {
    const std::int64_t time = data_->reports.times[index];
    std::optional<std::size_t> array;
    for (const auto& value : decoder_.decode(data_->reports.report(index))) {
      const Place& place = places_[value.cookie];
      if (array && (place.kind != Kind::Slot || place.index != *array)) {
        finish(&arrays_[*array], time);
        array.reset();
      }
      if (place.kind == Kind::Axis) {
        data_->axes[place.index].reports.push_back(static_cast<std::uint32_t>(index));
        data_->axes[place.index].values.push_back(value.integerValue);
      } else if (place.kind == Kind::Button) {
        set(place.index, value.integerValue != 0, time);
      } else if (place.kind == Kind::Slot) {
        array = place.index;
        select(value, &arrays_[place.index]);
      }
    }
    if (array) finish(&arrays_[*array], time);
  }

  static void select(const platform::HIDElementValueRecord& value, Array* array) {
    const auto key = array->keys.find({value.usagePage, value.usage});
    if (key != array->keys.end()) array->selected.insert(key->second);
  }

  /// All slots of the array have been seen.
  void finish(Array* array, std::int64_t time) {
    for (const std::size_t key : array->down) {
      if (!array->selected.contains(key)) set(key, false, time);
    }
    for (const std::size_t key : array->selected) set(key, true, time);
    array->down = std::exchange(array->selected, {});
  }

  void set(std::size_t index, bool isDown, std::int64_t time) {
    if (isDown_[index] == isDown) return;
    isDown_[index] = isDown;
    auto& spans = data_->switches[index].spans;
    if (isDown)
      spans.push_back({time, time});
    else
      spans.back().to = time;
  }

  PictureData* const data_;
  router::ReportDecoder decoder_;
  std::vector<Place> places_;  // by cookie
  std::vector<Array> arrays_;
  std::vector<bool> isDown_;
};

}  // namespace

std::span<const std::uint8_t> PictureReports::report(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : ends[index - 1];
  return std::span(bytes).subspan(begin, ends[index] - begin);
}

bool AxisTrack::moves() const {
  return std::ranges::any_of(values,
                             [this](std::int64_t value) { return value != values.front(); });
}

PictureData readPicture(const std::string& file, std::uint32_t device) {
  const auto recording = router::RecordingFile::at(file, device);
  auto reader = recording.read();
  const router::RecordingHeader header = reader.header();
  auto parsed = router::ReportDescriptor::parseUpToFault(header.reportDescriptor);
  const auto descriptor =
      std::make_shared<const router::ReportDescriptor>(std::move(parsed.descriptor));
  router::DeviceFacts facts;
  facts.reportDescriptor = header.reportDescriptor;
  PictureData data{std::filesystem::path(file).filename().string(),
                   header,
                   descriptor,
                   std::move(parsed.fault),
                   router::classify(facts),
                   {},
                   {},
                   {},
                   Measurement(descriptor, kGap)};
  data.reports = readReports(reader, &data.measurement);
  Tracker(&data).run();
  return data;
}

}  // namespace tool
