// SPDX-License-Identifier: Apache-2.0

// The completion for bash, from the parser's tables.
//
// Threading: any thread.
#pragma once

#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace tool {

/// Completes verbs, nested verbs and options; a file's name after an option that takes one and for
/// the arguments of a verb that has some.
[[nodiscard]] std::string bashCompletion(const CLI::App& app);

}  // namespace tool
