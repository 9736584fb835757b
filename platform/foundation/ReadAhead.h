// Reads a file while what was read before is being worked on: a second thread fills the next pieces
// meanwhile, so that the longer of the two takes the time, not both.
//
// Threading: one thread calls; `read` and `look` are called on a thread of this object's, one call
// at a time.
// Ownership: a piece is valid until the next call; the destructor waits for the read under way.
// Errors: std::system_error or std::bad_alloc from the constructor, which then has not read
// anything; see Piece. Order: pieces come in the order in which they were read.
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
  /// As read(2), and not to be interrupted.
  using Read = std::function<ssize_t(std::span<char> room)>;
  /// Looks at each piece before anybody gets it; what it refuses is the end. Must not throw.
  using Look = std::function<bool(std::string_view piece)>;
  struct Piece {
    std::string_view bytes;  ///< empty at the end, and with an error
    int error = 0;           ///< the errno of a read that failed
  };

  ReadAhead(Read read, Look look);
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead();

  /// Not to be called again after a piece without bytes.
  [[nodiscard]] Piece next();

 private:
  // Each handing over costs a wake-up, so pieces are not small; all of them together stay in a
  // processor's cache until they have been looked at.
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
  std::size_t filled_ = 0;  ///< pieces so far; the slot of each is its number's remainder
  std::size_t freed_ = 0;
  bool holdsPiece_ = false;  ///< the caller has the one behind the freed ones
  bool stops_ = false;
  std::thread thread_;
};

}  // namespace platform
