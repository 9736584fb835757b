// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/ReadAhead.h"

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <utility>

namespace platform {
namespace {

/// Signals belong to the application's own threads: a thread that starts meanwhile receives none.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

ReadAhead::ReadAhead(Read read, Look look) : read_(std::move(read)), look_(std::move(look)) {
  const SignalsBlocked blocked;
  thread_ = std::thread(&ReadAhead::readAll, this);
}

ReadAhead::~ReadAhead() {
  {
    const std::lock_guard lock(mutex_);
    stops_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

ReadAhead::Piece ReadAhead::next() {
  std::unique_lock lock(mutex_);
  if (std::exchange(holdsPiece_, true)) {
    ++freed_;
    changed_.notify_all();
  }
  changed_.wait(lock, [this] { return filled_ > freed_; });
  return slots_[freed_ % kPieces].piece;
}

/// False if reading should stop.
bool ReadAhead::waitForRoom() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return stops_ || filled_ - freed_ < kPieces; });
  return !stops_;
}

void ReadAhead::readAll() {
  bool isOver = false;
  for (std::size_t number = 0; !isOver && waitForRoom(); ++number) {
    Slot& slot = slots_[number % kPieces];
    const ssize_t got = read_({slot.room.get(), kPiece});
    slot.piece = {{}, got < 0 ? errno : 0};
    const std::string_view bytes(slot.room.get(), got > 0 ? static_cast<std::size_t>(got) : 0);
    isOver = bytes.empty() || !look_(bytes);
    if (!isOver) slot.piece.bytes = bytes;
    {
      const std::lock_guard lock(mutex_);
      ++filled_;
    }
    changed_.notify_all();
  }
}

}  // namespace platform
