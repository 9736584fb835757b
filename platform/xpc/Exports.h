// SPDX-License-Identifier: Apache-2.0

// What a connection exports: set from any thread, used by the queue thread.
//
// Threading: the queue thread keeps a copy of its own, so that a delivery takes the lock only after
//   a change. The setters and their getters are called with the connection's lock held; the rest
//   belongs to the queue thread.
// Ownership: the object is held weakly. A setter leaves what was set before in its argument, to be
//   destroyed without the lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/xpc/InterfaceTable.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/PendingRequests.h"

namespace platform::xpc {

class Exports {
 public:
  void swapTable(SharedTable& table) {
    set_.table.swap(table);
    version_.fetch_add(1, std::memory_order_release);
  }
  void swapObject(XPCExportedObject& object) {
    std::swap(set_.object, object);
    version_.fetch_add(1, std::memory_order_release);
  }
  [[nodiscard]] const SharedTable& latestTable() const { return set_.table; }
  [[nodiscard]] const std::weak_ptr<void>& latestObject() const { return set_.object.object; }

  /// Takes over what was set since the last call.
  void refresh(std::mutex& mutex) {
    if (version_.load(std::memory_order_acquire) == seenVersion_) return;
    Pair latest;
    {
      const std::lock_guard lock(mutex);
      latest = set_;
      seenVersion_ = version_.load(std::memory_order_relaxed);
    }
    std::swap(used_, latest);
  }
  [[nodiscard]] const SharedTable& table() const { return used_.table; }
  /// Null if there is none, or one for another protocol than the table's.
  [[nodiscard]] std::shared_ptr<void> object() const {
    return isForTable() ? used_.object.object.lock() : nullptr;
  }

  /// Counts a message without an object. Returns whether it is the first one for which there never
  /// was any. An owner that releases the object and the connection does so in that order, or during
  /// a delivery, so a few messages in between are normal: they are only counted.
  [[nodiscard]] bool missed() {
    const std::weak_ptr<void> none;
    const auto& object = used_.object.object;
    const bool isGone = object.owner_before(none) || none.owner_before(object);
    if (!isGone || !isForTable()) return !std::exchange(hasMissedAny_, true);
    ++missedSinceGone_;
    return false;
  }
  /// How many messages came for an object that was gone, since the last call.
  [[nodiscard]] std::uint64_t takeMissedSinceGone() { return std::exchange(missedSinceGone_, 0); }

 private:
  struct Pair {
    SharedTable table;
    XPCExportedObject object;
  };
  [[nodiscard]] bool isForTable() const {
    return used_.table && used_.object.protocol == &used_.table->protocol();
  }

  Pair set_;
  std::atomic<std::uint64_t> version_{0};
  // queue thread
  Pair used_;
  std::uint64_t seenVersion_ = 0;
  bool hasMissedAny_ = false;
  std::uint64_t missedSinceGone_ = 0;
};

}  // namespace platform::xpc
