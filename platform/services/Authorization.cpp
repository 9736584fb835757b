// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Authorization.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/Grant.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/services/ServiceManagement.h"
#include "platform/services/SystemRoot.h"

namespace platform {
namespace {

constexpr std::string_view kBlessRight = "com.apple.ServiceManagement.blesshelper";
constexpr std::string_view kOwnPrompt = "An application wants to install or remove a helper.";
constexpr std::size_t kMaxPromptBytes = 4096;
constexpr std::size_t kMaxEchoedCharacters = 20;

struct AgentSlot {
  std::mutex mutex;
  std::shared_ptr<const AuthorizationAgent> agent;
};

AgentSlot& agentSlot() {
  static auto* const slot = new AgentSlot;
  return *slot;
}

std::shared_ptr<const AuthorizationAgent> currentAgent() {
  const std::lock_guard lock(agentSlot().mutex);
  return agentSlot().agent;
}

std::string_view promptIn(const AuthorizationEnvironment* environment) {
  if (environment == nullptr || environment->items == nullptr) return kOwnPrompt;
  for (std::uint32_t i = 0; i < environment->count; ++i) {
    const AuthorizationItem& item = environment->items[i];
    if (item.name != "prompt" || item.value == nullptr) continue;
    const std::string_view text(static_cast<const char*>(item.value),
                                std::min(item.valueLength, kMaxPromptBytes));
    return text;
  }
  return kOwnPrompt;
}

/// Permission is only granted for the right that the job daemon acts upon.
bool areAllKnown(const AuthorizationRights& rights) {
  if (rights.items == nullptr) return false;
  for (std::uint32_t i = 0; i < rights.count; ++i) {
    if (rights.items[i].name != kBlessRight) return false;
  }
  return rights.count > 0;
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// One line without its line feed; false if the input ended first.
bool readLine(int descriptor, std::string& line) {
  constexpr std::size_t longest = 256;
  char c{};
  for (;;) {
    const ssize_t got = ::read(descriptor, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    if (c == '\n') return true;
    if (line.size() < longest) line += c;
  }
}

/// What an answer means; nothing if it is not understood. An empty answer means no.
std::optional<OSStatus> statusOfAnswer(std::string answer) {
  std::erase_if(answer, [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
  std::transform(answer.begin(), answer.end(), answer.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (answer == "y" || answer == "yes") return errAuthorizationSuccess;
  if (answer.empty() || answer == "n" || answer == "no") return errAuthorizationDenied;
  if (answer == "c" || answer == "cancel") return errAuthorizationCanceled;
  return std::nullopt;
}

std::string ownProgram() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return (error ? std::string("unknown") : printableLine(path.string())) + " (process " +
         std::to_string(::getpid()) + ")";
}

std::atomic<ChangePurpose>& purposeSlot() {
  static std::atomic<ChangePurpose> purpose{ChangePurpose::Install};
  return purpose;
}

std::string_view purposeText() {
  return purposeSlot() == ChangePurpose::Remove ? "remove" : "install or replace";
}

/// The question to the user. The prompt comes from the application and is marked as such; it is put
/// on one line, so that it cannot look like one of the question's own lines.
std::string question(std::string_view prompt) {
  std::string text =
      "A program asks for permission to " + std::string(purposeText()) + " a privileged helper.\n";
  text += "  program   " + ownProgram() + "\n";
  text += "  root      " + printableLine(SystemRoot::current().path().string()) + "\n";
  if (prompt != kOwnPrompt) {
    std::string words(prompt);
    std::replace(words.begin(), words.end(), '\n', ' ');
    text += "  it says   " + printableLine(words) + "\n";
  }
  return text + "Allow it? y: yes, n or Enter: no, c: cancel > ";
}

OSStatus takeAnswer(int terminal) {
  constexpr int attempts = 3;
  for (int attempt = 1;; ++attempt) {
    std::string answer;
    if (!readLine(terminal, answer)) return errAuthorizationCanceled;
    if (const auto status = statusOfAnswer(answer)) return *status;
    if (attempt == attempts) break;
    writeAll(terminal, "\"" + printableLine(answer, kMaxEchoedCharacters) +
                           "\" is not an answer. y: yes, n or Enter: no, c: cancel > ");
  }
  writeAll(terminal, "That is taken as no.\n");
  return errAuthorizationDenied;
}

OSStatus askOnTerminal(std::string_view prompt) {
  const FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal) return errAuthorizationInteractionNotAllowed;
  ::tcflush(terminal.get(), TCIFLUSH);  // input from before the question is not an answer
  if (!writeAll(terminal.get(), question(prompt))) return errAuthorizationInteractionNotAllowed;
  return takeAnswer(terminal.get());
}

OSStatus statusOfRefusal(const ServiceError& error) {
  switch (error.code()) {
    case ServiceErrorCode::NotPermitted:
      return errAuthorizationDenied;
    case ServiceErrorCode::Canceled:
      return errAuthorizationCanceled;
    default:
      return errAuthorizationInteractionNotAllowed;
  }
}

/// On the system's own root the daemon has the system's authority decide, and no agent of this
/// process may take its place. The permission belongs to the connection, which the reference keeps.
OSStatus askDaemon(std::string_view prompt, AuthorizationRef* returnAuthorization) try {
  ControlRequest request{ControlRequest::Operation::Authorize, std::string(kSystemJobLabel)};
  request.purpose = purposeSlot();
  if (prompt != kOwnPrompt) request.prompt = prompt;
  auto connection = JobDaemon(SystemRoot::current()).authorize(request);
  if (returnAuthorization != nullptr)
    *returnAuthorization = newAuthorization(std::move(connection));
  return errAuthorizationSuccess;
} catch (const ServiceError& error) {
  NSLog("No authorization: %s", error.what());
  return statusOfRefusal(error);
}

OSStatus askAgent(std::string_view prompt) {
  const auto agent = currentAgent();
  return agent ? (*agent)(prompt) : askOnTerminal(prompt);
}

}  // namespace

OSStatus createAuthorization(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization) {
  if (returnAuthorization != nullptr) *returnAuthorization = nullptr;
  if (rights == nullptr || !areAllKnown(*rights)) return errAuthorizationDenied;
  if ((flags & kAuthorizationFlagInteractionAllowed) == 0)
    return errAuthorizationInteractionNotAllowed;
  if (SystemRoot::current().isSystem())
    return askDaemon(promptIn(environment), returnAuthorization);
  const OSStatus status = askAgent(promptIn(environment));
  if (status == errAuthorizationSuccess && returnAuthorization != nullptr)
    *returnAuthorization = newAuthorization();
  return status;
}

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization) {
  return servicesProvider().load()->authorizationCreate(rights, environment, flags,
                                                        returnAuthorization);
}

void setAuthorizationPurpose(ChangePurpose purpose) {
  purposeSlot() = purpose;
}

ChangePurpose authorizationPurpose() {
  return purposeSlot();
}

void setAuthorizationAgent(AuthorizationAgent agent) {
  auto replacement = agent ? std::make_shared<const AuthorizationAgent>(std::move(agent)) : nullptr;
  {
    const std::lock_guard lock(agentSlot().mutex);
    agentSlot().agent.swap(replacement);
  }
  // The previous agent is destroyed here, under no lock.
}

AuthorizationAgent fixedAuthorizationAgent(OSStatus answer) {
  return [answer](std::string_view) { return answer; };
}

AuthorizationAgent terminalAuthorizationAgent() {
  return askOnTerminal;
}

}  // namespace platform
