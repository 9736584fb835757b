// What the router tells whoever keeps its log: lines of its table (router/LogTable.h), never the
// content of a report.
//
// Threading: a sink is called from any thread, with no lock held.
// Order: each thread's own.
#pragma once

#include <functional>

#include "router/LogTable.h"

namespace router {

using RouterLog = std::function<void(const platform::LogLine&)>;

/// One write to standard error a line, which the job daemon or the journal keeps.
void logToStandardError(const platform::LogLine& line);

}  // namespace router
