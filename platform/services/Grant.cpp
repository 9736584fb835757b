// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Grant.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"

namespace platform {

// Never freed, but reachable, so that a leak checker does not report it.
struct Authorization {
  Authorization* previous = nullptr;
  bool isUsed = false;                          ///< permission has been requested
  std::optional<ControlConnection> connection;  ///< one with permission: from the beginning, or
                                                ///< after a removal, for the bless that may follow
};

namespace {

// A removal need not be followed by a bless, so its connection may stay open unused.
constexpr std::size_t kMaxOpenConnections = 4;

struct Authorizations {
  std::mutex mutex;
  Authorization* last = nullptr;
  std::deque<Authorization*> open;  ///< those with a connection, oldest first
};
Authorizations& authorizations() {
  static auto* const all = new Authorizations;
  return *all;
}

/// The authorization that was returned as this reference. Needs the lock.
Authorization& known(const AuthorizationRef& authorization) {
  Authorization* each = authorizations().last;
  while (each != nullptr && each != authorization) each = each->previous;
  if (each == nullptr)
    throw ServiceError(ServiceErrorCode::NotPermitted, "there is no authorization for this");
  return *each;
}

/// Takes out the connections that the daemon has closed: their permission has expired. Needs the
/// lock.
std::vector<ControlConnection> takeEnded() {
  std::vector<ControlConnection> ended;
  std::erase_if(authorizations().open, [&](Authorization* each) {
    if (!each->connection->hasEnded()) return false;
    ended.push_back(std::move(*each->connection));
    each->connection.reset();
    return true;
  });
  return ended;
}

/// The connection of a reference that was used before; nothing for a fresh one, which now counts as
/// used.
std::optional<ControlConnection> takeConnection(const AuthorizationRef& authorization) {
  const std::lock_guard lock(authorizations().mutex);
  Authorization& each = known(authorization);
  const bool isFresh = !std::exchange(each.isUsed, true);
  if (!each.connection && isFresh) return std::nullopt;
  if (!each.connection) {
    throw ServiceError(ServiceErrorCode::NotPermitted,
                       "this authorization has already been used; ask for a new one");
  }
  std::erase(authorizations().open, &each);
  return std::exchange(each.connection, std::nullopt);
}

void keepConnection(const AuthorizationRef& authorization, ControlConnection connection) {
  std::optional<ControlConnection> oldest;  // closed after unlock
  const std::lock_guard lock(authorizations().mutex);
  auto& open = authorizations().open;
  if (open.size() == kMaxOpenConnections) {
    oldest = std::exchange(open.front()->connection, std::nullopt);
    open.pop_front();
  }
  known(authorization).connection = std::move(connection);
  open.push_back(authorization);
}

}  // namespace

AuthorizationRef newAuthorization(std::optional<ControlConnection> permitted) {
  auto* const authorization = new Authorization;
  {
    std::vector<ControlConnection> ended;  // closed after unlock
    const std::lock_guard lock(authorizations().mutex);
    authorization->previous = std::exchange(authorizations().last, authorization);
    ended = takeEnded();
  }
  if (permitted) {
    authorization->isUsed = true;
    keepConnection(authorization, std::move(*permitted));
  }
  return authorization;
}

void checkAuthorization(const AuthorizationRef& authorization) {
  const std::lock_guard lock(authorizations().mutex);
  (void)known(authorization);
}

ControlReply askWithAuthorization(const AuthorizationRef& authorization,
                                  const ControlRequest& request, int descriptor) {
  auto connection = takeConnection(authorization);
  if (!connection) connection = JobDaemon(SystemRoot::current()).authorize(request.label);
  ControlReply reply = connection->ask(request, descriptor);
  // A failed removal does not prevent the bless after it.
  if (request.operation == ControlRequest::Operation::Remove)
    keepConnection(authorization, std::move(*connection));
  return reply;
}

}  // namespace platform
