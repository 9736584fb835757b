// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ReceiveBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace platform::xpc {

ReceiveBuffer::~ReceiveBuffer() {
  if (memory_ != nullptr) ::munmap(memory_, capacity_);
}

std::span<std::uint8_t> ReceiveBuffer::room(std::size_t frameSize) {
  if (start_ > 0) {
    const std::size_t unreadBytes = end_ - start_;
    if (unreadBytes > 0) std::memmove(memory_, memory_ + start_, unreadBytes);
    start_ = 0;
    end_ = unreadBytes;
  }
  if (end_ == capacity_) {
    resize(std::max(kUsualSize, std::min(frameSize, capacity_ * 2)));
  } else if (capacity_ > kUsualSize && frameSize <= kUsualSize && end_ <= kUsualSize / 2) {
    resize(kUsualSize);
  }
  return {memory_ + end_, capacity_ - end_};
}

void ReceiveBuffer::filled(std::size_t count) {
  end_ += count;
  touched_ = std::max(touched_, end_);
}

void ReceiveBuffer::trim() {
  if (memory_ == nullptr || end_ != start_) return;
  clear();
  if (capacity_ > kUsualSize) resize(kUsualSize);
  ::madvise(memory_ + kKeptResident, capacity_ - kKeptResident, MADV_DONTNEED);
  touched_ = 0;
}

void ReceiveBuffer::clear() {
  start_ = end_ = 0;
}

/// Uses a new mapping and a copy: mremap would avoid the copy, but ThreadSanitizer does not see it
/// and takes a reused address for a shared one.
void ReceiveBuffer::resize(std::size_t capacity) {
  void* const memory =
      ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  // Buffers of many connections are adjacent; a huge page there would make untouched ones resident.
  ::madvise(memory, capacity, MADV_NOHUGEPAGE);
  if (memory_ != nullptr) {
    std::memcpy(memory, memory_, end_);
    ::munmap(memory_, capacity_);
  }
  memory_ = static_cast<std::uint8_t*>(memory);
  capacity_ = capacity;
  touched_ = end_;
}

}  // namespace platform::xpc
