// SPDX-License-Identifier: Apache-2.0

#include "jobd/PolkitAuthority.h"

#include <array>
#include <utility>

#include "platform/system/PeerProcess.h"
#include "platform/system/PromptText.h"

namespace jobd {
namespace {

using platform::system::PeerProcess;
using platform::system::PolkitAnswer;

constexpr std::size_t kMaximumPromptCharacters = 200;

struct RightNames {
  const char* action;
  const char* words;
};

/// In the order of Right.
constexpr std::array kRights{
    RightNames{"com.quillmar.hideventrouter.install", "install or replace the HID event router"},
    RightNames{"com.quillmar.hideventrouter.remove", "remove the HID event router"},
    RightNames{"com.quillmar.hideventrouter.replace-newer",
               "replace the HID event router with an older version"}};

/// Null for a right without an action, which nobody has.
const RightNames* namesOf(Right right) {
  const auto index = static_cast<std::size_t>(right);
  return index < kRights.size() ? &kRights.at(index) : nullptr;
}

}  // namespace

std::string messageFor(const Question& question, const std::string& program) {
  using platform::system::quotedPromptText;
  std::string text = "The program " + quotedPromptText(program) + " wants to " +
                     namesOf(question.right)->words + ", which reads HID devices for applications.";
  if (!question.prompt.empty())
    text += " It says: " + quotedPromptText(question.prompt, kMaximumPromptCharacters);
  return platform::system::withoutPlaceholders(text);
}

Decision decisionOf(const PolkitAnswer& answer) {
  using Kind = Decision::Kind;
  switch (answer.kind) {
    case PolkitAnswer::Kind::Yes:
      return {Kind::Yes, {}};
    case PolkitAnswer::Kind::Dismissed:
      return {Kind::Canceled, answer.reason};
    default:
      return {answer.needsPerson ? Kind::InteractionNotAllowed : Kind::No, answer.reason};
  }
}

void PolkitAuthority::decide(const Question& question, const Decided& decided) {
  std::string whyNot;
  auto caller = PeerProcess::ofProcess(question.caller.process, question.caller.user, {}, whyNot);
  const RightNames* const names = namesOf(question.right);
  if (!caller || names == nullptr) {
    decided({Decision::Kind::No, caller ? "nobody has the right to do this" : whyNot});
    return;
  }
  platform::system::PolkitQuestion asked{*caller, names->action};
  asked.details = {{"program", caller->program()}};
  asked.message = messageFor(question, caller->program());
  asked.mayAskPerson = true;
  polkit_.ask(std::move(asked), [this, decided](const PolkitAnswer& answer) {
    mailbox_.post([decided, decision = decisionOf(answer)] { decided(decision); });
  });
}

}  // namespace jobd
