// SPDX-License-Identifier: Apache-2.0

// The charts of a recording. However many reports there are, a chart has a few points for each of
// its pixels.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/picture/PictureData.h"
#include "tool/picture/Svg.h"

namespace tool {

inline constexpr int kChartWidth = 960;
inline constexpr int kPlotLeft = 120;  ///< labels stand left of it
inline constexpr int kPlotRight = 950;
inline constexpr int kAxisHeight = 110;
inline constexpr int kAxisTop = 8;  ///< of the plot in it
inline constexpr int kAxisBottom = kAxisHeight - 22;
inline constexpr int kRowHeight = 18;  ///< of a button

/// The way of the first two axes called X and Y, darker and wider with pressure; without a pressure
/// axis, while the tip or the first button is down, if either ever is. Nothing if there are no such
/// axes.
[[nodiscard]] std::optional<Chart> pathChart(const PictureData& data);
/// What the kinds of its lines mean; empty if there is only one.
[[nodiscard]] std::string legendOfPath(const PictureData& data);
/// The values of an axis over time.
[[nodiscard]] Chart axisChart(const AxisTrack& track, const PictureReports& reports);
/// When the buttons and keys were down that ever were. Nothing if none was.
[[nodiscard]] std::optional<Chart> switchChart(const PictureData& data);
/// The height at which the bars of a row of it are.
[[nodiscard]] double switchRowCentre(std::size_t row);
/// How often which time passed between two reports. Nothing without times.
[[nodiscard]] std::optional<Chart> intervalChart(const PictureData& data);

/// The axes that moved, and the buttons and keys that were ever down; at most 32 and 64.
[[nodiscard]] std::vector<const AxisTrack*> movingAxes(const PictureData& data);
[[nodiscard]] std::vector<const SwitchTrack*> usedSwitches(const PictureData& data);

/// All of them, with file names.
[[nodiscard]] std::vector<Chart> allCharts(const PictureData& data);

}  // namespace tool
