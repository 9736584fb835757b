// SPDX-License-Identifier: Apache-2.0

// The presence check, step by step: is the router installed and current, and if not, which step
// says no.
//
// The answer itself comes from the framework. The steps repeat what it examines, in the same order,
// to find out why; nothing is examined after the first step that says no.
//
// Threading: any thread.
// Errors: a step whose data cannot be read says no.
// Order: that of the framework's check.
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
  std::string found;  ///< what was found, or why nothing was; empty if not asked
};

struct PresenceCheck {
  bool installed = false;  ///< the framework's answer
  RouterVersions versions;
  std::vector<PresenceStep> steps;
};

/// Reads everything anew.
[[nodiscard]] PresenceCheck checkPresence();
/// The steps for the given versions.
[[nodiscard]] std::vector<PresenceStep> presenceSteps(const RouterVersions& versions);
/// "yes", "no", "not asked"
[[nodiscard]] std::string_view textOf(Answer answer);

}  // namespace tool
