// SPDX-License-Identifier: Apache-2.0

// The reports of a recording as the script of its page reads them: compressed with gzip, in base64.
//
// Numbers have seven bits in each byte, the lowest first; a set eighth bit says that more follow.
//
//   number of reports
//   of each report: the time since the one before (only if the recording has times)
//   of each report: its length
//   of each report: its bytes, each combined by exclusive or with that of the last report of its ID
//                   (0 beyond its end); an ID byte itself is left as it is
//
// Threading: any thread.
// Errors: Failure if there is no memory.
#pragma once

#include <cstddef>
#include <string>

#include "tool/picture/PictureData.h"

namespace tool {

struct PackedReports {
  std::string text;
  std::size_t count = 0;  ///< of the first reports, that are in it
};

/// As many of the first reports as fit into so many characters.
[[nodiscard]] PackedReports packReports(const PictureReports& reports, bool usesReportIDs,
                                        std::size_t maximumCharacters);

}  // namespace tool
