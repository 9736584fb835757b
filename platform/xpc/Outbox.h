// What a connection has still to write, how much that may be, and what was lost.
//
// The stream of a connection begins with our hello and ends with our farewell. What is sent before
// it stands waits; what is sent while nothing waits goes to the socket at once.
//
// Threading: guarded by its connection's lock, but for size(). Nothing blocks and no handler is
// called. Ownership: the socket stays the connection's. Error handlers are shared with the proxy;
// those
//   that are not needed any more are handed out, to be let go of without the lock.
// Errors: std::bad_alloc, as each function says. A socket that takes nothing any more breaks the
//   outbox; why, the reading end of the connection learns.
// Order: as sent, the hello first.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "platform/xpc/BatchedFrames.h"
#include "platform/xpc/Hello.h"
#include "platform/xpc/SendBacklog.h"

namespace platform::xpc {

class Outbox {
 public:
  using Handlers = std::vector<SharedErrorHandler>;

  /// From now on what waits is taken from `budget`.
  void chargeTo(std::shared_ptr<UnsentBudget> budget) { backlog_.chargeTo(std::move(budget)); }
  /// Any thread, without the lock.
  [[nodiscard]] std::size_t size() const { return backlog_.size(); }
  [[nodiscard]] bool empty() const { return backlog_.empty(); }
  /// Whether writing would help: something waits, and the socket may take it.
  [[nodiscard]] bool wantsToWrite() const { return !backlog_.empty() && !broken_; }

  /// A stream begins on `socket`. std::bad_alloc: nothing has changed.
  void open(int socket, const Hello& ours);
  /// The socket is gone. What was not written waits for the next stream.
  void close();
  [[nodiscard]] bool isOpen() const { return socket_ >= 0; }
  /// Which stream this is, so that an answer to the one before goes nowhere.
  [[nodiscard]] std::uint64_t stream() const { return stream_; }
  /// Once, behind all that waits; whether this was the time. std::bad_alloc: nothing has changed.
  bool sayFarewell(Handlers& released);

  /// Nothing can follow any more: the other end sees the stream end.
  void breakOff();
  [[nodiscard]] bool isBroken() const { return broken_; }

  /// Whether so many more bytes may wait.
  [[nodiscard]] bool fits(std::size_t bytes) const;
  /// A whole frame. std::bad_alloc: it was not taken.
  void put(std::span<const std::uint8_t> frame, bool oneWay,
           const SharedErrorHandler& errorHandler);
  /// Messages together. One that does not fit is dropped and its error handler goes to `refused`;
  /// whether that has begun now. std::bad_alloc: what was not taken is lost, and the stream with
  /// it.
  bool put(const BatchedFrames& batch, Handlers& refused);
  /// Writes what the socket takes of what waits.
  void flush(Handlers& released);
  /// Gives up what waits, counted as dropped; the messages that were not written whole.
  std::vector<SendBacklog::Entry> takeAll();

  /// Counts a message that did not fit; whether it is the first since everything was written.
  bool drop();
  [[nodiscard]] std::uint64_t dropped() const { return dropped_; }
  /// An answer that the peer waits for is lost: the stream cannot go on.
  void loseAnswer() { lostAnswer_ = true; }
  [[nodiscard]] bool hasLostAnswer() const { return lostAnswer_; }

  /// Waits until fewer than `bytes` wait; false when they do not until the deadline.
  bool waitUntilBelow(std::unique_lock<std::mutex>& lock, std::size_t bytes,
                      std::chrono::steady_clock::time_point deadline);

 private:
  std::size_t write(std::span<const std::uint8_t> bytes);
  [[nodiscard]] bool mayWriteAtOnce() const { return isOpen() && backlog_.empty() && !broken_; }
  bool keepRest(const BatchedFrames& batch, std::size_t written, Handlers& refused);
  void notifyWaiters();

  SendBacklog backlog_;
  int socket_ = -1;  ///< while a stream stands: our hello is in it, or at the front of the backlog
  std::uint64_t stream_ = 0;
  bool broken_ = false;
  bool saidFarewell_ = false;
  bool dropping_ = false;
  bool lostAnswer_ = false;
  std::uint64_t dropped_ = 0;
  std::condition_variable changed_;
  std::size_t waiters_ = 0;
};

}  // namespace platform::xpc
