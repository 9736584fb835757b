// SPDX-License-Identifier: Apache-2.0

#include "tool/picture/SvgCharts.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "input/UsageNames.h"
#include "platform/foundation/Format.h"
#include "tool/descriptor/UnitNames.h"

namespace tool {

namespace {

constexpr std::size_t kMaxCharts = 32;
constexpr std::size_t kMaxRows = 64;
constexpr int kRowsTop = 4;
constexpr double kPathSize = 640;
constexpr double kMargin = 12;
constexpr int kLevels = 8;  // of pressure

using platform::stringWithFormat;

std::string textAt(double x, double y, const std::string& anchor, const std::string& text) {
  std::string element = "<text x=\"";
  appendCoordinate(element, x);
  element += "\" y=\"";
  appendCoordinate(element, y);
  return element + "\" class=\"" + anchor + "\">" + escaped(text) + "</text>";
}

std::string rectangle(double x, double y, double width, double height, const std::string& kind) {
  std::string element = "<rect class=\"" + kind + "\" x=\"";
  appendCoordinate(element, x);
  element += "\" y=\"";
  appendCoordinate(element, y);
  element += "\" width=\"";
  appendCoordinate(element, width);
  element += "\" height=\"";
  appendCoordinate(element, height);
  return element + "\"/>";
}

std::string timeText(const PictureReports& reports, std::int64_t time) {
  if (!reports.hasTimes) return "report " + std::to_string(time);
  return stringWithFormat("%.3f s", static_cast<double>(time) / 1e6);
}

Scale timeScale(const PictureReports& reports) {
  return {0, static_cast<double>(std::max<std::int64_t>(reports.end(), 1)), kPlotLeft, kPlotRight};
}

std::string timeLabels(const PictureReports& reports, double y) {
  return textAt(kPlotLeft, y, "start", timeText(reports, 0)) +
         textAt(kPlotRight, y, "end", timeText(reports, reports.end()));
}

/// A line through points, of which no more are kept than can be told apart: in each column of
/// pixels the first, the lowest, the highest and the last.
class ColumnLine {
 public:
  void add(double x, double y) {
    if (std::floor(x) != column_) {
      flush();
      column_ = std::floor(x);
      first_ = low_ = high_ = y;
      x_ = x;
      count_ = 0;
    }
    low_ = std::min(low_, y);
    high_ = std::max(high_, y);
    last_ = y;
    ++count_;
  }
  std::string take() {
    flush();
    return std::move(path_);
  }

 private:
  void flush() {
    if (count_ == 0) return;
    path_ += path_.empty() ? 'M' : 'L';
    appendCoordinate(path_, x_);
    path_ += ' ';
    appendCoordinate(path_, first_);
    for (const double y : {low_, high_, last_}) {
      if (count_ == 1) break;
      path_ += 'V';
      appendCoordinate(path_, y);
    }
  }

