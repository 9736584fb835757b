// SPDX-License-Identifier: Apache-2.0

// The state of the sending side when memory is short at any moment. The operators below fail on
// demand, for the whole program.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/xpc/Outbox.h"
#include "platform/xpc/PendingRequests.h"

namespace {

constexpr long kNever = -1;
std::atomic<long> allocationsUntilFailure{kNever};

void* allocated(std::size_t size) {
  if (allocationsUntilFailure >= 0 && allocationsUntilFailure-- == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// Inlined, a pair of them looks mismatched to GCC.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return allocated(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return allocated(size);
}
// These too: a sanitizer has its own.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using platform::xpc::Outbox;
using platform::xpc::PendingRequests;
using platform::xpc::SendBacklog;
using platform::xpc::SharedErrorHandler;

const std::vector<std::uint8_t> kFrame(100'000, 7);

/// Runs `action` with allocation number `failing` failing; returns false if it threw.
template <class Action>
bool isDone(long failing, const Action& action) {
  allocationsUntilFailure = failing;
  bool done = false;
  try {
    action();
    done = true;
  } catch (const std::bad_alloc&) {
  }
  allocationsUntilFailure = kNever;
  return done;
}

/// Runs `action` on a fresh object again and again, each time with a later allocation failing, and
/// checks what the failure left. Ends when nothing failed.
template <class Object, class Action, class Check>
void failEachAllocation(const Action& action, const Check& isUnchanged) {
  long failed = 0;
  for (;; ++failed) {
    Object object;
    if (isDone(failed, [&] { action(object); })) break;
    EXPECT_TRUE(isUnchanged(object)) << "after allocation " << failed;
  }
  EXPECT_GT(failed, 0);
}

bool holdsNothing(SendBacklog& backlog) {
  return backlog.empty() && backlog.takeAll().empty();
}

TEST(ShortMemory, ABacklogTakesAMessageWholeOrNotAtAll) {
  failEachAllocation<SendBacklog>(
      [](SendBacklog& backlog) { backlog.append(kFrame, true, nullptr); }, holdsNothing);
  failEachAllocation<SendBacklog>([](SendBacklog& backlog) { backlog.prepend(kFrame); },
                                  holdsNothing);
}

TEST(ShortMemory, AnOutboxTakesAMessageWholeOrNotAtAll) {
  const auto isUnchanged = [](Outbox& outbox) {
    return outbox.empty() && outbox.takeAll().empty() && !outbox.isBroken() && !outbox.isOpen() &&
           outbox.stream() == 0;
  };
  failEachAllocation<Outbox>([](Outbox& outbox) { outbox.put(kFrame, true, nullptr); },
                             isUnchanged);
  failEachAllocation<Outbox>([](Outbox& outbox) { outbox.open(0, {}); }, isUnchanged);
}

TEST(ShortMemory, AnOutboxThatCannotKeepABatchIsBroken) {
  const auto put = [](Outbox& outbox) {
    platform::xpc::BatchedFrames batch;
    for (const std::uint8_t byte : {1, 2, 3}) {
      batch.frames.u8(byte);
      batch.messages.push_back({batch.frames.size(), nullptr});
    }
    Outbox::Handlers refused;
    outbox.put(batch, refused);
  };
  bool wasBroken = false;
  for (long failing = 0;; ++failing) {
    Outbox outbox;
    if (isDone(failing, [&] { put(outbox); })) break;
    EXPECT_TRUE(outbox.isBroken() || outbox.empty());
    wasBroken |= outbox.isBroken();
  }
  EXPECT_TRUE(wasBroken);
}

TEST(ShortMemory, ARequestThatCannotBeNotedIsWithItsCaller) {
  const auto handler = std::make_shared<platform::XPCErrorHandler>([](const auto&) {});
  failEachAllocation<PendingRequests>(
      [](PendingRequests& requests) {
        requests.add(1, {nullptr, 0, {}, {}});
      },
      [](PendingRequests& requests) { return requests.empty(); });
  platform::XPCReplyHandler reply = [](const platform::XPCValues&) {};
  failEachAllocation<PendingRequests>(
      [&](PendingRequests& requests) { requests.fail(reply, handler, nullptr); },
      [&](PendingRequests& requests) { return requests.empty() && reply; });
}

}  // namespace
