// SPDX-License-Identifier: Apache-2.0

// Reads a file ahead of its consumer: a second thread reads the next pieces while the current one
// is processed, so the whole takes as long as the slower of the two rather than both.
//
// Threading: for one calling thread; `read` and `look` are called on this object's own thread, one
//   call at a time.
// Ownership: a piece is valid until the next call; the destructor waits for the read in progress.
// Errors: std::system_error or std::bad_alloc from the constructor, before anything is read; read
//   errors: see Piece.
// Order: pieces come in the order in which they were read.
#pragma once

#include <sys/types.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <thread>

namespace platform {

class ReadAhead {
 public:
  /// Like read(2), but never fails with EINTR.
  using Read = std::function<ssize_t(std::span<char> room)>;
  /// Examines each piece before next() returns it; false ends the reading. Must not throw.
  using Look = std::function<bool(std::string_view piece)>;
  struct Piece {
    std::string_view bytes;  ///< empty at the end or on error
    int error = 0;           ///< the errno of a failed read
  };

  ReadAhead(Read read, Look look);
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead();

  /// Must not be called again after an empty piece.
  [[nodiscard]] Piece next();

 private:
  // Each hand-over costs a wake-up, so pieces are not small; all of them together stay in the
  // processor's cache until they have been examined.
  static constexpr std::size_t kPiece = std::size_t{1024} * 1024;
  static constexpr std::size_t kPieces = 4;

  struct Slot {
    std::unique_ptr<char[]> room{new char[kPiece]};
    Piece piece;
  };

  void readAll();
  [[nodiscard]] bool waitForRoom();

  const Read read_;
  const Look look_;
  std::array<Slot, kPieces> slots_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t filled_ = 0;  ///< pieces so far; a piece's slot is its number modulo kPieces
  std::size_t freed_ = 0;
  bool holdsPiece_ = false;  ///< the caller has the piece after the freed ones
  bool stops_ = false;
  std::thread thread_;
};

}  // namespace platform
