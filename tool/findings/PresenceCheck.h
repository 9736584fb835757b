// The presence check, step by step: is the router installed and current, and if not, which step
// says no.
//
// The answer itself is the framework's. The steps repeat what it looks at, in its order, to tell
// why; nothing is looked at behind the first step that says no.
//
// Threading: any thread. Ownership: values. Errors: what cannot be read makes its step say no.
// Order: as the check goes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tool/findings/RouterVersions.h"

namespace tool {

enum class Answer { Yes, No, NotAsked };

struct PresenceStep {
  std::string_view name;      ///< for programs: "job", "versionsEqual"
  std::string_view question;  ///< for people
  Answer answer = Answer::NotAsked;
  std::string found;  ///< what is there, or why not; empty where it was not asked
};

struct PresenceCheck {
  bool installed = false;  ///< the framework's answer
  RouterVersions versions;
  std::vector<PresenceStep> steps;
};

/// Read afresh.
[[nodiscard]] PresenceCheck checkPresence();
/// The steps for what was read.
[[nodiscard]] std::vector<PresenceStep> presenceSteps(const RouterVersions& versions);
/// "yes", "no", "not asked"
[[nodiscard]] std::string_view textOf(Answer answer);

}  // namespace tool
