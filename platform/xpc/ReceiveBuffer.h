// SPDX-License-Identifier: Apache-2.0

// The buffer that a connection's stream is read into: 64 KiB, and more only while a larger frame is
// arriving.
//
// Its memory is a mapping of its own, so a connection that has only seen small messages keeps one
// page of it resident, and trim() gives back what a busy period touched.
//
// Threading: one thread at a time.
// Ownership: spans are valid until the next call that is not const.
// Errors: std::bad_alloc.
// Order: bytes come out as they went in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace platform::xpc {

class ReceiveBuffer {
 public:
  static constexpr std::size_t kUsualSize = std::size_t{64} << 10;

  ReceiveBuffer() = default;
  ReceiveBuffer(const ReceiveBuffer&) = delete;
  ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;
  ~ReceiveBuffer();

  /// Room for the next read, never empty. Unread bytes move to the front first. If a frame of
  /// `frameSize` bytes (0: unknown) is at the front, the buffer grows towards that size by
  /// doubling, but only as the bytes really arrive.
  std::span<std::uint8_t> room(std::size_t frameSize);
  void filled(std::size_t count);

  [[nodiscard]] std::span<const std::uint8_t> unread() const {
    return {memory_ + start_, end_ - start_};
  }
  void consume(std::size_t count) { start_ += count; }

  /// Whether trim() would release anything.
  [[nodiscard]] bool holdsIdleMemory() const {
    return touched_ > kKeptResident || capacity_ > kUsualSize;
  }
  void trim();
  void clear();

 private:
  static constexpr std::size_t kKeptResident = 4096;
  void resize(std::size_t capacity);

  std::uint8_t* memory_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t start_ = 0;
  std::size_t end_ = 0;
  std::size_t touched_ = 0;
};

}  // namespace platform::xpc
