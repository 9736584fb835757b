// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/KeyValueObserving.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace platform {

struct WLHID_NO_EXPORT KeyValueObservation::Registration {
  std::string key;
  KeyValueObservable::Observer observer;
  std::atomic<bool> active{true};
  std::function<void(Registration*)> remove;
};

struct WLHID_NO_EXPORT KeyValueObservable::Observers {
  using Registration = KeyValueObservation::Registration;

  std::mutex mutex;
  std::vector<std::shared_ptr<Registration>> list;

  std::vector<std::shared_ptr<Registration>> forKey(std::string_view key) {
    std::vector<std::shared_ptr<Registration>> found;
    const std::lock_guard lock(mutex);
    for (const auto& registration : list) {
      if (registration->key == key) found.push_back(registration);
    }
    return found;
  }

  // The caller destroys the registration, after unlock: its captures may hold last references.
  std::shared_ptr<Registration> take(const Registration* wanted) {
    const std::lock_guard lock(mutex);
    const auto place = std::ranges::find(list, wanted, &std::shared_ptr<Registration>::get);
    if (place == list.end()) return nullptr;
    auto taken = std::move(*place);
    list.erase(place);
    return taken;
  }
};

KeyValueObservation& KeyValueObservation::operator=(KeyValueObservation&& other) noexcept {
  if (this != &other) {
    end();
    registration_ = std::move(other.registration_);
  }
  return *this;
}

void KeyValueObservation::end() {
  const auto registration = std::move(registration_);
  if (!registration) return;
  registration->active.store(false);
  registration->remove(registration.get());
}

KeyValueObservable::KeyValueObservable() : observers_(std::make_shared<Observers>()) {}
KeyValueObservable::~KeyValueObservable() = default;

KeyValueObservation KeyValueObservable::addObserver_forKey(std::string_view key,
                                                           Observer observer) {
  auto registration = std::make_shared<KeyValueObservation::Registration>();
  registration->key = key;
  registration->observer = std::move(observer);
  registration->remove = [weak =
                              std::weak_ptr(observers_)](KeyValueObservation::Registration* gone) {
    if (const auto observers = weak.lock()) observers->take(gone);
  };
  {
    const std::lock_guard lock(observers_->mutex);
    observers_->list.push_back(registration);
  }
  KeyValueObservation observation;
  observation.registration_ = std::move(registration);
  return observation;
}

void KeyValueObservable::willChangeValueForKey(std::string_view key) {
  notify({key, /*prior=*/true});
}
void KeyValueObservable::didChangeValueForKey(std::string_view key) {
  notify({key, /*prior=*/false});
}

void KeyValueObservable::notify(const KeyValueChange& change) {
  for (const auto& registration : observers_->forKey(change.key)) {
    if (registration->observer && registration->active.load()) registration->observer(change);
  }
}

}  // namespace platform
