// How the person called this command, so that advice can be typed as it stands.
//
// Threading: set once, on the main thread, before anything else; read from any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// `program`: the command's name as it was typed (its argv[0]). `rootIsNamed`: by an option or by
/// the environment, so that a command without either would be on another root.
void setInvocation(std::string program, bool rootIsNamed);

/// A command line of this command on the current system root, for a shell: "wlhid install", or
/// "build/wlhid --root '/a root' install" where that is what it takes.
[[nodiscard]] std::string commandLine(const std::vector<std::string>& arguments);
/// The same on the user's own system root, whatever the current one is.
[[nodiscard]] std::string commandLineOnOwnRoot(const std::vector<std::string>& arguments);
/// One word of a shell's command line, quoted where need be. No character in it is one that a
/// terminal obeys.
[[nodiscard]] std::string shellWord(std::string_view text);

}  // namespace tool
