// SPDX-License-Identifier: Apache-2.0

// Named notifications within one process.
//
// Threading: any thread. A notification is delivered synchronously on the thread that posts it. No
//   lock is held while an observer runs, so an observer may add, remove and post.
// Ownership: the center holds observers weakly, and strongly while they are being notified.
// Errors: an observer's exception propagates out of the post; later observers are then not called.
// Order: observers of one notification are called in the order in which they were added. An
//   observer that is removed, or whose destruction has begun, before its turn is not called; nor is
//   one that is added during the post.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"

namespace platform {

class WLHID_EXPORT NSNotification final : public NSObject {
 public:
  NSNotification(std::shared_ptr<NSString> name, std::shared_ptr<NSObject> object)
      : name_(std::move(name)), object_(std::move(object)) {}
  [[nodiscard]] const std::shared_ptr<NSString>& name() const { return name_; }
  [[nodiscard]] const std::shared_ptr<NSObject>& object() const { return object_; }

 private:
  const std::shared_ptr<NSString> name_;
  const std::shared_ptr<NSObject> object_;
};

/// One registration.
struct NSNotificationObserver {
  const void* identity = nullptr;  ///< compared by removeObserver; never dereferenced
  std::weak_ptr<void> lifetime;
  std::string_view selector;  ///< the selector's name, for traces
  std::function<void(const std::shared_ptr<NSNotification>&)> call;
};

class WLHID_EXPORT NSNotificationCenter {
 public:
  /// The process's center, or that of the scripted platform while one is installed.
  static std::shared_ptr<NSNotificationCenter> defaultCenter();
  static std::shared_ptr<NSNotificationCenter> center();

  virtual ~NSNotificationCenter() = default;

  /// Null `name` or `object`: any.
  virtual void addObserver_selector_name_object(NSNotificationObserver observer,
                                                const std::shared_ptr<NSString>& name,
                                                const std::shared_ptr<NSObject>& object) = 0;
  /// Removes every registration of `identity` for that name and object (null: any). Safe in the
  /// observer's destructor.
  virtual void removeObserver_name_object(const void* identity,
                                          const std::shared_ptr<NSString>& name,
                                          const std::shared_ptr<NSObject>& object) = 0;
  virtual void postNotificationName_object(const std::shared_ptr<NSString>& name,
                                           const std::shared_ptr<NSObject>& object) = 0;
};

/// A registration that sends `method` to `observer`.
template <class T>
NSNotificationObserver notificationObserver(
    const std::shared_ptr<T>& observer, std::string_view selector,
    void (T::*method)(const std::shared_ptr<NSNotification>&)) {
  T* raw = observer.get();
  return {raw, std::weak_ptr<void>(observer), selector,
          [raw, method](const std::shared_ptr<NSNotification>& note) { (raw->*method)(note); }};
}

}  // namespace platform
