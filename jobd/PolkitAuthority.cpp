// SPDX-License-Identifier: Apache-2.0

#include "jobd/PolkitAuthority.h"

#include <pwd.h>

#include <array>
#include <map>
#include <utility>
#include <vector>

#include "platform/foundation/Format.h"
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
               "replace the HID event router with an older version"},
    RightNames{"com.quillmar.hideventrouter.grant", ""}};

/// Null for a right without an action, which nobody has.
const RightNames* namesOf(Right right) {
  const auto index = static_cast<std::size_t>(right);
  return index < kRights.size() ? &kRights.at(index) : nullptr;
}

std::string nameOfUser(uid_t user) {
  std::vector<char> buffer(65536);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? std::to_string(user) : found->pw_name;
}

std::string kindOf(const platform::DeviceIdentity& device) {
  return platform::stringWithFormat("%04x:%04x", device.vendor, device.product);
}

/// The device's name is the caller's word.
std::string wordsFor(const GrantChange& change) {
  using platform::system::quotedPromptText;
  const auto& [grant, isRevocation] = change;
  const std::string serial =
      grant.device.unique.empty() ? "" : ", serial number " + quotedPromptText(grant.device.unique);
  const std::string what = "the user " + quotedPromptText(nameOfUser(grant.user)) +
                           " have the input of the device " + quotedPromptText(grant.name) + " (" +
                           kindOf(grant.device) + serial + ")";
  return isRevocation ? "no longer let " + what + " without a question."
                      : "let " + what +
                            " without a question from now on. It can carry what is "
                            "typed on it, passwords included.";
}

std::string wordsFor(const Question& question) {
  if (question.change) return wordsFor(*question.change);
  return std::string(namesOf(question.right)->words) +
         ", which reads HID devices for applications.";
}

/// For the administrator's rules.
std::map<std::string, std::string> detailsOf(const Question& question, const std::string& program) {
  std::map<std::string, std::string> details{{"program", program}};
  if (!question.change) return details;
  const platform::DeviceGrant& grant = question.change->grant;
  details["user"] = nameOfUser(grant.user);
  details["name"] = grant.name;
  details["vendor"] = platform::stringWithFormat("%04x", grant.device.vendor);
  details["product"] = platform::stringWithFormat("%04x", grant.device.product);
  return details;
}

}  // namespace

std::string messageFor(const Question& question, const std::string& program) {
  using platform::system::quotedPromptText;
  std::string text = "The program " + quotedPromptText(program) + " wants to " + wordsFor(question);
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
  asked.details = detailsOf(question, caller->program());
  asked.message = messageFor(question, caller->program());
  asked.mayAskPerson = true;
  const auto presence = question.presence;
  const auto id =
      polkit_.ask(std::move(asked), [this, decided, presence](const PolkitAnswer& answer) {
        mailbox_.post([decided, presence, decision = decisionOf(answer)] {
          if (presence) presence->whenGone(nullptr);
          decided(decision);
        });
      });
  if (presence) presence->whenGone([this, id] { polkit_.withdraw(id); });
}

}  // namespace jobd
