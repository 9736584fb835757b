// SPDX-License-Identifier: Apache-2.0

// What a connection could not write yet: the bytes, and where each message ends whose sender wants
// to hear about it.
//
// Threading: guarded by its connection's lock, except for size().
// Ownership: error handlers are shared with the proxy.
// Errors: std::bad_alloc from append and prepend, which then change nothing.
// Order: first in, first out.
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

  /// From now on `budget` is charged for what it holds.
  void chargeTo(std::shared_ptr<UnsentBudget> budget);
  /// Whether the budget allows `bytes` more; always true while the backlog is empty.
  [[nodiscard]] bool mayTake(std::size_t bytes) const {
    return !budget_ || empty() || budget_->allows(bytes);
  }
  /// A message whose last byte is not written yet.
  struct Entry {
    std::uint64_t end = 0;  ///< position in the stream after its last byte
    bool oneWay = false;    ///< requests are recorded elsewhere
    SharedErrorHandler errorHandler;
  };

  /// Any thread, without the lock.
  [[nodiscard]] std::size_t size() const { return size_.load(std::memory_order_relaxed); }
  [[nodiscard]] bool empty() const { return bytes_.empty(); }
  /// What to write next: the first bytes, as many as one piece holds.
  [[nodiscard]] std::span<const std::uint8_t> front() const { return bytes_.front(); }

  /// `frame` may be the rest of one whose beginning has been written already.
  void append(std::span<const std::uint8_t> frame, bool oneWay, SharedErrorHandler errorHandler);
  /// Goes in front of everything: for the hello of a new stream.
  void prepend(std::span<const std::uint8_t> frame);
  /// The first `count` bytes have been written. Handlers that are no longer needed go to
  /// `released`, so that the caller can release them without its lock.
  void written(std::size_t count, std::vector<SharedErrorHandler>& released);
  /// Empties it and returns the messages that were not fully written.
  std::vector<Entry> takeAll();

 private:
  static constexpr std::size_t kKeptEntries = 1024;

  /// Call after each change of bytes_.
  void settle();

  ByteQueue bytes_;
  std::atomic<std::size_t> size_{0};
  std::uint64_t position_ = 0;  ///< in the stream, of the first unwritten byte
  // A vector with a moving start: unlike a deque it needs no memory while it is empty, so that a
  // connection can end when memory is short.
  std::vector<Entry> entries_;
  std::size_t firstEntry_ = 0;
  std::shared_ptr<UnsentBudget> budget_;
  std::size_t charged_ = 0;
};

}  // namespace platform::xpc
