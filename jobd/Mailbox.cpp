// SPDX-License-Identifier: Apache-2.0

#include "jobd/Mailbox.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <utility>

#include "platform/services/ServiceError.h"

namespace jobd {

Mailbox::Mailbox(EventLoop& loop) : wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wakeUp_) throw platform::fileSystemError("cannot receive messages of other threads", errno);
  watch_ = loop.watch(wakeUp_.get(), EPOLLIN, [this] { runAll(); });
}

void Mailbox::post(std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(work));
  }
  ::eventfd_write(wakeUp_.get(), 1);
}

void Mailbox::runAll() {
  eventfd_t count = 0;
  ::eventfd_read(wakeUp_.get(), &count);
  std::vector<std::function<void()>> work;
  {
    const std::lock_guard lock(mutex_);
    work.swap(waiting_);
  }
  for (const auto& each : work) each();
}

}  // namespace jobd
