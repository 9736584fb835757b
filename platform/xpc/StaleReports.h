// Which connections of one exported object have been resumed, and in what order.
//
// The handlers of a connection carry no identity: when an object has invalidated a connection and
// resumed another one since, the report about the first would be taken for one about the second.
// Such a report is stale and is dropped. Connections of one object that live side by side do not
// make each other stale: what counts is what was resumed after the invalidation.
//
// Threading: any thread; no call-out.
// Ownership: an entry lives from the resume to leave(); the object is only named, never kept.
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

  /// Enters a connection that exports `object`. Nothing happens for an empty object.
  void enter(const std::weak_ptr<void>& object);
  /// The holder of `object` has invalidated the connection, which may never have been entered.
  void close(const std::weak_ptr<void>& object);
  /// Whether a connection of the same object has been entered after the close, and still is.
  [[nodiscard]] bool isSuperseded() const;
  void leave();

 private:
  std::weak_ptr<void> object_;
  std::uint64_t ticket_ = 0;
  std::optional<std::uint64_t> lastBeforeClose_;
  ForkMark mark_;  ///< in a child, what the parent entered stays: it is older than anything
};

}  // namespace platform::xpc
