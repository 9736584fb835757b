// What a connection could not write yet: the bytes, and for each message that somebody wants to
// hear about where it ends.
//
// Threading: guarded by its connection's lock, but for size(). Ownership: the bytes are its own;
// error handlers are shared with the proxy. Errors: std::bad_alloc from append and prepend, which
// then have changed nothing. Order: first in, first out.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/xpc/ByteQueue.h"
#include "platform/xpc/UnsentBudget.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

using SharedErrorHandler = std::shared_ptr<XPCErrorHandler>;

class SendBacklog {
 public:
  SendBacklog() = default;
  SendBacklog(const SendBacklog&) = delete;
  SendBacklog& operator=(const SendBacklog&) = delete;
  ~SendBacklog() { chargeTo(nullptr); }

  /// From now on what it holds is taken from `budget`.
  void chargeTo(std::shared_ptr<UnsentBudget> budget);
  /// Whether the budget allows so many more; always where it is empty.
  [[nodiscard]] bool mayTake(std::size_t bytes) const {
    return !budget_ || empty() || budget_->allows(bytes);
  }
  /// What is known of a message whose last byte is not written yet.
  struct Entry {
    std::uint64_t end = 0;  ///< position in the stream behind its last byte
    bool oneWay = false;    ///< requests are remembered elsewhere
    SharedErrorHandler errorHandler;
  };

  /// Any thread, without the lock.
  [[nodiscard]] std::size_t size() const { return size_.load(std::memory_order_relaxed); }
  [[nodiscard]] bool empty() const { return bytes_.empty(); }
  /// What to write next: the first bytes, as many as stand in one piece.
  [[nodiscard]] std::span<const std::uint8_t> front() const { return bytes_.front(); }

  /// `frame` may be the rest of one whose beginning is written already.
  void append(std::span<const std::uint8_t> frame, bool oneWay, SharedErrorHandler errorHandler);
  /// In front of everything: for the hello of a new stream.
  void prepend(std::span<const std::uint8_t> frame);
  /// The first `count` bytes are written. Handlers that are not needed any more go to `released`,
  /// so that the caller can let go of them without its lock.
  void written(std::size_t count, std::vector<SharedErrorHandler>& released);
  /// Empties it and returns the messages that were not written whole.
  std::vector<Entry> takeAll();

 private:
  static constexpr std::size_t kKeptEntries = 1024;

  /// After each change of bytes_.
  void settle();

  ByteQueue bytes_;
  std::atomic<std::size_t> size_{0};
  std::uint64_t position_ = 0;  ///< in the stream, of the first unwritten byte
  // A vector with a beginning that moves: unlike a deque it needs no memory while it is empty, so
  // that a connection can end where there is none.
  std::vector<Entry> entries_;
  std::size_t firstEntry_ = 0;
  std::shared_ptr<UnsentBudget> budget_;
  std::size_t charged_ = 0;
};

}  // namespace platform::xpc
