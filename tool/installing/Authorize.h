// Who answers the authorization question: the person at the terminal, or the command line.
//
// Threading: the main thread, before the framework is asked to install or remove.
// Errors: UsageFailure on a system root, where the answer is not the command line's to give.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace tool {

/// Adds --prompt and --authorize.
void addAuthorizationOptions(CLI::App& verb, std::string& prompt, std::string& answer);
/// "allow", "deny" or "cancel"; empty leaves the question to the terminal.
void applyAuthorizationAnswer(const std::string& answer);

}  // namespace tool
