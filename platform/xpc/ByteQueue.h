// Bytes that go in at the end and out at the front, kept in pieces: however full it was and however
// much went through, its memory stays within two pieces of what it holds. One block would double
// with its contents, and leave the smaller ones that it grew out of behind in the heap.
//
// Threading: its user's lock. Ownership: the bytes are its own. Errors: std::bad_alloc from append
// and prepend, which then have changed nothing; nothing else throws. Order: first in, first out.
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
  /// The first bytes, as many as stand in one piece; empty only when the queue is.
  [[nodiscard]] std::span<const std::uint8_t> front() const;
  /// What the pieces have room for, bytes taken and free.
  [[nodiscard]] std::size_t capacity() const;

  void append(std::span<const std::uint8_t> bytes);
  void prepend(std::span<const std::uint8_t> bytes);
  /// Takes the first `count` bytes out, at most size().
  void drop(std::size_t count);
  /// Empties it and gives all of its memory back.
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

  // A vector whose beginning moves: unlike a deque it needs no memory while it is empty. Every
  // piece from first_ on holds bytes, but for the one that is kept when the queue runs empty.
  std::vector<Piece> pieces_;
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

}  // namespace platform::xpc
