// SPDX-License-Identifier: Apache-2.0

// Who answers the authorization prompt: the person at the terminal or the command line.
//
// Threading: the main thread, before the framework is asked to install or remove.
// Errors: UsageFailure on the system's own root, where the command line may not answer.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace tool {

/// Adds --prompt and --authorize.
void addAuthorizationOptions(CLI::App& verb, std::string& prompt, std::string& answer);
/// "allow", "deny" or "cancel"; if empty, the person at the terminal is asked.
void applyAuthorizationAnswer(const std::string& answer);

}  // namespace tool
