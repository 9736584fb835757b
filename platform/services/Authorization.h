// Asking the person at the machine for leave to do something privileged.
//
// Threading: any thread; AuthorizationCreate blocks until the question is answered.
// Ownership: an AuthorizationRef is never freed: it lives for the life of the process, as its
//   callers rely on.
// Errors: the platform's status codes, below.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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

/// `valueLength` counts bytes; `value` is not NUL-terminated for this purpose and may be null when
/// the length is 0.
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
/// Null: none. Copyable handle; the object behind it is never freed.
using AuthorizationRef = Authorization*;

/// `rights` is not null; `environment` may be. 0 and a reference, or a status and null.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization);

/// Who answers on a user's root. Receives the prompt (the platform's own sentence when the
/// application gave none).
using AuthorizationAgent = std::function<OSStatus(std::string_view prompt)>;

/// Replaces the agent; null puts back the default, which asks on the controlling terminal
/// ("/dev/tty") and answers −60007 where there is none. On a system root polkit answers and no
/// agent is asked.
void setAuthorizationAgent(AuthorizationAgent agent);
/// Agents for scripts: always the same answer.
[[nodiscard]] AuthorizationAgent fixedAuthorizationAgent(OSStatus answer);
/// Asks on the controlling terminal. Names the program that asks, the root and the prompt as the
/// program's own words; asks again, twice, when the answer is none.
[[nodiscard]] AuthorizationAgent terminalAuthorizationAgent();

}  // namespace platform
