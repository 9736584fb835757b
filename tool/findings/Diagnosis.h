// What is in order on a system root and what is not, with what to do about it.
//
// Threading: any thread. Ownership: values. Errors: none; they are what it tells of.
// Order: checks from what is needed first to what is needed last.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tool/findings/Inventory.h"

namespace tool {

struct Check {
  enum class State { Passed, Failed, NotAsked };
  std::string name;
  State state = State::NotAsked;
  std::string found;    ///< one clause
  std::string remedy;   ///< what to do; empty unless it failed
  std::string command;  ///< the part of it that can be given to a shell as it stands, or empty
};

struct Diagnosis {
  std::string verdict;  ///< one sentence
  bool inOrder = false;
  std::vector<Check> checks;
};

[[nodiscard]] Diagnosis diagnose(const Inventory& inventory);
/// "passed", "failed", "not asked"
[[nodiscard]] std::string_view textOf(Check::State state);
/// The verdict and a line for each check; `colours`: for a terminal that shows them.
[[nodiscard]] std::string linesOf(const Diagnosis& diagnosis, bool colours);

}  // namespace tool
