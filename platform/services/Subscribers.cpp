// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Subscribers.h"

#include <utility>
#include <vector>

namespace platform {

std::shared_ptr<void> Subscribers::add(Notice changed) {
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    number = ++latest_;
    notices_.emplace(number, std::move(changed));
  }
  return {this, [weak = weak_from_this(), number](Subscribers*) {
            if (const auto self = weak.lock()) self->remove(number);
          }};
}

void Subscribers::tell() const {
  std::vector<Notice> told;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [number, changed] : notices_) told.push_back(changed);
  }
  for (const auto& changed : told) changed();
}

bool Subscribers::isEmpty() const {
  const std::lock_guard lock(mutex_);
  return notices_.empty();
}

void Subscribers::clear() {
  std::map<std::uint64_t, Notice> dropped;  // without the lock
  const std::lock_guard lock(mutex_);
  dropped.swap(notices_);
}

void Subscribers::remove(std::uint64_t number) {
  Notice dropped;  // without the lock
  const std::lock_guard lock(mutex_);
  const auto found = notices_.find(number);
  if (found == notices_.end()) return;
  dropped = std::move(found->second);
  notices_.erase(found);
}

}  // namespace platform
