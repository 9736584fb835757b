// SPDX-License-Identifier: Apache-2.0

// One thing that was checked, and what to do if it is not in order.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// This program's own words: only a literal can become some. A diagnostic report shows them to
/// anybody.
class Words {
 public:
  consteval Words(const char* text) : text_(text) {}  // NOLINT: implicit on purpose
  [[nodiscard]] constexpr std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

struct Check {
  enum class State { Passed, Failed, NotAsked };
  std::string name;
  State state = State::NotAsked;
  std::string found;    ///< one clause
  std::string remedy;   ///< empty unless it failed
  std::string command;  ///< the part of it that can be pasted into a shell, or empty
  // The same without paths, names and other values; empty unless it failed.
  std::string_view fault{};   ///< `found`
  std::string_view advice{};  ///< `remedy`
};

[[nodiscard]] Check passed(std::string name, std::string found);
[[nodiscard]] Check failed(std::string name, Words fault, std::string found, Words remedy,
                           const std::string& command = {});
/// Where there is no more to say than the fault.
[[nodiscard]] Check failed(std::string name, Words fault, Words remedy,
                           const std::string& command = {});
/// Neither in order nor not: it could not be checked, or is worth a note only.
[[nodiscard]] Check notAsked(std::string name, std::string why);

}  // namespace tool
