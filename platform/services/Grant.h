// SPDX-License-Identifier: Apache-2.0

// The authorization used by this machine's services provider.
//
// On a user's root a reference says that the user (or the agent) has agreed. That by itself permits
// nothing: at its first use the job daemon is asked for permission, and the daemon decides and
// keeps track of what the permission covers. On the system's own root the daemon has decided
// already when the reference is created, and the reference holds the connection that has the
// permission.
//
// Threading: any thread; creating one blocks while the question is open, using one while the daemon
//   works.
// Ownership: a reference lives as long as the process. The connection that its permission belongs
//   to is closed by the bless that uses it up, when too many newer ones are open or, if the daemon
//   has closed it, when the next authorization is created.
// Errors: the platform's status codes, ServiceError.
#pragma once

#include <optional>

#include "platform/services/Authorization.h"
#include "platform/services/Control.h"
#include "platform/services/JobDaemon.h"

namespace platform {

/// AuthorizationCreate, bypassing the provider.
OSStatus createAuthorization(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization);

/// A new reference, for a question that was answered with yes. With a connection, it is one that
/// has the daemon's permission.
[[nodiscard]] AuthorizationRef newAuthorization(
    std::optional<ControlConnection> permitted = std::nullopt);

/// Throws NotPermitted unless newAuthorization returned the reference. Any pointer may be passed.
void checkAuthorization(const AuthorizationRef& authorization);

/// Sends the request (remove or bless) to the daemon of the current root with the permission that
/// the reference stands for: one removal of one job, then one bless of the same job, within a short
/// time.
[[nodiscard]] ControlReply askWithAuthorization(const AuthorizationRef& authorization,
                                                const ControlRequest& request, int descriptor);

}  // namespace platform
