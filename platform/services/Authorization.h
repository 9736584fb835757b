// SPDX-License-Identifier: Apache-2.0

// Asks the user for permission to do something privileged.
//
// Threading: any thread; AuthorizationCreate blocks until the question is answered.
// Ownership: an AuthorizationRef is never freed: callers rely on it until the process exits.
// Errors: the platform's status codes, below. On the system's own root −60007 also means that the
// job
//   daemon cannot be reached; the log says what is missing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/Control.h"

namespace platform {

using OSStatus = std::int32_t;
inline constexpr OSStatus errAuthorizationSuccess = 0;
inline constexpr OSStatus errAuthorizationDenied = -60005;
inline constexpr OSStatus errAuthorizationCanceled = -60006;
inline constexpr OSStatus errAuthorizationInteractionNotAllowed = -60007;

using AuthorizationFlags = std::uint32_t;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 2;
inline constexpr AuthorizationFlags kAuthorizationFlagPreAuthorize = 16;

/// `valueLength` is in bytes; `value` need not be NUL-terminated and may be null if the length is
/// 0.
struct AuthorizationItem {
  std::string_view name;
  std::size_t valueLength = 0;
  const void* value = nullptr;
  std::uint32_t flags = 0;
};
struct AuthorizationItemSet {
  std::uint32_t count = 0;
  const AuthorizationItem* items = nullptr;
};
using AuthorizationRights = AuthorizationItemSet;
using AuthorizationEnvironment = AuthorizationItemSet;

struct Authorization;  // opaque
/// A copyable handle to an object that is never freed; null for none.
using AuthorizationRef = Authorization*;

/// `rights` must not be null; `environment` may be. Gives 0 and a reference, or another status and
/// null.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization);

/// Answers the question on a user's root. Receives the prompt (the platform's own sentence if the
/// application gave none).
using AuthorizationAgent = std::function<OSStatus(std::string_view prompt)>;

/// What the authorizations of this process are for on the system's own root, which the platform
/// cannot see from the rights: to install (the default; covers one removal too), or only to remove,
/// for which less may be enough.
void setAuthorizationPurpose(ChangePurpose purpose);
[[nodiscard]] ChangePurpose authorizationPurpose();

/// Replaces the agent; null restores the default, which asks on the controlling terminal
/// ("/dev/tty") and returns −60007 if there is none. On the system's own root the job daemon
/// decides, by asking polkit, and no agent of this process is asked.
void setAuthorizationAgent(AuthorizationAgent agent);
/// An agent for scripts that always gives the same answer.
[[nodiscard]] AuthorizationAgent fixedAuthorizationAgent(OSStatus answer);
/// Asks on the controlling terminal. Shows the requesting program, the root, and the prompt marked
/// as the program's own words; asks up to three times if an answer is not understood.
[[nodiscard]] AuthorizationAgent terminalAuthorizationAgent();

}  // namespace platform
