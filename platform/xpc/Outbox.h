// SPDX-License-Identifier: Apache-2.0

// What a connection still has to write, how much that may be, and what was lost.
//
// The stream of a connection begins with our hello and ends with our farewell. What is sent before
// the stream is open waits; what is sent while nothing waits goes straight to the socket.
//
// Threading: guarded by its connection's lock, except for size(). Nothing blocks and no handler is
//   called.
// Ownership: the socket stays the connection's. Error handlers are shared with the proxy; those
//   that are no longer needed are returned, to be released without the lock.
// Errors: std::bad_alloc, as each function says. A socket that accepts no more data breaks the
//   outbox; the reading end of the connection learns the reason.
// Order: as sent, the hello first.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "platform/xpc/BatchedFrames.h"
#include "platform/xpc/Hello.h"
#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/UnsentBudget.h"

namespace platform::xpc {

class Outbox {
 public:
  using Handlers = std::vector<SharedErrorHandler>;

  /// From now on `budget` is charged for what waits.
  void chargeTo(std::shared_ptr<UnsentBudget> budget) { backlog_.chargeTo(std::move(budget)); }
  /// Any thread, without the lock.
  [[nodiscard]] std::size_t size() const { return backlog_.size(); }
  [[nodiscard]] bool empty() const { return backlog_.empty(); }
  /// Whether writing would help: something waits, and the socket may take it.
  [[nodiscard]] bool wantsToWrite() const { return !backlog_.empty() && !broken_; }

  /// A stream begins on `socket`. std::bad_alloc: nothing has changed.
  void open(int socket, const Hello& ours);
  /// The socket is closed. What was not written waits for the next stream.
  void close();
  [[nodiscard]] bool isOpen() const { return socket_ >= 0; }
  /// The number of this stream, so that an answer to an earlier one can be recognised.
  [[nodiscard]] std::uint64_t stream() const { return stream_; }
  /// Queues the farewell, once, after everything that waits; returns whether it did so now.
  /// std::bad_alloc: nothing has changed.
  bool sayFarewell(Handlers& released);

  /// Nothing more can be sent: the peer sees the stream end.
  void breakOff();
  [[nodiscard]] bool isBroken() const { return broken_; }

  /// Whether `bytes` more may wait.
  [[nodiscard]] bool fits(std::size_t bytes) const;
  /// Sends a whole frame. std::bad_alloc: it was not accepted.
  void put(std::span<const std::uint8_t> frame, bool oneWay,
           const SharedErrorHandler& errorHandler);
  /// Sends the messages of a batch. One that does not fit is dropped and its error handler goes to
  /// `refused`; returns whether dropping began with this batch. std::bad_alloc: the rest of the
  /// batch is lost, and the stream with it.
  bool put(const BatchedFrames& batch, Handlers& refused);
  /// Writes as much of what waits as the socket takes.
  void flush(Handlers& released);
  /// Discards what waits and counts it as dropped; returns the messages that were not fully
  /// written.
  std::vector<SendBacklog::Entry> takeAll();

  /// Counts a message that did not fit; returns whether it is the first since the outbox was last
  /// empty.
  bool drop();
  [[nodiscard]] std::uint64_t dropped() const { return dropped_; }
  /// An answer that the peer waits for is lost, so the stream cannot continue.
  void loseAnswer() { lostAnswer_ = true; }
  [[nodiscard]] bool hasLostAnswer() const { return lostAnswer_; }

  /// Waits until fewer than `bytes` wait; false if the deadline passes first.
  bool waitUntilBelow(std::unique_lock<std::mutex>& lock, std::size_t bytes,
                      std::chrono::steady_clock::time_point deadline);

 private:
  std::size_t write(std::span<const std::uint8_t> bytes);
  [[nodiscard]] bool mayWriteAtOnce() const { return isOpen() && backlog_.empty() && !broken_; }
  bool keepRest(const BatchedFrames& batch, std::size_t written, Handlers& refused);
  void notifyWaiters();

  SendBacklog backlog_;
  int socket_ = -1;  ///< while open, our hello is in the stream or at the front of the backlog
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