  std::string path_;
  double column_ = -std::numeric_limits<double>::infinity();
  double x_ = 0;
  double first_ = 0;
  double low_ = 0;
  double high_ = 0;
  double last_ = 0;
  std::size_t count_ = 0;
};

Scale valueScale(const AxisTrack& track, double top, double bottom) {
  const auto [low, high] = std::ranges::minmax_element(track.values);
  return {static_cast<double>(*low), static_cast<double>(*high), bottom, top};
}

/// A bar for each time when the switch was down; those that cannot be told apart are one.
std::string barsOf(const SwitchTrack& track, const Scale& x, double y) {
  std::string path;
  double end = -1;
  for (const auto& span : track.spans) {
    const double from = std::max(x(static_cast<double>(span.from)), end);
    const double to = std::max(x(static_cast<double>(span.to)), from + 1);
    if (to <= end + 1) continue;
    path += 'M';
    appendCoordinate(path, from);
    path += ' ';
    appendCoordinate(path, y);
    path += 'H';
    appendCoordinate(path, to);
    end = to;
  }
  return path;
}

// ---- The path

struct PathPoint {
  double x = 0;
  double y = 0;
  int level = 0;
  std::uint32_t report = 0;
};

const AxisTrack* axisWith(const PictureData& data, std::uint32_t page, std::uint32_t usage) {
  const auto found = std::ranges::find_if(data.axes, [&](const AxisTrack& axis) {
    return axis.control.usage == router::Usage{page, usage} && !axis.values.empty();
  });
  return found == data.axes.end() ? nullptr : &*found;
}

/// Whether the pen touches, or the first button is down, at a time.
class Touching {
 public:
  explicit Touching(const PictureData& data) {
    for (const router::Usage usage :
         {router::Usage{wlhid::kDigitizerPage, 0x42}, router::Usage{wlhid::kButtonPage, 1}}) {
      const auto found = std::ranges::find_if(data.switches, [&](const SwitchTrack& track) {
        return track.control.usage == usage && !track.spans.empty();
      });
      if (found == data.switches.end()) continue;
      spans_ = found->spans;
      name_ = found->control.name;
      return;
    }
  }
  [[nodiscard]] bool isKnown() const { return !spans_.empty(); }
  /// Of what tells it.
  [[nodiscard]] const std::string& name() const { return name_; }
  bool at(std::int64_t time) {
    while (next_ < spans_.size() && spans_[next_].to <= time) ++next_;
    return next_ < spans_.size() && spans_[next_].from <= time;
  }

 private:
  std::vector<SwitchTrack::Span> spans_;
  std::string name_;
  std::size_t next_ = 0;
};

/// Null if there is none that changes.
const AxisTrack* pressureOf(const PictureData& data) {
  const AxisTrack* const pressure = axisWith(data, wlhid::kDigitizerPage, 0x30);
  return pressure != nullptr && pressure->moves() ? pressure : nullptr;
}

/// The level of each report: from the pressure axis, or from what is down.
std::vector<int> levelsOf(const PictureData& data) {
  std::vector<int> levels(data.reports.count(), 0);
  const AxisTrack* const pressure = pressureOf(data);
  if (pressure == nullptr) {
    Touching touching(data);
    for (std::size_t i = 0; i < levels.size(); ++i)
      levels[i] = !touching.isKnown() || touching.at(data.reports.times[i]) ? kLevels / 2 : 0;
    return levels;
  }
  const Scale scale = valueScale(*pressure, kLevels - 1, 0);
  for (std::size_t i = 0; i < pressure->values.size(); ++i)
    levels[pressure->reports[i]] =
        static_cast<int>(std::ceil(scale(static_cast<double>(pressure->values[i]))));
  return levels;
}

std::vector<PathPoint> pointsOf(const AxisTrack& x, const AxisTrack& y,
                                const std::vector<int>& levels) {
  std::vector<PathPoint> points;
  double sumX = 0;
  double sumY = 0;
  std::size_t j = 0;
  for (std::size_t i = 0; i < x.values.size(); ++i) {
    while (j < y.reports.size() && y.reports[j] < x.reports[i]) ++j;
    if (j == y.reports.size()) break;
    if (y.reports[j] != x.reports[i]) continue;  // another report's Y
    const auto valueX = static_cast<double>(x.values[i]);
    const auto valueY = static_cast<double>(y.values[j]);
    sumX = x.control.field->relative ? sumX + valueX : valueX;
    sumY = y.control.field->relative ? sumY + valueY : valueY;
    points.push_back({sumX, sumY, levels[x.reports[i]], x.reports[i]});
  }
  return points;
}

/// Where points are drawn: both directions to the same scale, so that a circle is one.
struct PathFrame {
  Scale x;
  Scale y;
  double height = kPathSize;
};

PathFrame frameOf(const std::vector<PathPoint>& points) {
  const auto [left, right] = std::ranges::minmax(points, {}, &PathPoint::x);
  const auto [top, bottom] = std::ranges::minmax(points, {}, &PathPoint::y);
  const double width = std::max(right.x - left.x, 1.0);
  const double height = std::max(bottom.y - top.y, 1.0);
  const double space = kPathSize - 2 * kMargin;
  const double factor = std::min((kChartWidth - 2 * kMargin) / width, space / height);
  return {{left.x, left.x + width, kMargin, kMargin + width * factor},
          {top.y, top.y + height, kMargin, kMargin + height * factor},
          height * factor + 2 * kMargin};
}

/// One line for each stretch of the same pressure, with points at least a pixel apart.
class PathLines {
 public:
  void add(double x, double y, int level) {
    const bool isClose = std::hypot(x - x_, y - y_) < 1;
    if (level == level_ && isClose) return;
    if (level != level_ || points_ == kMostPoints) begin(level);
    append(x, y);
  }
  std::string take() {
    finish();
    return std::move(lines_);
  }

