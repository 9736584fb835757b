// SPDX-License-Identifier: Apache-2.0

// Every line that the job daemon logs, one row per line. See platform/foundation/LogTemplate.h for
// the meaning of the placeholders.
//
// Paths and causes are {text}, and users are {private}: a diagnostic report shows neither. Of the
// labels it shows only the router's.
#pragma once

#include <array>

#include "platform/foundation/LogTemplate.h"

namespace jobd::row {

using platform::LogTemplate;

// clang-format off
inline constexpr LogTemplate cannotRun{"wlhid-jobd: {text}"};
inline constexpr LogTemplate cannotLaunch{"wlhid-launch: {text}"};
inline constexpr LogTemplate cannotWatch{"cannot watch the run directory: {text}"};
inline constexpr LogTemplate skipsJob{"skipping the job {label}: {text}"};
inline constexpr LogTemplate permissionGranted{"permission to change {label} granted to process {count} ({text}) of user {private}"};
inline constexpr LogTemplate permissionDenied{"permission to change {label} denied to process {count} ({text}) of user {private}"};
inline constexpr LogTemplate installed{"installed {label}"};
inline constexpr LogTemplate removed{"removed {label}"};
inline constexpr LogTemplate deviceGranted{"process {count} of user {private} has granted a device to user {private}: {text}"};
inline constexpr LogTemplate grantRevoked{"process {count} of user {private} has taken a device from user {private}: {text}"};
inline constexpr LogTemplate grantDenied{"process {count} of user {private} has not changed what is granted: {text}"};
inline constexpr LogTemplate cannotStopRouter{"cannot stop the running router: {text}"};
inline constexpr LogTemplate cannotStart{"cannot start {label}: {text}"};
inline constexpr LogTemplate jobExited{"{label}[{count}] exited with status {count}"};
inline constexpr LogTemplate jobKilled{"{label}[{count}] ended by signal {count}"};
inline constexpr LogTemplate linesLeftOut{"{count} lines of {label} were left out: it writes too much at a time"};
// clang-format on

/// All of the above.
inline constexpr std::array kTable{
    &cannotRun,         &cannotLaunch,     &cannotWatch, &skipsJob,
    &permissionGranted, &permissionDenied, &installed,   &removed,
    &deviceGranted,     &grantRevoked,     &grantDenied, &cannotStopRouter,
    &cannotStart,       &jobExited,        &jobKilled,   &linesLeftOut,
};

/// How the daemon's status describes a job's last end, without the job. Not lines of the log.
inline constexpr LogTemplate exited{"exited with status {count}"};
inline constexpr LogTemplate killed{"ended by signal {count}"};
inline constexpr LogTemplate notStarted{"could not be started: {text}"};
inline constexpr std::array kEnds{&exited, &killed, &notStarted};

}  // namespace jobd::row
