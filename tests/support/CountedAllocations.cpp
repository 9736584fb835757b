// SPDX-License-Identifier: Apache-2.0

#include "tests/support/CountedAllocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

void* counted(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
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
