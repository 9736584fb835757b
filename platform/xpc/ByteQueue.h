// SPDX-License-Identifier: Apache-2.0

// A queue of bytes, kept in pieces: however full it was and however much went through, its memory
// stays within two pieces of its contents. One block would double with its contents and leave the
// smaller blocks that it outgrew in the heap.
//
// Threading: guarded by its user's lock.
// Errors: std::bad_alloc from append and prepend, which then change nothing; nothing else throws.
// Order: first in, first out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace platform::xpc {

class ByteQueue {
 public:
  /// The largest piece, bytes.
  static constexpr std::size_t kPieceLimit = std::size_t{64} << 10;

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }
  /// The first bytes, as many as one piece holds; empty only if the queue is.
  [[nodiscard]] std::span<const std::uint8_t> front() const;
  /// The memory of all pieces, used and free.
  [[nodiscard]] std::size_t capacity() const;

  void append(std::span<const std::uint8_t> bytes);
  void prepend(std::span<const std::uint8_t> bytes);
  /// Removes the first `count` bytes, at most size().
  void drop(std::size_t count);
  /// Empties it and frees all of its memory.
  void clear();

 private:
  struct Piece {
    explicit Piece(std::size_t size)
        : bytes(std::make_unique_for_overwrite<std::uint8_t[]>(size)), capacity(size) {}
    [[nodiscard]] std::size_t size() const { return end - begin; }
    [[nodiscard]] std::size_t room() const { return capacity - end; }
    void take(std::span<const std::uint8_t> more);

    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t capacity;
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  void makeRoomFor(std::size_t count);
  void forgetDropped();

  // A vector with a moving start: unlike a deque it needs no memory while it is empty. Every piece
  // from first_ on holds bytes, except the one that is kept when the queue runs empty.
  std::vector<Piece> pieces_;
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

}  // namespace platform::xpc
