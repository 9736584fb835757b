// SPDX-License-Identifier: Apache-2.0

// The whole command line of `wlhid`: global options, verbs, help and error messages.
#pragma once

#include <string>

#include "tool/command/Command.h"

namespace tool {

/// Fills `app` with the global options and all verbs. Parsing stores the system root in `root` and
/// the verb's action in `chosen`; all three must outlive it.
void describeCommand(CLI::App& app, std::string& root, Action& chosen);

/// Runs the command line and returns the exit status (ExitStatus). Any exception becomes one line
/// on standard error.
[[nodiscard]] int runCommandLine(int argc, const char* const* argv);

}  // namespace tool
