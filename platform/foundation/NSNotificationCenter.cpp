// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/NSNotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/foundation/FoundationProvider.h"

namespace platform {
namespace {

struct Registration {
  NSNotificationObserver observer;
  std::shared_ptr<NSString> name;
  std::shared_ptr<NSObject> object;
  std::atomic<bool> removed{false};

  [[nodiscard]] bool wants(const NSString& posted, const NSObject* sender) const {
    return (!name || name->isEqual(&posted)) && (!object || object.get() == sender);
  }
};
using Registrations = std::vector<std::shared_ptr<Registration>>;

class ProcessNotificationCenter final : public NSNotificationCenter {
 public:
  void addObserver_selector_name_object(NSNotificationObserver observer,
                                        const std::shared_ptr<NSString>& name,
                                        const std::shared_ptr<NSObject>& object) override {
    auto registration = std::make_shared<Registration>();
    registration->observer = std::move(observer);
    registration->name = name;
    registration->object = object;
    Registrations dead;  // destroyed after unlock: it may hold the last reference to an object
    const std::lock_guard lock(mutex_);
    takeIf(dead, [](const Registration& r) { return r.observer.lifetime.expired(); });
    registrations_.push_back(std::move(registration));
  }

  void removeObserver_name_object(const void* identity, const std::shared_ptr<NSString>& name,
                                  const std::shared_ptr<NSObject>& object) override {
    Registrations dead;
    const std::lock_guard lock(mutex_);
    takeIf(dead, [&](const Registration& r) {
      return r.observer.identity == identity && (!name || (r.name && r.name->isEqual(name))) &&
             (!object || r.object == object);
    });
  }

  void postNotificationName_object(const std::shared_ptr<NSString>& name,
                                   const std::shared_ptr<NSObject>& object) override {
    if (!name) return;
    const auto notification = std::make_shared<NSNotification>(name, object);
    for (const auto& registration : registrationsFor(*name, object.get())) {
      if (!registration->observer.call || registration->removed.load()) continue;
      if (const auto observer = registration->observer.lifetime.lock())
        registration->observer.call(notification);
    }
  }

 private:
  // Every caller declares `taken` before the lock, so that its contents are destroyed after unlock.
  template <class Predicate>
  void takeIf(Registrations& taken, Predicate predicate) {
    const auto keep = std::stable_partition(registrations_.begin(), registrations_.end(),
                                            [&](const auto& r) { return !predicate(*r); });
    taken.reserve(static_cast<std::size_t>(registrations_.end() - keep));  // all or nothing
    for (auto place = keep; place != registrations_.end(); ++place) {
      (*place)->removed.store(true);
      taken.push_back(std::move(*place));
    }
    registrations_.erase(keep, registrations_.end());
  }

  Registrations registrationsFor(const NSString& name, const NSObject* object) {
    Registrations wanted;
    const std::lock_guard lock(mutex_);
    for (const auto& registration : registrations_) {
      if (registration->wants(name, object)) wanted.push_back(registration);
    }
    return wanted;
  }

  std::mutex mutex_;
  Registrations registrations_;
};

}  // namespace

std::shared_ptr<NSNotificationCenter> NSNotificationCenter::defaultCenter() {
  return foundationProvider().load()->defaultCenter();
}

std::shared_ptr<NSNotificationCenter> NSNotificationCenter::center() {
  return std::make_shared<ProcessNotificationCenter>();
}

}  // namespace platform
