// SPDX-License-Identifier: Apache-2.0

#include "tool/measuring/Measurement.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "platform/foundation/Format.h"
#include "tool/descriptor/UnitNames.h"
#include "tool/terminal/Table.h"

namespace tool {

namespace {

using platform::stringWithFormat;
using std::chrono::microseconds;

std::uint64_t distance(std::int64_t smaller, std::int64_t larger) {
  return static_cast<std::uint64_t>(larger) - static_cast<std::uint64_t>(smaller);
}

std::string counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string rateText(double rate) {
  return stringWithFormat(rate < 10 ? "%.2g Hz" : "%.0f Hz", rate);
}

std::string lossText(const std::optional<Losses>& losses) {
  if (!losses) return "losses unknown";
  if (losses->reports == 0) return "none lost";
  return counted(losses->reports, "report") + " lost" +
         (losses->ofOthersToo ? " by all sessions together" : "");
}

std::string histogramText(const Intervals& intervals) {
  constexpr double kWidest = 40;
  const auto bars = intervals.histogram();
  std::uint64_t most = 1;
  for (const auto& bar : bars) most = std::max(most, bar.count);
  std::string text;
  for (const auto& bar : bars) {
    const double part = static_cast<double>(bar.count) / static_cast<double>(most);
    const auto length = static_cast<std::size_t>(std::ceil(part * kWidest));
    text += "  under " + padded(durationText(bar.to), 9) + stringWithFormat(" %8llu  ", bar.count) +
            std::string(length, '#') + "\n";
  }
  return text;
}

std::string axisText(const AxisUse& axis) {
  const auto& field = *axis.control.field;
  std::string text = stringWithFormat("  %-14s ", axis.control.name);
  if (axis.values == 0) return text + "no value\n";
  text += stringWithFormat("%lld to %lld of %lld to %lld", axis.smallest, axis.largest,
                           field.logicalMinimum, field.logicalMaximum);
  if (axis.step == 0) return text + "; did not move\n";
  text += stringWithFormat("; steps of %llu; %.1f of %.1f bits", axis.step, axis.usedBits(),
                           axis.declaredBits());
  if (const auto density = axis.stepsPerUnit())
    text += stringWithFormat("; %.4g per %s", *density, unitName(field.unit));
  return text + "\n";
}

std::string intervalText(const Intervals& intervals) {
  return "Intervals: half up to " + durationText(intervals.percentile(0.5)) + ", 99 % up to " +
         durationText(intervals.percentile(0.99)) + ", longest " +
         durationText(intervals.longest()) + "\n" + histogramText(intervals);
}

}  // namespace

void AxisUse::take(std::int64_t value) {
  const router::ReportField& field = *control.field;
  const bool isInside = value >= field.logicalMinimum && value <= field.logicalMaximum;
  if (field.hasNullState && !isInside) return;  // no value
  if (values++ == 0) {
    smallest = largest = value;
    return;
  }
  step = std::gcd(step, distance(std::min(value, smallest), std::max(value, smallest)));
  smallest = std::min(smallest, value);
  largest = std::max(largest, value);
}

std::uint64_t AxisUse::positions() const {
  return step == 0 ? std::min<std::uint64_t>(values, 1) : distance(smallest, largest) / step + 1;
}

double AxisUse::declaredBits() const {
  const auto& field = *control.field;
  return std::log2(static_cast<double>(distance(field.logicalMinimum, field.logicalMaximum)) + 1);
}

double AxisUse::usedBits() const {
  return positions() == 0 ? 0 : std::log2(static_cast<double>(positions()));
}

std::optional<double> AxisUse::stepsPerUnit() const {
  const auto density = valuesPerUnit(*control.field);
  if (!density || step == 0) return std::nullopt;
  return *density / static_cast<double>(step);
}

Measurement::Measurement(std::shared_ptr<const router::ReportDescriptor> descriptor,
                         microseconds gap)
    : decoder_(std::move(descriptor)), intervals_(gap) {
  for (Control& control : controlsOf(decoder_.descriptor())) {
    if (control.kind == Control::Kind::Axis) axes_.push_back({std::move(control)});
  }
}

void Measurement::take(microseconds time, std::span<const std::uint8_t> report) {
  ++reports_;
  intervals_.take(time);
  std::vector<std::uint8_t>& last = last_[decoder_.reportID(report) & 0xffU];
  const bool isRepeated = !report.empty() && std::ranges::equal(last, report);
  if (isRepeated) ++repeated_;
  last.assign(report.begin(), report.end());
  for (const auto& value : decoder_.decode(report)) {
    const auto axis = std::ranges::lower_bound(
        axes_, value.cookie, {}, [](const AxisUse& use) { return use.control.cookie; });
    if (axis != axes_.end() && axis->control.cookie == value.cookie) axis->take(value.integerValue);
  }
}

double Measurement::rate() const {
  const auto typical = intervals_.percentile(0.5).count();
  if (typical > 0) return 1e6 / static_cast<double>(typical);
  // Reports that come in bursts: their average.
  const auto total = static_cast<double>(intervals_.total().count());
  return total > 0 ? static_cast<double>(intervals_.count()) * 1e6 / total : 0;
}

std::string durationText(microseconds time) {
  const auto number = static_cast<double>(time.count());
  if (number < 1000) return std::to_string(time.count()) + " µs";
  if (number < 1e6) return stringWithFormat("%.3g ms", number / 1e3);
  return stringWithFormat("%.3g s", number / 1e6);
}

std::string verdictOn(const Measurement& measurement, const std::optional<Losses>& losses) {
  if (measurement.reports() == 0) return "no report came";
  if (!measurement.hasTimes())
    return counted(measurement.reports(), "report") + " without times; " + lossText(losses);
  const Intervals& intervals = measurement.intervals();
  const std::string gap = " over " + durationText(intervals.gap());
  return rateText(measurement.rate()) + "; " +
         (intervals.gaps() == 0 ? "no gap" : counted(intervals.gaps(), "gap")) + gap + "; " +
         lossText(losses);
}

std::string measurementText(const Measurement& measurement, const std::optional<Losses>& losses) {
  std::string text = "Verdict: " + verdictOn(measurement, losses) + "\n";
  if (measurement.reports() == 0) return text;
  text += "Reports: " + std::to_string(measurement.reports()) + ", of which " +
          std::to_string(measurement.repeated()) + " repeat the one before\n";
  if (measurement.hasTimes()) text += intervalText(measurement.intervals());
  if (!measurement.axes().empty()) text += "Axes:\n";
  for (const AxisUse& axis : measurement.axes()) text += axisText(axis);
  return text;
}

}  // namespace tool
