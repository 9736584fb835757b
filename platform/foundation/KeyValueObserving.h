// SPDX-License-Identifier: Apache-2.0

// Key-value observing: notification before and after a named value of an object changes.
//
// Threading: any thread. Observers run synchronously on the thread that makes the change, with no
//   lock held, so an observer may register another, end its own observation, or change the object
//   again.
// Ownership: an observation lasts as long as its token. The object does not keep the observer's
//   captures longer, and the token does not keep the object. After the token's destructor has
//   returned, no new call of the observer starts; a call that another thread started before may
//   still be running.
// Order: observers of one key are called in order of registration, for will-change and did-change.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"

namespace platform {

struct KeyValueChange {
  std::string_view key;
  bool prior = false;  ///< true for will-change, false for did-change
};

class WLHID_EXPORT KeyValueObservation {
 public:
  KeyValueObservation() = default;
  KeyValueObservation(KeyValueObservation&&) noexcept = default;
  KeyValueObservation& operator=(KeyValueObservation&& other) noexcept;
  KeyValueObservation(const KeyValueObservation&) = delete;
  KeyValueObservation& operator=(const KeyValueObservation&) = delete;
  ~KeyValueObservation() { end(); }

  void end();

 private:
  friend class KeyValueObservable;
  struct Registration;
  std::shared_ptr<Registration> registration_;
};

/// Base class of objects whose values can be observed.
class WLHID_EXPORT KeyValueObservable {
 public:
  using Observer = std::function<void(const KeyValueChange&)>;

  [[nodiscard]] KeyValueObservation addObserver_forKey(std::string_view key, Observer observer);

 protected:
  KeyValueObservable();
  ~KeyValueObservable();

  void willChangeValueForKey(std::string_view key);
  void didChangeValueForKey(std::string_view key);

 private:
  struct Observers;
  void notify(const KeyValueChange& change);
  const std::shared_ptr<Observers> observers_;
};

}  // namespace platform
