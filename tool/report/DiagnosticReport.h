// SPDX-License-Identifier: Apache-2.0

// A diagnostic report to attach to a bug report.
//
//   wlhid-report/summary.html            first: what is wrong, on one page
//   wlhid-report/doctor.txt              the verdict and its checks, for people
//   wlhid-report/presence.json           versions, and each step of the presence check
//   wlhid-report/jobs.json               jobs, endpoints and their owners, the router's sessions
//   wlhid-report/devices.json            what can be routed
//   wlhid-report/root.json               the system root's directory, its log and its disk
//   wlhid-report/trial.json              if a device was tried: how far it got
//   wlhid-report/modules/<id>/<file>     what the log modules offer: the excerpt of the system log,
//                                        the last lines of the framework's own log
//   wlhid-report/recordings/<id>.hid     with input only: the recordings that are set up as devices
//   wlhid-report/manifest.json           last: what is in the report, what is missing and why
//
// Without input it holds only literal text of this project and shown values (see ShownLines.h,
// ShownFindings.h, and Words in Check.h). With input everything goes in unchanged.
//
// Threading: the main thread.
// Ownership: the archive is the caller's.
// Errors: a part that is not available is listed in the manifest and does not affect the others.
//   Failure if the archive cannot be written.
// Order: as above.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "tool/report/ReportArchive.h"

namespace tool {

struct ReportRequest {
  platform::SystemRoot root;
  bool withInput = false;
  std::optional<std::uint64_t> deviceToTry;  ///< if empty, nothing is tried or started
  /// Called as each step begins; may be empty.
  std::function<void(std::string_view what)> onStep;
};

struct ReportPart {
  std::string name;
  std::string description;
  std::string category;
  std::uint64_t bytes = 0;
};

struct MissingPart {
  std::string part;
  std::string problem;
  std::string shownPart;               ///< its name for a report without input
  std::optional<std::int64_t> code{};  ///< of the error, if there was one
};

struct ReportResult {
  std::vector<ReportPart> parts;
  std::vector<MissingPart> missing;
  std::string manifest;  ///< as in the archive
};

/// How often onStep will be called, given the current modules.
[[nodiscard]] int reportSteps(const ReportRequest& request);
/// Writes all parts but does not finish the archive.
[[nodiscard]] ReportResult writeReport(const ReportRequest& request, ReportArchive& archive);

}  // namespace tool
