#include "platform/services/Authorization.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/Grant.h"
#include "platform/services/ServiceManagement.h"
#include "platform/services/SystemRoot.h"

namespace platform {
namespace {

constexpr std::string_view blessRight = "com.apple.ServiceManagement.blesshelper";
constexpr std::string_view ownPrompt = "An application wants to install or remove a helper.";
constexpr std::size_t longestPrompt = 4096;

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
  if (environment == nullptr || environment->items == nullptr) return ownPrompt;
  for (std::uint32_t i = 0; i < environment->count; ++i) {
    const AuthorizationItem& item = environment->items[i];
    if (item.name != "prompt" || item.value == nullptr) continue;
    const std::string_view text(static_cast<const char*>(item.value),
                                std::min(item.valueLength, longestPrompt));
    return text;
  }
  return ownPrompt;
}

/// Leave is given for one right only, the one that the job daemon acts upon.
bool areAllKnown(const AuthorizationRights& rights) {
  if (rights.count > 0 && rights.items == nullptr) return false;
  for (std::uint32_t i = 0; i < rights.count; ++i) {
    if (rights.items[i].name != blessRight) return false;
  }
  return rights.count > 0;
}

/// A terminal acts upon control characters; somebody else's prompt must not be able to.
std::string withoutControls(std::string_view text) {
  std::string result;
  for (const char c : text) result += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? ' ' : c;
  return result;
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

/// One line, without its end; false when the input ended first.
bool readLine(int descriptor, std::string& line) {
  constexpr std::size_t longest = 256;
  char c = 0;
  for (;;) {
    const ssize_t got = ::read(descriptor, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    if (c == '\n') return true;
    if (line.size() < longest) line += c;
  }
}

OSStatus statusOfAnswer(const std::string& answer) {
  if (answer == "y" || answer == "Y" || answer == "yes") return errAuthorizationSuccess;
  if (answer == "c" || answer == "C") return errAuthorizationCanceled;
  return errAuthorizationDenied;
}

OSStatus askOnTerminal(std::string_view prompt) {
  const FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal) return errAuthorizationInteractionNotAllowed;
  if (!writeAll(terminal.get(), withoutControls(prompt) + "\nAllow? [y/N/c] "))
    return errAuthorizationInteractionNotAllowed;
  std::string answer;
  return readLine(terminal.get(), answer) ? statusOfAnswer(answer) : errAuthorizationCanceled;
}

/// The system root's jobs are given to an authority of the system, which is asked elsewhere; no
/// agent of the process itself may stand in for it.
OSStatus refuseOnSystemRoot() {
  NSLog(
      "Authorization on the system root is the system authority's and is not available in this "
      "build.");
  return errAuthorizationInteractionNotAllowed;
}

OSStatus askAgent(std::string_view prompt) {
  const auto agent = currentAgent();
  return agent ? (*agent)(prompt) : askOnTerminal(prompt);
}

}  // namespace

// Kept for good, and reachable, so that a leak checker sees what is meant.
struct Authorization {
  const Authorization* previous;
};

namespace {

struct Grants {
  std::mutex mutex;
  const Authorization* last = nullptr;
};
Grants& grants() {
  static auto* const all = new Grants;
  return *all;
}

AuthorizationRef newGrant() {
  auto* const grant = new Authorization{nullptr};
  const std::lock_guard lock(grants().mutex);
  grant->previous = std::exchange(grants().last, grant);
  return grant;
}

}  // namespace

bool isGranted(const AuthorizationRef& authorization) {
  const std::lock_guard lock(grants().mutex);
  const Authorization* grant = grants().last;
  while (grant != nullptr && grant != authorization) grant = grant->previous;
  return grant != nullptr;
}

OSStatus createAuthorization(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization) {
  if (returnAuthorization != nullptr) *returnAuthorization = nullptr;
  if (rights == nullptr || !areAllKnown(*rights)) return errAuthorizationDenied;
  if ((flags & kAuthorizationFlagInteractionAllowed) == 0)
    return errAuthorizationInteractionNotAllowed;
  const OSStatus status =
      SystemRoot::current().isSystem() ? refuseOnSystemRoot() : askAgent(promptIn(environment));
  if (status == errAuthorizationSuccess && returnAuthorization != nullptr)
    *returnAuthorization = newGrant();
  return status;
}

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization) {
  return servicesProvider().load()->authorizationCreate(rights, environment, flags,
                                                        returnAuthorization);
}

void setAuthorizationAgent(AuthorizationAgent agent) {
  auto replacement = agent ? std::make_shared<const AuthorizationAgent>(std::move(agent)) : nullptr;
  {
    const std::lock_guard lock(agentSlot().mutex);
    agentSlot().agent.swap(replacement);
  }
  // The agent that was in place goes here, under no lock.
}

AuthorizationAgent fixedAuthorizationAgent(OSStatus answer) {
  return [answer](std::string_view) { return answer; };
}

AuthorizationAgent terminalAuthorizationAgent() {
  return askOnTerminal;
}

}  // namespace platform
