// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/PresenceCheck.h"

#include "WLHIDAccess/WLHIDEventRouterClient.h"

namespace tool {

namespace {

/// Collects steps; after the first "no" nothing more is asked.
class Steps {
 public:
  void ask(std::string_view name, std::string_view question, bool yes, std::string found) {
    PresenceStep step{name, question, Answer::NotAsked, {}};
    if (!stopped_) {
      step.answer = yes ? Answer::Yes : Answer::No;
      step.found = std::move(found);
      stopped_ = !yes;
    }
    steps_.push_back(std::move(step));
  }
  [[nodiscard]] std::vector<PresenceStep> take() { return std::move(steps_); }

 private:
  bool stopped_ = false;
  std::vector<PresenceStep> steps_;
};

/// `whenYes`, or why reading the copy got no further.
std::string found(const RouterCopy& copy, CopyState needed, const std::string& whenYes) {
  return copy.state >= needed ? whenYes : copy.problem;
}

bool areEqual(const RouterCopy& installed, const RouterCopy& bundle) {
  return installed.versionValue && bundle.versionValue &&
         installed.versionValue->isEqual(bundle.versionValue);
}

std::string compared(const RouterCopy& installed, const RouterCopy& bundle) {
  if (areEqual(installed, bundle)) return "both are " + bundle.version;
  std::string text =
      "version " + installed.version + " is installed, this program carries " + bundle.version;
  if (installed.version == bundle.version) text += ", as values of different types";
  return text;
}

}  // namespace

std::vector<PresenceStep> presenceSteps(const RouterVersions& versions) {
  const RouterCopy& bundle = versions.bundle;
  const RouterCopy installed = versions.installed.value_or(RouterCopy());
  Steps steps;
  steps.ask("job", "Is there a job?", versions.installed.has_value(),
            versions.installed ? "yes" : versions.jobProblem);
  steps.ask("executablePath", "Does it name its executable?", installed.state > CopyState::NoPath,
            found(installed, CopyState::Unreadable, installed.path));
  steps.ask("ownCopy", "Can the own copy be read?", bundle.state > CopyState::Unreadable,
            found(bundle, CopyState::NoEmbeddedList, bundle.path));
  steps.ask("ownCopyList", "Does the own copy have an embedded property list?",
            bundle.state > CopyState::NoEmbeddedList, found(bundle, CopyState::BadList, "yes"));
  steps.ask("installedCopy", "Can the installed copy be read?",
            installed.state > CopyState::Unreadable,
            found(installed, CopyState::NoEmbeddedList, installed.path));
  steps.ask("installedCopyList", "Does the installed copy have an embedded property list?",
            installed.state > CopyState::NoEmbeddedList,
            found(installed, CopyState::BadList, "yes"));
  steps.ask("ownCopyListReadable", "Can the own copy's list be read?",
            bundle.state > CopyState::BadList, found(bundle, CopyState::NoVersion, "yes"));
  steps.ask("installedCopyListReadable", "Can the installed copy's list be read?",
            installed.state > CopyState::BadList, found(installed, CopyState::NoVersion, "yes"));
  steps.ask("installedVersion", "Does the installed copy have a version?",
            installed.state == CopyState::Complete,
            found(installed, CopyState::Complete, installed.version));
  steps.ask("ownVersion", "Does the own copy have a version?", bundle.state == CopyState::Complete,
            found(bundle, CopyState::Complete, bundle.version));
  steps.ask("versionsEqual", "Are the versions equal?", areEqual(installed, bundle),
            compared(installed, bundle));
  return steps.take();
}

PresenceCheck checkPresence() {
  PresenceCheck check{WLHIDEventRouterClient::isInstalled(), readRouterVersions(), {}};
  check.steps = presenceSteps(check.versions);
  return check;
}

std::string_view textOf(Answer answer) {
  switch (answer) {
    case Answer::Yes:
      return "yes";
    case Answer::No:
      return "no";
    case Answer::NotAsked:
      break;
  }
  return "not asked";
}

}  // namespace tool
