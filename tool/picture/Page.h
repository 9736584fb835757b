// SPDX-License-Identifier: Apache-2.0

// The page of a recording: one file, which a browser shows without a network.
//
// Everything can be seen without the script; it adds zooming and the table of reports. The page
// allows its browser nothing but its own style and the one script, which is named by its hash: text
// from a device that got into the page as markup could not run or load anything.
//
// Threading: any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tool/picture/PictureData.h"

namespace tool {

/// The most that a page has. If not all reports fit, the table has the first ones, and says so.
inline constexpr std::size_t kMaxPageBytes = std::size_t{3} << 20;

extern const std::string_view kChartStyle;  ///< of the charts, in a page or alone
extern const std::string_view kPageStyle;   ///< of everything else
extern const std::string_view kPageScript;
extern const std::string_view kPageScriptHash;  ///< as the content security policy names it

[[nodiscard]] std::string pageOf(const PictureData& data);

}  // namespace tool