 private:
  static constexpr std::size_t kMostPoints = 2000;  // of a line, so that no element is huge

  void begin(int level) {
    finish();
    const bool follows = level_ >= 0;
    level_ = level;
    if (follows) append(x_, y_);
  }
  void append(double x, double y) {
    line_ += line_.empty() ? 'M' : 'L';
    appendCoordinate(line_, x);
    line_ += ' ';
    appendCoordinate(line_, y);
    x_ = x;
    y_ = y;
    ++points_;
  }
  void finish() {
    if (points_ > 1)
      lines_ += "<path class=\"way p" + std::to_string(level_) + "\" d=\"" + line_ + "\"/>";
    line_.clear();
    points_ = 0;
  }

  std::string lines_;
  std::string line_;
  std::size_t points_ = 0;
  double x_ = -1e9;
  double y_ = -1e9;
  int level_ = -1;
};

/// Every so manieth point, so that the page stays small.
std::size_t strideFor(std::size_t points) {
  constexpr std::size_t kMostPoints = 20'000;
  return points / kMostPoints + 1;
}

}  // namespace

std::vector<const AxisTrack*> movingAxes(const PictureData& data) {
  std::vector<const AxisTrack*> moving;
  for (const AxisTrack& axis : data.axes) {
    if (axis.moves() && moving.size() < kMaxCharts) moving.push_back(&axis);
  }
  return moving;
}

std::vector<const SwitchTrack*> usedSwitches(const PictureData& data) {
  std::vector<const SwitchTrack*> used;
  for (const SwitchTrack& track : data.switches) {
    if (!track.spans.empty() && used.size() < kMaxRows) used.push_back(&track);
  }
  return used;
}

std::optional<Chart> pathChart(const PictureData& data) {
  const AxisTrack* x = axisWith(data, wlhid::kGenericDesktopPage, 0x30);
  const AxisTrack* y = axisWith(data, wlhid::kGenericDesktopPage, 0x31);
  if (x == nullptr || y == nullptr || (!x->moves() && !y->moves())) return std::nullopt;
  const std::vector<PathPoint> points = pointsOf(*x, *y, levelsOf(data));
  if (points.size() < 2) return std::nullopt;
  const PathFrame frame = frameOf(points);
  PathLines lines;
  for (std::size_t i = 0; i < points.size(); i += strideFor(points.size()))
    lines.add(frame.x(points[i].x), frame.y(points[i].y), points[i].level);
  return Chart{"path", "Path of X and Y", kChartWidth, static_cast<int>(std::ceil(frame.height)),
               lines.take()};
}

std::string legendOfPath(const PictureData& data) {
  if (pressureOf(data) != nullptr) return "Wider with pressure; dashed where there is none.";
  const Touching touching(data);
  return touching.isKnown() ? "Dashed while " + touching.name() + " is up." : std::string();
}

Chart axisChart(const AxisTrack& track, const PictureReports& reports) {
  const Scale x = timeScale(reports);
  const Scale y = valueScale(track, kAxisTop, kAxisBottom);
  ColumnLine line;
  for (std::size_t i = 0; i < track.values.size(); ++i)
    line.add(x(static_cast<double>(reports.times[track.reports[i]])),
             y(static_cast<double>(track.values[i])));
  std::string body =
      rectangle(kPlotLeft, kAxisTop, kPlotRight - kPlotLeft, kAxisBottom - kAxisTop, "plot");
  body += "<path class=\"line\" d=\"" + line.take() + "\"/>";
  body += textAt(0, (kAxisTop + kAxisBottom) / 2.0 + 4, "start name", track.control.name);
  body += textAt(kPlotLeft - 6, kAxisTop + 9, "end", stringWithFormat("%.0f", y.to));
  body += textAt(kPlotLeft - 6, kAxisBottom, "end", stringWithFormat("%.0f", y.from));
  body += "<g class=\"times\">" + timeLabels(reports, kAxisHeight - 6) + "</g>";
  return {"", track.control.name + " over time", kChartWidth, kAxisHeight, body};
}

double switchRowCentre(std::size_t row) {
  return kRowsTop + kRowHeight * static_cast<double>(row) + (kRowHeight - 3) / 2.0;
}

std::optional<Chart> switchChart(const PictureData& data) {
  const auto used = usedSwitches(data);
  if (used.empty()) return std::nullopt;
  const Scale x = timeScale(data.reports);
  std::string body;
  for (std::size_t i = 0; i < used.size(); ++i) {
    const double top = kRowsTop + kRowHeight * static_cast<double>(i);
    body += textAt(0, top + kRowHeight - 5, "start name", used[i]->control.name) +
            rectangle(kPlotLeft, top, kPlotRight - kPlotLeft, kRowHeight - 3, "plot") +
            "<path class=\"bar\" d=\"" + barsOf(*used[i], x, switchRowCentre(i)) + "\"/>";
  }
  const int bottom = kRowsTop + kRowHeight * static_cast<int>(used.size());
  body += "<g class=\"times\">" + timeLabels(data.reports, bottom + 14) + "</g>";
  return Chart{"buttons", "Buttons and keys over time", kChartWidth, bottom + 20, body};
}

std::optional<Chart> intervalChart(const PictureData& data) {
  const Intervals& intervals = data.measurement.intervals();
  const auto bars = intervals.histogram();
  if (!data.reports.hasTimes || bars.empty()) return std::nullopt;
  constexpr double kTop = 20;
  constexpr double kBottom = 180;
  const double width =
      std::min(80.0, static_cast<double>(kChartWidth) / static_cast<double>(bars.size()));
  const auto most = std::ranges::max(bars, {}, &Intervals::Bar::count).count;
  const Scale height{0, static_cast<double>(most), 0, kBottom - kTop};
  std::string body;
  double x = 0;
  for (const auto& bar : bars) {
    const double tall =
        std::max(height(static_cast<double>(bar.count)), bar.count == 0 ? 0.0 : 1.0);
    body += rectangle(x + 2, kBottom - tall, width - 4, tall, "down");
    body += textAt(x + width / 2, kBottom - tall - 4, "middle", std::to_string(bar.count));
    body += textAt(x + width / 2, kBottom + 16, "middle", "< " + durationText(bar.to));
    x += width;
  }
  return Chart{"intervals", "Times between reports", kChartWidth, 204, body};
}

std::vector<Chart> allCharts(const PictureData& data) {
  std::vector<Chart> charts;
  const auto add = [&](std::optional<Chart> chart) {
    if (chart) charts.push_back(std::move(*chart));
  };
  add(pathChart(data));
  int number = 0;
  for (const AxisTrack* axis : movingAxes(data)) {
    Chart chart = axisChart(*axis, data.reports);
    chart.file = "axis-" + std::to_string(++number);
    charts.push_back(std::move(chart));
  }
  add(switchChart(data));
  add(intervalChart(data));
  return charts;
}

}  // namespace tool
