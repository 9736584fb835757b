// SPDX-License-Identifier: Apache-2.0

#include "jobd/Caller.h"

#include <poll.h>

namespace jobd {

bool CallerPresence::isThere() const {
  pollfd entry{socket_, 0, 0};
  return ::poll(&entry, 1, 0) == 0;
}

/// Without events: one that only has nothing more to say still wants its answer.
void CallerPresence::whenGone(const std::function<void()>& gone) {
  watch_.end();
  if (!gone || socket_ < 0) return;
  watch_ = loop_.watch(socket_, 0, [this, gone] {
    watch_.end();
    gone();
  });
}

void CallerPresence::end() {
  watch_.end();
  socket_ = -1;
}

}  // namespace jobd
