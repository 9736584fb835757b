// SPDX-License-Identifier: Apache-2.0

#include "router/EndedRoutings.h"

#include <algorithm>
#include <utility>

namespace router {

void EndedRoutings::note(pid_t process, std::uint64_t device,
                         std::shared_ptr<platform::NSError> answer) {
  const std::lock_guard lock(mutex_);
  if (ended_.size() >= most_) ended_.pop_front();
  ended_.push_back({process, device, std::move(answer), Clock::now()});
}

std::shared_ptr<platform::NSError> EndedRoutings::take(pid_t process, std::uint64_t device) {
  const std::lock_guard lock(mutex_);
  const auto known = Clock::now() - lifetime_;
  std::erase_if(ended_, [&](const Ended& each) { return each.at < known; });
  const auto ended = std::find_if(ended_.begin(), ended_.end(), [&](const Ended& each) {
    return each.process == process && each.device == device;
  });
  if (ended == ended_.end()) return nullptr;
  auto answer = std::move(ended->answer);
  ended_.erase(ended);
  return answer;
}

}  // namespace router
