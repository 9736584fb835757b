// SPDX-License-Identifier: Apache-2.0

// Every line that the router logs, one row per line. See platform/foundation/LogTemplate.h for the
// meaning of the placeholders.
//
// Names of devices and files, paths and causes are {text}, and users are {private}: a diagnostic
// report shows neither.
#pragma once

#include <array>

#include "platform/foundation/LogTemplate.h"

namespace router::row {

using platform::LogTemplate;

// clang-format off
inline constexpr LogTemplate begins{"router {version} started: root {text}, {count} devices"};
inline constexpr LogTemplate ends{"router ends"};
inline constexpr LogTemplate cannotRun{"the router cannot run: {text}"};
inline constexpr LogTemplate noEndpoint{"no endpoint was passed for {label}: {text}"};
inline constexpr LogTemplate idle{"nobody is connected"};
inline constexpr LogTemplate sessionsLeft{"{count} sessions did not end in time"};
inline constexpr LogTemplate linesLeftOut{"{count} lines about user {private} were left out"};
inline constexpr LogTemplate linesNotWritten{"{count} lines were left out: the log could not be written, or not fast enough"};
inline constexpr LogTemplate refused{"refused: process {count} of user {private}"};
inline constexpr LogTemplate tooManyConnections{"refused: user {private} has more than {count} connections"};
inline constexpr LogTemplate ignored{"ignored: {text}"};
inline constexpr LogTemplate noStatus{"cannot write the status file: {text}"};

inline constexpr LogTemplate grantsIgnored{"the administrator's grants are not used: {text}"};
inline constexpr LogTemplate routingGranted{"process {count} of user {private} may have {device} ({text})"};
inline constexpr LogTemplate routingDenied{"process {count} of user {private} may not have {device}: {text}"};
inline constexpr LogTemplate routingBegun{"process {count} of user {private} receives the input of {device} ({text})"};
inline constexpr LogTemplate routingRevoked{"process {count} of user {private} may no longer have {device}: {text}"};
inline constexpr LogTemplate routingEnded{"process {count} of user {private} no longer has {device} ({text})"};

inline constexpr LogTemplate sessionBegins{"session {count} (process {count}, user {private}) begins"};
inline constexpr LogTemplate sessionRoutes{"session {count} (process {count}, user {private}): routes {device} ({text})"};
inline constexpr LogTemplate sessionRoutesAlone{"session {count} (process {count}, user {private}): routes {device} ({text}) exclusively"};
inline constexpr LogTemplate sessionCannotRoute{"session {count} (process {count}, user {private}): cannot route: Error Domain=HIDEventRouterDomain Code={code} {text}"};
inline constexpr LogTemplate sessionRevoked{"session {count} (process {count}, user {private}): no longer routes {device}: {text}"};
inline constexpr LogTemplate sessionStops{"session {count} (process {count}, user {private}): stops"};
inline constexpr LogTemplate sessionTooSlow{"session {count} (process {count}, user {private}) is too slow: {count} more reports lost, {count} in all"};
inline constexpr LogTemplate sessionLinesLeftOut{"session {count} (process {count}, user {private}): {count} lines about it were left out"};
inline constexpr LogTemplate sessionEndedFor{"session {count} (process {count}, user {private}) is ended on request of process {count} of user {private}"};
inline constexpr LogTemplate endRefused{"process {count} of user {private} may not end session {count}: {text}"};
inline constexpr LogTemplate sessionEnds{"session {count} (process {count}, user {private}): has ended"};

inline constexpr LogTemplate watcherTooSlow{"process {count} of user {private} does not read what the device directory tells it and is disconnected"};

inline constexpr LogTemplate deviceFails{"{device}: {text}"};
inline constexpr LogTemplate deviceGone{"{device} ({text}) has gone away"};
inline constexpr LogTemplate devicePlayed{"{device} ({text}): the recording has been played to its end"};
// clang-format on

/// All of the above.
inline constexpr std::array kTable{
    &begins,
    &ends,
    &cannotRun,
    &noEndpoint,
    &idle,
    &sessionsLeft,
    &linesLeftOut,
    &linesNotWritten,
    &refused,
    &tooManyConnections,
    &ignored,
    &noStatus,
    &grantsIgnored,
    &routingGranted,
    &routingDenied,
    &routingBegun,
    &routingRevoked,
    &routingEnded,
    &sessionBegins,
    &sessionRoutes,
    &sessionRoutesAlone,
    &sessionCannotRoute,
    &sessionRevoked,
    &sessionStops,
    &sessionTooSlow,
    &sessionLinesLeftOut,
    &sessionEndedFor,
    &endRefused,
    &sessionEnds,
    &watcherTooSlow,
    &deviceFails,
    &deviceGone,
    &devicePlayed,
};

}  // namespace router::row
