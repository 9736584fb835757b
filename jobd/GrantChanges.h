// SPDX-License-Identifier: Apache-2.0

// What a request to grant a device, or to take a grant back, comes to: each is put to the
// authority, and only then is the file changed (GrantFile.h).
//
// Threading: one thread. The authority may answer later.
// Ownership: the root's descriptor must outlive the answer.
// Errors: as replies.
// Order: the reply comes once, after the file has been changed.
#pragma once

#include <functional>

#include "jobd/ControlServer.h"
#include "jobd/LogTable.h"
#include "jobd/Permission.h"
#include "platform/services/Control.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

struct GrantSeams {
  Authority authority;
  std::function<void(const platform::LogLine& line)> note;
};

/// `request` is one with a grant.
void changeGrants(int rootDirectory, const GrantSeams& seams, const Caller& caller,
                  const platform::ControlRequest& request, const ControlServer::Reply& reply);

}  // namespace jobd
