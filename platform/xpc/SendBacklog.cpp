#include "platform/xpc/SendBacklog.h"

namespace platform::xpc {

void SendBacklog::append(std::span<const std::uint8_t> frame, bool oneWay,
                         SharedErrorHandler errorHandler) {
  if (head_ > 0 && head_ >= bytes_.size() / 2) {  // each byte moves at most once for one that left
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
  bytes_.insert(bytes_.end(), frame.begin(), frame.end());
  entries_.push_back({position_ + size(), oneWay, std::move(errorHandler)});
}

void SendBacklog::prepend(std::span<const std::uint8_t> frame) {
  bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(head_), frame.begin(), frame.end());
  for (Entry& entry : entries_) entry.end += frame.size();
}

void SendBacklog::written(std::size_t count, std::vector<SharedErrorHandler>& released) {
  head_ += count;
  position_ += count;
  while (!entries_.empty() && entries_.front().end <= position_) {
    if (entries_.front().errorHandler) released.push_back(std::move(entries_.front().errorHandler));
    entries_.pop_front();
  }
  if (!empty()) return;
  bytes_.clear();
  head_ = 0;
  if (bytes_.capacity() > kKeptCapacity) std::vector<std::uint8_t>().swap(bytes_);
}

std::deque<SendBacklog::Entry> SendBacklog::takeAll() {
  std::vector<std::uint8_t>().swap(bytes_);
  head_ = 0;
  std::deque<Entry> entries;
  entries.swap(entries_);
  return entries;
}

}  // namespace platform::xpc
