// SPDX-License-Identifier: Apache-2.0

#include "examples/pen-canvas/PenCanvas.h"

#include <QMetaObject>
#include <QPainter>
#include <algorithm>

namespace {

constexpr wlhid::Usage kX{1, 0x30}, kY{1, 0x31}, kPressure{0x0d, 0x30}, kTip{0x0d, 0x42};
constexpr wlhid::Criterion kPen{.usagePage = 0x0d, .usage = 0x02};
constexpr double kMargin = 20, kThinnest = 0.6, kBroadest = 14;

std::optional<double> valueOf(std::span<const wlhid::Value> values, wlhid::Usage usage) {
  for (const wlhid::Value& value : values)
    if (value.usage == usage) return static_cast<double>(value.value);
  return std::nullopt;
}

}  // namespace

// The callbacks come on threads of the library's; what they bring is handed to the window's thread.
PenCanvas::PenCanvas(std::uint64_t device)
    : pen_({.device = device, .which = {.matching = {kPen}}},
           {.values =
                [this](std::span<const wlhid::Value> values) {
                  if (const auto point = pointIn(values))
                    QMetaObject::invokeMethod(this, [=, this] { add(*point); });
                },
            .status =
                [this](const wlhid::Status& status) {
                  QMetaObject::invokeMethod(
                      this, [this, text = QString::fromStdString(status.text)] { say(text); });
                }}) {
  setWindowTitle("Pen");
  resize(900, 600);
}

std::optional<PenCanvas::Point> PenCanvas::pointIn(std::span<const wlhid::Value> values) {
  const auto x = valueOf(values, kX), y = valueOf(values, kY);
  if (!x || !y) return std::nullopt;
  return Point{{*x, *y}, valueOf(values, kPressure).value_or(0), valueOf(values, kTip) == 1};
}

void PenCanvas::add(const Point& point) {
  reach_ = {std::max(reach_.x(), point.place.x()), std::max(reach_.y(), point.place.y())};
  mostPressure_ = std::max(mostPressure_, point.pressure);
  points_.push_back(point);
  update();
}

void PenCanvas::say(const QString& text) {
  status_ = text;
  update();
}

void PenCanvas::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillRect(rect(), Qt::white);
  painter.setPen(Qt::darkGray);
  painter.drawText(rect().adjusted(10, 10, -10, -10), Qt::AlignBottom | Qt::AlignLeft, status_);
  const double scale =
      std::min((width() - 2 * kMargin) / reach_.x(), (height() - 3 * kMargin) / reach_.y());
  const auto onSheet = [&](QPointF place) { return place * scale + QPointF(kMargin, kMargin); };
  for (std::size_t i = 1; i < points_.size(); ++i) {
    const Point &from = points_[i - 1], &to = points_[i];
    if (!from.touches || !to.touches) continue;
    const double share = to.pressure / mostPressure_;
    painter.setPen(QPen(QColor(0x20, 0x2a, 0x60), kThinnest + (kBroadest - kThinnest) * share,
                        Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(onSheet(from.place), onSheet(to.place));
  }
}
