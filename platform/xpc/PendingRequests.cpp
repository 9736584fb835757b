// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/PendingRequests.h"

namespace platform::xpc {

bool PendingRequests::fail(XPCReplyHandler& reply, const SharedErrorHandler& errorHandler,
                           std::shared_ptr<NSError> error) {
  if (!errorHandler || !*errorHandler) return false;
  Failure& due = failures_.emplace_back();  // before anything is moved from the caller
  due = {std::move(reply), errorHandler, std::move(error)};
  return true;
}

}  // namespace platform::xpc
