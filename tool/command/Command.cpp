// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Command.h"

#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>

#include "platform/foundation/PrintableText.h"
#include "platform/services/Authorization.h"
#include "platform/services/SystemRoot.h"
#include "tool/terminal/Output.h"

namespace tool {

namespace {

bool isOnSystemRoot() try {
  return platform::SystemRoot::current().isSystem();
} catch (const std::exception&) {
  return false;  // there is no root
}

/// The meaning of the platform's own status codes, or empty.
std::string_view authorizationMeaning(const platform::NSError& error) {
  if (!error.domain() || error.domain()->UTF8String() != platform::NSOSStatusErrorDomain) return {};
  switch (error.code()) {
    case platform::errAuthorizationDenied:
      return "authorization denied";
    case platform::errAuthorizationCanceled:
      return "authorization canceled";
    case platform::errAuthorizationInteractionNotAllowed:
      return isOnSystemRoot()
                 ? "an administrator must allow it, and this login session has no authentication "
                   "agent to ask one (start one with pkttyagent, or run this as root)"
                 : "there is no terminal to ask for authorization on (--authorize answers without "
                   "one)";
    default:
      return {};
  }
}

std::string localizedDescription(const platform::NSError& error) {
  if (!error.userInfo()) return {};
  const auto text = error.userInfo()->objectForKey(platform::NSLocalizedDescriptionKey);
  return text ? text->description() : std::string();
}

}  // namespace

std::string oneLine(std::string_view text) {
  constexpr std::size_t kLongest = 8000;  // two paths and a sentence about them
  return platform::printableLine(text, kLongest);
}

std::string describeError(const std::shared_ptr<platform::NSError>& error) {
  if (!error) return "no reason given";
  const std::string domain = error->domain() ? error->domain()->UTF8String() : "(null)";
  const std::string code = domain + " " + std::to_string(error->code());
  std::string words = std::string(authorizationMeaning(*error));
  if (words.empty()) words = localizedDescription(*error);
  return words.empty() ? code : words + " (" + code + ")";
}

std::string describeErrno(int number) {
  return std::generic_category().message(number);
}

void complain(std::string_view text) {
  const std::string line = "wlhid: " + oneLine(text) + "\n";
  Output(STDERR_FILENO).write(line);
}

void print(std::string_view text) {
  Output output(STDOUT_FILENO);
  if (output.write(text) || output.failure() == EPIPE) return;
  throw Failure("cannot write to standard output: " + describeErrno(output.failure()));
}

}  // namespace tool
