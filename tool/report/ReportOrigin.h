// SPDX-License-Identifier: Apache-2.0

// When and where a report is made.
//
// Threading: any thread.
#pragma once

#include <string>

namespace tool {

struct ReportOrigin {
  std::string time;  ///< "2026-11-22T18:10:16Z"
  std::string tool;  ///< "wlhid 1.0"
  std::string kernel;
  std::string machine;
  std::string distribution;  ///< as it calls itself; empty if it does not say
};

/// Unless `whole`, the kernel has only the leading numbers of its release: whoever built it may
/// have added anything.
[[nodiscard]] ReportOrigin originOf(bool whole);

}  // namespace tool
