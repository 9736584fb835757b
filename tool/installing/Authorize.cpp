// SPDX-License-Identifier: Apache-2.0

#include "tool/installing/Authorize.h"

#include <CLI/CLI.hpp>
#include <map>

#include "platform/services/Authorization.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

const std::map<std::string, platform::OSStatus>& answers() {
  static const std::map<std::string, platform::OSStatus> all = {
      {"allow", platform::errAuthorizationSuccess},
      {"deny", platform::errAuthorizationDenied},
      {"cancel", platform::errAuthorizationCanceled},
  };
  return all;
}

}  // namespace

void addAuthorizationOptions(CLI::App& verb, std::string& prompt, std::string& answer) {
  verb.add_option("--prompt", prompt, "The text of the authorization prompt")->type_name("TEXT");
  verb.add_option("--authorize", answer,
                  "Answer the prompt: allow, deny or cancel (user's root only)")
      ->type_name("ANSWER")
      ->check([](const std::string& value) {
        return answers().contains(value) ? std::string() : value + " is not allow, deny or cancel";
      });
}

void applyAuthorizationAnswer(const std::string& answer) {
  if (answer.empty()) return;
  if (platform::SystemRoot::current().isSystem()) {
    throw UsageFailure(
        "--authorize is for a user's root; on the system's own root the system must ask");
  }
  platform::setAuthorizationAgent(platform::fixedAuthorizationAgent(answers().at(answer)));
}

}  // namespace tool
