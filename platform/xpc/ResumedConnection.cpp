// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ResumedConnection.h"

#include <pthread.h>

#include <map>
#include <mutex>
#include <set>

namespace platform::xpc {
namespace {

struct Registry {
  std::mutex mutex;
  std::uint64_t lastTicket = 0;
  /// By identity of the object: a weak pointer keeps it even after the object is gone.
  std::map<std::weak_ptr<void>, std::set<std::uint64_t>, std::owner_less<>> tickets;
};

/// Never destroyed: connections may outlive static destruction.
Registry& registry() {
  static auto* const one = new Registry;
  // So that a child of this process finds it consistent and unlocked.
  static const int guarded = ::pthread_atfork(
      [] { one->mutex.lock(); }, [] { one->mutex.unlock(); }, [] { one->mutex.unlock(); });
  static_cast<void>(guarded);
  return *one;
}

bool isEmpty(const std::weak_ptr<void>& object) {
  const std::weak_ptr<void> none;
  return !object.owner_before(none) && !none.owner_before(object);
}

}  // namespace

void ResumedConnection::enter(const std::weak_ptr<void>& object) {
  if (isEmpty(object)) return;
  Registry& r = registry();
  const std::lock_guard lock(r.mutex);
  // The set is inserted complete, and the ticket is valid only then: memory may run out.
  std::set<std::uint64_t> entry{r.lastTicket + 1};
  const auto [place, isNew] = r.tickets.try_emplace(object);
  isNew ? place->second.swap(entry) : place->second.merge(entry);
  object_ = object;
  ticket_ = ++r.lastTicket;
}

void ResumedConnection::close(const std::weak_ptr<void>& object) {
  if (isEmpty(object_)) object_ = object;
  if (isEmpty(object_)) return;
  Registry& r = registry();
  const std::lock_guard lock(r.mutex);
  lastBeforeClose_ = r.lastTicket;
}

bool ResumedConnection::isSuperseded() const {
  if (!lastBeforeClose_) return false;
  Registry& r = registry();
  const std::lock_guard lock(r.mutex);
  const auto found = r.tickets.find(object_);
  return found != r.tickets.end() && *found->second.rbegin() > *lastBeforeClose_;
}

void ResumedConnection::leave() {
  if (ticket_ == 0 || mark_.isInherited()) return;
  Registry& r = registry();
  const std::lock_guard lock(r.mutex);
  const auto found = r.tickets.find(object_);
  found->second.erase(ticket_);
  if (found->second.empty()) r.tickets.erase(found);
  ticket_ = 0;
}

}  // namespace platform::xpc
