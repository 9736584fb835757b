// SPDX-License-Identifier: Apache-2.0

// Where the router logs: lines of its table (router/LogTable.h), never the content of a report.
//
// Threading: a sink is called from any thread, with no lock held.
// Order: kept within each thread.
#pragma once

#include <functional>

#include "platform/foundation/LogTemplate.h"
#include "router/LogTable.h"

namespace router {

using RouterLog = std::function<void(const platform::LogLine&)>;

/// One write to standard error per line, for the job daemon or the journal to collect.
void logToStandardError(const platform::LogLine& line);

}  // namespace router
