#include "platform/xpc/SendBacklog.h"

#include <new>
#include <utility>

namespace platform::xpc {
namespace {

/// False where memory is short: the handler then stays where it is until the next time.
bool keep(SharedErrorHandler& handler, std::vector<SharedErrorHandler>& released) {
  try {
    released.push_back(std::move(handler));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void SendBacklog::append(std::span<const std::uint8_t> frame, bool oneWay,
                         SharedErrorHandler errorHandler) {
  if (head_ > 0 && head_ >= bytes_.size() / 2) {  // each byte moves at most once for one that left
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
  if (firstEntry_ > 0 && firstEntry_ >= entries_.size() / 2) {
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(firstEntry_));
    firstEntry_ = 0;
  }
  // Bytes without an entry, or the other way round, must not remain when memory runs out.
  entries_.push_back({position_ + size() + frame.size(), oneWay, std::move(errorHandler)});
  try {
    bytes_.insert(bytes_.end(), frame.begin(), frame.end());
  } catch (...) {
    entries_.pop_back();
    throw;
  }
}

void SendBacklog::prepend(std::span<const std::uint8_t> frame) {
  bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(head_), frame.begin(), frame.end());
  for (Entry& entry : entries_) entry.end += frame.size();
}

void SendBacklog::written(std::size_t count, std::vector<SharedErrorHandler>& released) {
  head_ += count;
  position_ += count;
  for (; firstEntry_ < entries_.size() && entries_[firstEntry_].end <= position_; ++firstEntry_) {
    SharedErrorHandler& handler = entries_[firstEntry_].errorHandler;
    if (handler && !keep(handler, released)) break;
  }
  if (firstEntry_ == entries_.size()) {
    entries_.clear();
    firstEntry_ = 0;
  }
  if (!empty()) return;
  bytes_.clear();
  head_ = 0;
  if (bytes_.capacity() > kKeptCapacity) std::vector<std::uint8_t>().swap(bytes_);
}

std::vector<SendBacklog::Entry> SendBacklog::takeAll() {
  std::vector<std::uint8_t>().swap(bytes_);
  head_ = 0;
  entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(firstEntry_));
  firstEntry_ = 0;
  return std::exchange(entries_, {});
}

}  // namespace platform::xpc
