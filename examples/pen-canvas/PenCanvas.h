// SPDX-License-Identifier: Apache-2.0

// A sheet of paper: what a pen draws, broader the harder it is pressed, and at the bottom what its
// input is doing. The sheet shows all that the pen has reached so far, whatever its resolution.
#pragma once

#include <QPointF>
#include <QString>
#include <QWidget>
#include <optional>
#include <vector>

#include "WLHIDAccess/Input.h"

class PenCanvas final : public QWidget {
 public:
  /// Of the device with that ID; 0: the first pen.
  explicit PenCanvas(std::uint64_t device);
  [[nodiscard]] const QString& status() const { return status_; }
  [[nodiscard]] std::size_t pointCount() const { return points_.size(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  struct Point {
    QPointF place;
    double pressure = 0;
    bool touches = false;
  };
  static std::optional<Point> pointIn(std::span<const wlhid::Value> values);
  void add(const Point& point);
  void say(const QString& text);

  std::vector<Point> points_;
  QPointF reach_{1, 1};
  double mostPressure_ = 1;
  QString status_;
  wlhid::Input pen_;  // the last, so that it ends before what its callbacks use
};
