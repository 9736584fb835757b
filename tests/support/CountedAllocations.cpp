// SPDX-License-Identifier: Apache-2.0

#include "tests/support/CountedAllocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

void* countedOrNull(std::size_t size) {
  ++allocations;
  return std::malloc(size == 0 ? 1 : size);
}

void* counted(std::size_t size) {
  if (void* const memory = countedOrNull(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

std::size_t testsupport::allocationsOfThisThread() {
  return allocations;
}

// Inlined, a pair of them looks mismatched to GCC.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return counted(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return counted(size);
}
// A sanitizer's own one would not go with the ones below.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return countedOrNull(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return countedOrNull(size);
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
