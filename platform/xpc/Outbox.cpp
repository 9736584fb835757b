// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/Outbox.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/xpc/NSXPCConnection.h"

namespace platform::xpc {

void Outbox::open(int socket, const Hello& ours) {
  WireWriter hello;
  writeHello(hello, ours);
  backlog_.prepend(hello.bytes());
  socket_ = socket;
  ++stream_;
}

void Outbox::close() {
  socket_ = -1;
  broken_ = false;
}

/// The farewell goes out at once if the socket takes it, so that it arrives even if the process
/// exits right afterwards.
bool Outbox::sayFarewell(Handlers& released) {
  if (saidFarewell_) return false;
  WireWriter farewell;
  farewell.beginFrame(FrameKind::Farewell, 0);
  farewell.finishFrame();
  backlog_.append(farewell.bytes(), false, nullptr);
  saidFarewell_ = true;
  flush(released);
  return true;
}

void Outbox::breakOff() {
  broken_ = true;
  if (isOpen()) ::shutdown(socket_, SHUT_RDWR);
}

bool Outbox::fits(std::size_t bytes) const {
  return bytes <= kXPCUnsentLimit - std::min(backlog_.size(), kXPCUnsentLimit) &&
         backlog_.mayTake(bytes);
}

void Outbox::put(std::span<const std::uint8_t> frame, bool oneWay,
                 const SharedErrorHandler& errorHandler) {
  std::size_t written = 0;
  if (mayWriteAtOnce()) {
    written = write(frame);
    if (written == frame.size()) return;
  }
  try {
    backlog_.append(frame.subspan(written), oneWay, errorHandler);
  } catch (const std::bad_alloc&) {
    if (written > 0) breakOff();  // the rest of a frame must follow its beginning
    throw;
  }
}

bool Outbox::put(const BatchedFrames& batch, Handlers& refused) {
  const auto bytes = batch.frames.bytes();
  const std::size_t written = mayWriteAtOnce() ? write(bytes) : 0;
  if (written == bytes.size()) return false;
  try {
    return keepRest(batch, written, refused);
  } catch (const std::bad_alloc&) {
    breakOff();
    throw;
  }
}

bool Outbox::keepRest(const BatchedFrames& batch, std::size_t written, Handlers& refused) {
  const auto bytes = batch.frames.bytes();
  bool dropsBegin = false;
  std::size_t start = 0;
  for (const auto& message : batch.messages) {
    const std::size_t from = std::max(start, written);
    start = message.end;
    if (message.end <= written) continue;
    if (fits(message.end - from)) {
      backlog_.append(bytes.subspan(from, message.end - from), true, message.errorHandler);
    } else {
      dropsBegin |= drop();
      refused.push_back(message.errorHandler);
    }
  }
  return dropsBegin;
}

/// Returns how many bytes the socket took.
std::size_t Outbox::write(std::span<const std::uint8_t> bytes) {
  for (;;) {
    const ssize_t written =
        ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (written >= 0) return static_cast<std::size_t>(written);
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != ENOBUFS) broken_ = true;
    return 0;
  }
}

void Outbox::flush(Handlers& released) {
  while (isOpen() && wantsToWrite()) {
    const std::size_t written = write(backlog_.front());
    if (written == 0) break;
    backlog_.written(written, released);
  }
  if (backlog_.empty()) dropping_ = false;
  notifyWaiters();
}

std::vector<SendBacklog::Entry> Outbox::takeAll() {
  auto lost = backlog_.takeAll();
  dropped_ += lost.size();
  notifyWaiters();
  return lost;
}

bool Outbox::drop() {
  ++dropped_;
  return !std::exchange(dropping_, true);
}

bool Outbox::waitUntilBelow(std::unique_lock<std::mutex>& lock, std::size_t bytes,
                            std::chrono::steady_clock::time_point deadline) {
  ++waiters_;
  const bool reached = changed_.wait_until(lock, deadline, [&] { return size() < bytes; });
  --waiters_;
  return reached;
}

void Outbox::notifyWaiters() {
  if (waiters_ > 0) changed_.notify_all();
}

}  // namespace platform::xpc
