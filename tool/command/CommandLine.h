// SPDX-License-Identifier: Apache-2.0

// The whole command line of `wlhid`: global options, verbs, help and error messages.
#pragma once

namespace tool {

/// Runs the command line and returns the exit status (ExitStatus). Any exception becomes one line
/// on standard error.
[[nodiscard]] int runCommandLine(int argc, const char* const* argv);

}  // namespace tool
