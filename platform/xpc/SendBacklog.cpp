// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/SendBacklog.h"

#include <new>
#include <utility>

namespace platform::xpc {
namespace {

/// False if memory is short: the handler then stays where it is until the next time.
bool keep(SharedErrorHandler& handler, std::vector<SharedErrorHandler>& released) {
  try {
    released.push_back(std::move(handler));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void SendBacklog::chargeTo(std::shared_ptr<UnsentBudget> budget) {
  if (budget_) budget_->giveBack(charged_);
  budget_ = std::move(budget);
  charged_ = 0;
  settle();
}

void SendBacklog::settle() {
  size_.store(bytes_.size(), std::memory_order_relaxed);
  if (!budget_) return;
  if (size() > charged_) budget_->take(size() - charged_);
  if (size() < charged_) budget_->giveBack(charged_ - size());
  charged_ = size();
}

void SendBacklog::append(std::span<const std::uint8_t> frame, bool oneWay,
                         SharedErrorHandler errorHandler) {
  if (firstEntry_ > 0 && firstEntry_ >= entries_.size() / 2) {
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(firstEntry_));
    firstEntry_ = 0;
  }
  // Bytes without an entry, or the reverse, must not remain if memory runs out.
  entries_.push_back({position_ + size() + frame.size(), oneWay, std::move(errorHandler)});
  try {
    bytes_.append(frame);
  } catch (...) {
    entries_.pop_back();
    throw;
  }
  settle();
}

void SendBacklog::prepend(std::span<const std::uint8_t> frame) {
  bytes_.prepend(frame);
  for (Entry& entry : entries_) entry.end += frame.size();
  settle();
}

void SendBacklog::written(std::size_t count, std::vector<SharedErrorHandler>& released) {
  bytes_.drop(count);
  position_ += count;
  settle();
  for (; firstEntry_ < entries_.size() && entries_[firstEntry_].end <= position_; ++firstEntry_) {
    SharedErrorHandler& handler = entries_[firstEntry_].errorHandler;
    if (handler && !keep(handler, released)) break;
  }
  if (firstEntry_ < entries_.size()) return;
  firstEntry_ = 0;
  entries_.clear();
  if (entries_.capacity() > kKeptEntries) std::vector<Entry>().swap(entries_);
}

std::vector<SendBacklog::Entry> SendBacklog::takeAll() {
  bytes_.clear();
  settle();
  entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(firstEntry_));
  firstEntry_ = 0;
  return std::exchange(entries_, {});
}

}  // namespace platform::xpc
