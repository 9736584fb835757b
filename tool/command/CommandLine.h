// The whole command line of `wlhid`: global options, verbs, help, and how each way of failing is
// told.
#pragma once

namespace tool {

/// Runs what the command line asks for and returns the exit status (ExitStatus). Whatever is thrown
/// on the way becomes one line on standard error.
[[nodiscard]] int runCommandLine(int argc, const char* const* argv);

}  // namespace tool
