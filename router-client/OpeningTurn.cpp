// SPDX-License-Identifier: Apache-2.0

#include "router-client/OpeningTurn.h"

#include <utility>

namespace wlhid {

void OpeningTurn::visit() {
  const std::lock_guard lock(mutex_);
  if (isElsewhere()) noted_ = true;
}

bool OpeningTurn::enter() {
  const std::lock_guard lock(mutex_);
  if (isElsewhere()) {
    noted_ = true;
    return false;
  }
  owner_ = std::this_thread::get_id();
  ++depth_;
  return true;
}

bool OpeningTurn::leave() {
  const std::lock_guard lock(mutex_);
  --depth_;
  return depth_ == 0 && std::exchange(noted_, false);
}

}  // namespace wlhid
