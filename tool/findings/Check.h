// SPDX-License-Identifier: Apache-2.0

// One thing that was checked, and what to do if it is not in order.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>

namespace tool {

struct Check {
  enum class State { Passed, Failed, NotAsked };
  std::string name;
  State state = State::NotAsked;
  std::string found;    ///< one clause
  std::string remedy;   ///< empty unless it failed
  std::string command;  ///< the part of it that can be pasted into a shell, or empty
};

[[nodiscard]] Check passed(std::string name, std::string found);
[[nodiscard]] Check failed(std::string name, std::string found, std::string_view remedy,
                           const std::string& command = {});
/// Neither in order nor not: it could not be checked, or is worth a note only.
[[nodiscard]] Check notAsked(std::string name, std::string why);

}  // namespace tool
