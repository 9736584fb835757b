// What the router tells whoever keeps its log: plain one-line entries, never the content of a
// report.
//
// Threading: a sink is called from any thread, with no lock held.
// Order: each thread's own.
#pragma once

#include <functional>
#include <string_view>

namespace router {

/// Receives one line, without line feed.
using RouterLog = std::function<void(std::string_view)>;

/// One write to standard error a line, which the job daemon or the journal keeps.
void logToStandardError(std::string_view line);

}  // namespace router
