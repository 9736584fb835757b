// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/Allocations.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace stress {
namespace {

constexpr std::uint64_t kNever = UINT64_MAX;

std::atomic<std::int64_t> live{0};
std::atomic<std::uint64_t> number{0};
std::atomic<std::uint64_t> failing{0};
std::atomic<std::uint64_t> firstFailing{kNever};
std::atomic<std::uint64_t> everyFailing{0};
thread_local int unharmed = 0;

bool isDue() {
  const std::uint64_t first = firstFailing.load(std::memory_order_relaxed);
  if (first == kNever || unharmed > 0) return false;
  const std::uint64_t mine = number.fetch_add(1, std::memory_order_relaxed) + 1;
  const std::uint64_t every = everyFailing.load(std::memory_order_relaxed);
  const bool due = mine == first || (every != 0 && mine > first && (mine - first) % every == 0);
  if (due) failing.fetch_add(1, std::memory_order_relaxed);
  return due;
}

void* allocate(std::size_t size, std::size_t alignment) {
  if (isDue()) return nullptr;
  const std::size_t asked = size == 0 ? 1 : size;
  void* const memory =
      alignment <= alignof(std::max_align_t)
          ? std::malloc(asked)
          : std::aligned_alloc(alignment, (asked + alignment - 1) / alignment * alignment);
  if (memory != nullptr) live.fetch_add(1, std::memory_order_relaxed);
  return memory;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  if (void* const memory = allocate(size, alignment)) return memory;
  throw std::bad_alloc();
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  live.fetch_sub(1, std::memory_order_relaxed);
  std::free(memory);
}

}  // namespace

std::uint64_t liveAllocations() {
  return static_cast<std::uint64_t>(live.load());
}

void failAllocations(std::uint64_t first, std::uint64_t every) {
  number.store(0);
  failing.store(0);
  everyFailing.store(every);
  firstFailing.store(first);
}

std::uint64_t stopFailingAllocations() {
  firstFailing.store(kNever);
  return failing.load();
}

std::uint64_t allocationsSince() {
  return number.load();
}

Unharmed::Unharmed() {
  ++unharmed;
}
Unharmed::~Unharmed() {
  --unharmed;
}

}  // namespace stress

using stress::allocate;
using stress::allocateOrThrow;
using stress::release;

constexpr std::size_t kUsual = alignof(std::max_align_t);

void* operator new(std::size_t size) {
  return allocateOrThrow(size, kUsual);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size, kUsual);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kUsual);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kUsual);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  release(memory);
}
