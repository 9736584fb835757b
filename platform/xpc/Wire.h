// SPDX-License-Identifier: Apache-2.0

// The frame layer of the wire format (docs/wire-protocol.md): kinds, header, limits, and a writer
// and a reader for its primitive values.
//
// Ownership: a WireReader refers to bytes of its caller; a WireWriter owns its own.
// Errors: a WireReader that runs out of bytes stays failed and yields zeros.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

namespace platform::xpc {

enum class FrameKind : std::uint8_t {
  Hello = 1,
  Message = 2,
  Request = 3,
  Reply = 4,
  ReplyDropped = 5,
  Farewell = 6,
};

struct FrameHeader {
  std::uint32_t length = 0;  ///< of what follows the header
  FrameKind kind = FrameKind::Hello;
  std::uint16_t method = 0;
};

inline constexpr std::size_t kFrameHeaderSize = 8;
inline constexpr std::size_t kMaxFrameSize = std::size_t{16} << 20;  ///< header included
inline constexpr std::size_t kMaxFrameBody = kMaxFrameSize - kFrameHeaderSize;
inline constexpr std::size_t kRequestIDSize = 8;

/// A size below this takes one byte; a larger one takes a byte of this value and then four bytes.
inline constexpr std::uint8_t kLongSize = 0xFF;

/// Bytes being written. The first 512 need no allocation.
class WireWriter {
 public:
  WireWriter() = default;
  WireWriter(const WireWriter&) = delete;
  WireWriter& operator=(const WireWriter&) = delete;

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return {data_, size_}; }

  void u8(std::uint8_t value) { *extend(1) = value; }
  void u16(std::uint16_t value) { little(value); }
  void u32(std::uint32_t value) { little(value); }
  void u64(std::uint64_t value) { little(value); }
  void number(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    u64(bits);
  }
  void raw(std::span<const std::uint8_t> bytes) {
    std::uint8_t* place = extend(bytes.size());
    if (!bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  }
  void raw(std::string_view text) {
    raw({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  /// `value` must be below 2^32.
  void size(std::size_t value) {
    if (value < kLongSize) return u8(static_cast<std::uint8_t>(value));
    u8(kLongSize);
    u32(static_cast<std::uint32_t>(value));
  }
  /// A size and the bytes.
  void block(std::span<const std::uint8_t> bytes) {
    size(bytes.size());
    raw(bytes);
  }
  void block(std::string_view text) {
    block({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }

  /// The size of the last frame that was begun, header included.
  [[nodiscard]] std::size_t frameSize() const { return size_ - frameStart_; }
  /// Removes everything after the first `size` bytes.
  void truncate(std::size_t size) { size_ = size; }

  /// Begins a frame after what has been written; finishFrame() fills in its length.
  void beginFrame(FrameKind kind, std::size_t method) {
    frameStart_ = size_;
    u32(0);
    u8(static_cast<std::uint8_t>(kind));
    u8(0);
    u16(static_cast<std::uint16_t>(method));
  }
  void finishFrame() {
    const auto length = static_cast<std::uint32_t>(frameSize() - kFrameHeaderSize);
    for (std::size_t i = 0; i < 4; ++i)
      data_[frameStart_ + i] = static_cast<std::uint8_t>(length >> (8 * i));
  }

 private:
  template <class T>
  void little(T value) {
    std::uint8_t* place = extend(sizeof value);
    for (std::size_t i = 0; i < sizeof value; ++i)
      place[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
  std::uint8_t* extend(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    std::uint8_t* place = data_ + size_;
    size_ += count;
    return place;
  }
  void grow(std::size_t count) {
    const std::size_t wanted = std::max(capacity_ * 2, size_ + count);
    auto larger = std::make_unique_for_overwrite<std::uint8_t[]>(wanted);
    std::memcpy(larger.get(), data_, size_);
    heap_ = std::move(larger);
    data_ = heap_.get();
    capacity_ = wanted;
  }

  std::array<std::uint8_t, 512> inline_;  // not initialised: written before it is read
  std::unique_ptr<std::uint8_t[]> heap_;
  std::uint8_t* data_ = inline_.data();
  std::size_t size_ = 0;
  std::size_t frameStart_ = 0;
  std::size_t capacity_ = inline_.size();
};

/// Bytes being read.
class WireReader {
 public:
  explicit WireReader(std::span<const std::uint8_t> bytes)
      : next_(bytes.data()), end_(bytes.data() + bytes.size()) {}

  [[nodiscard]] std::size_t remaining() const { return static_cast<std::size_t>(end_ - next_); }
  [[nodiscard]] bool failed() const { return failed_; }
  /// The next byte to be read.
  [[nodiscard]] const std::uint8_t* position() const { return next_; }

  std::uint8_t u8() { return little<std::uint8_t>(); }
  std::uint16_t u16() { return little<std::uint16_t>(); }
  std::uint32_t u32() { return little<std::uint32_t>(); }
  std::uint64_t u64() { return little<std::uint64_t>(); }
  double number() {
    const std::uint64_t bits = u64();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  std::span<const std::uint8_t> raw(std::size_t count) {
    if (remaining() < count) return fail(), std::span<const std::uint8_t>{};
    const std::span<const std::uint8_t> bytes(next_, count);
    next_ += count;
    return bytes;
  }
  /// Refuses the long form of a size that fits the short one, so that each size has one encoding.
  std::size_t size() {
    const std::uint8_t first = u8();
    if (first != kLongSize) return first;
    const std::uint32_t value = u32();
    if (value < kLongSize) return fail(), 0;
    return value;
  }
  std::span<const std::uint8_t> block() { return raw(size()); }

 private:
  template <class T>
  T little() {
    if (remaining() < sizeof(T)) return fail(), T{};
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
      value |= static_cast<T>(static_cast<T>(next_[i]) << (8 * i));
    next_ += sizeof(T);
    return value;
  }
  void fail() {
    failed_ = true;
    next_ = end_;
  }

  const std::uint8_t* next_;
  const std::uint8_t* end_;
  bool failed_ = false;
};

enum class HeaderVerdict { Valid, TooLong, UnknownKind, ReservedNotZero };

/// Reads kFrameHeaderSize bytes. `header` is set only when the verdict is Valid.
inline HeaderVerdict readFrameHeader(const std::uint8_t* bytes, FrameHeader& header) {
  WireReader reader({bytes, kFrameHeaderSize});
  const std::uint32_t length = reader.u32();
  const std::uint8_t kind = reader.u8();
  const std::uint8_t reserved = reader.u8();
  if (length > kMaxFrameBody) return HeaderVerdict::TooLong;
  if (kind < static_cast<std::uint8_t>(FrameKind::Hello) ||
      kind > static_cast<std::uint8_t>(FrameKind::Farewell)) {
    return HeaderVerdict::UnknownKind;
  }
  if (reserved != 0) return HeaderVerdict::ReservedNotZero;
  header = {length, static_cast<FrameKind>(kind), reader.u16()};
  return HeaderVerdict::Valid;
}

}  // namespace platform::xpc
