// SPDX-License-Identifier: Apache-2.0

// Which connections of one exported object have been resumed, and in what order.
//
// The handlers of a connection do not say which connection they belong to: if an object has
// invalidated one and resumed another since, it would take the notice about the first for one about
// the second. Such a notice is stale and is dropped. Connections of one object that are live at the
// same time do not make each other stale: only one resumed after the invalidation does.
//
// Threading: any thread; no call-out.
// Ownership: an entry lives from enter() to leave(); the object is only identified, never kept
//   alive.
// Order: a later ticket is a newer connection.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/foundation/ForkMark.h"

namespace platform::xpc {

class ResumedConnection {
 public:
  ResumedConnection() = default;
  ResumedConnection(const ResumedConnection&) = delete;
  ResumedConnection& operator=(const ResumedConnection&) = delete;
  ~ResumedConnection() { leave(); }

  /// Enters a connection that exports `object`. Does nothing for an empty object.
  void enter(const std::weak_ptr<void>& object);
  /// The owner of `object` has invalidated the connection, which may never have been entered.
  void close(const std::weak_ptr<void>& object);
  /// Whether a connection of the same object was entered after close() and has not left since.
  [[nodiscard]] bool isSuperseded() const;
  void leave();

 private:
  std::weak_ptr<void> object_;
  std::uint64_t ticket_ = 0;
  std::optional<std::uint64_t> lastBeforeClose_;
  ForkMark mark_;  ///< in a child, the parent's entries stay: they are older than any of its own
};

}  // namespace platform::xpc
