// The authorization behind the services provider of this machine.
//
// A reference says that a person (or the agent in their place) has agreed. That by itself changes
// nothing: at its first use the job daemon is asked for leave, and it is the daemon that decides
// and keeps account of what the leave covers.
//
// Threading: any thread; creating one blocks while its question is open, using one while the daemon
//   works.
// Ownership: a reference lives for the life of the process; the connection that its leave belongs
//   to is closed by the bless that uses it up, when many newer ones are open, or, after the daemon
//   has hung up, when the next authorization is made.
// Errors: the platform's status codes, ServiceError.
#pragma once

#include "platform/services/Authorization.h"
#include "platform/services/Control.h"

namespace platform {

/// AuthorizationCreate, without the provider in between.
OSStatus createAuthorization(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization);

/// A reference of its own, for a question that was answered with yes.
[[nodiscard]] AuthorizationRef newAuthorization();

/// Throws NotPermitted unless the reference is one that newAuthorization gave out. Any pointer may
/// be asked about.
void checkAuthorization(const AuthorizationRef& authorization);

/// Sends the request (remove or bless) to the daemon of the current root with the leave that the
/// reference stands for: one removal of one job and then one bless of the same, soon.
[[nodiscard]] ControlReply askWithAuthorization(const AuthorizationRef& authorization,
                                                const ControlRequest& request, int descriptor);

}  // namespace platform
