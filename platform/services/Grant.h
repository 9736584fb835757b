// The authorization behind the services provider of this machine.
//
// Threading: any thread; creating one blocks while its question is open. Ownership: a grant lives
// for the life of the
//   process. Errors: the platform's status codes. Order: none.
#pragma once

#include "platform/services/Authorization.h"

namespace platform {

/// AuthorizationCreate, without the provider in between.
OSStatus createAuthorization(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* returnAuthorization);

/// Whether this is a reference that createAuthorization gave out. Any pointer may be asked about.
[[nodiscard]] bool isGranted(const AuthorizationRef& authorization);

}  // namespace platform
