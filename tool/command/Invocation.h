// SPDX-License-Identifier: Apache-2.0

// How this command was invoked, so that suggested commands can be pasted into a shell.
//
// Threading: set once, on the main thread, before anything else; read from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// `program`: the command's name as typed (argv[0]). `rootIsNamed`: whether an option or the
/// environment names the root, so that a command without either would use another one.
void setInvocation(std::string program, bool rootIsNamed);

/// A shell command line that runs this command on the current system root: "wlhid install", or
/// "build/wlhid --root '/a root' install" if necessary.
[[nodiscard]] std::string commandLine(const std::vector<std::string>& arguments);
/// The same on the user's own system root, whatever the current one is.
[[nodiscard]] std::string commandLineOnOwnRoot(const std::vector<std::string>& arguments);
/// One word of a shell command line, quoted if necessary. It contains no control characters.
[[nodiscard]] std::string shellWord(std::string_view text);

}  // namespace tool
