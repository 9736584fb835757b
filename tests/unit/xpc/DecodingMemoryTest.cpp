// SPDX-License-Identifier: Apache-2.0

// How much memory decoding allocates. The operators below count for the whole program.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/unit/xpc/CoderSupport.h"

namespace {

std::atomic<std::size_t> inUse{0};
std::atomic<std::size_t> highest{0};

void* counted(std::size_t size) {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  const std::size_t now = inUse += malloc_usable_size(memory);
  std::size_t before = highest;
  while (before < now && !highest.compare_exchange_weak(before, now)) {
  }
  return memory;
}
void returned(void* memory) {
  inUse -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

// Inlined, a pair of them looks mismatched to GCC.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return counted(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return counted(size);
}
// These too: a sanitizer has its own.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept try {
  return counted(size);
} catch (const std::bad_alloc&) {
  return nullptr;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept try {
  return counted(size);
} catch (const std::bad_alloc&) {
  return nullptr;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  returned(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  returned(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  returned(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
  returned(memory);
}

namespace {

using namespace codertest;

/// The peak memory of decoding these bytes, beyond what was in use before.
std::size_t memoryOf(const Bytes& bytes, std::string& reason) {
  WireReader reader(bytes);
  const std::size_t before = inUse;
  highest = before;
  const DecodeResult result = decodeObject(reader, kEverything, kEverything);
  const std::size_t taken = highest - before;
  reason = result.reason;
  return taken;
}

void expectModestMemory(const Bytes& bytes, std::size_t factor) {
  std::string reason;
  const std::size_t taken = memoryOf(bytes, reason);
  EXPECT_EQ(reason, "");
  // The extra bytes are for objects that the first decoding creates once.
  EXPECT_LE(taken, factor * bytes.size() + 1024) << "with members of tag " << int{bytes[6]};
}

/// An array of `count` times the same member.
Bytes arrayOf(std::uint32_t count, const Bytes& member) {
  Bytes bytes{9, 0xFF};
  for (int shift = 0; shift < 32; shift += 8)
    bytes.push_back(static_cast<std::uint8_t>(count >> shift));
  for (std::uint32_t i = 0; i < count; ++i) bytes.insert(bytes.end(), member.begin(), member.end());
  return bytes;
}

/// As many nested collections as an array may hold, with `leaf` innermost.
Bytes nested(const Bytes& begin, const Bytes& leaf) {
  Bytes bytes;
  for (std::size_t i = 0; i < kMaxObjectDepth - 2; ++i)
    bytes.insert(bytes.end(), begin.begin(), begin.end());
  bytes.insert(bytes.end(), leaf.begin(), leaf.end());
  return bytes;
}

}  // namespace

TEST(DecodingMemory, AClaimedCountTakesNoneBeforeItsMembersAreThere) {
  // Each of 64 arrays claims nearly all of the bytes after it.
  Bytes bytes;
  for (int i = 0; i < 64; ++i) bytes.insert(bytes.end(), {9, 0xFF, 0, 0, 0xF0, 0});
  bytes.push_back(16);
  bytes.resize(kMaxFrameBody, 0);
  std::string reason;
  EXPECT_LT(memoryOf(bytes, reason), std::size_t{1} << 20);
  EXPECT_EQ(reason, "an unknown class");
}

TEST(DecodingMemory, FollowsTheBytesThatAreRead) {
  // Dictionaries of one entry take most, above all with an empty mutable array, which must be an
  // object of its own.
  constexpr std::size_t kFactor = 48;
  const std::vector<Bytes> smallest = {{1, 0},
                                       {1, 1, 7},
                                       {2, 0},
                                       {2, 1, 'a'},
                                       {3, 1},
                                       {9, 0},
                                       {9, 1, 3, 1},
                                       {9, 1, 9, 0},
                                       {10, 0},
                                       {10, 1, 3, 1},
                                       {10, 1, 9, 1, 3, 1},
                                       {11, 0},
                                       {8, 1, 'a'},
                                       {11, 1, 3, 1, 3, 1},
                                       {4, 0, 0, 0, 0, 0, 0, 0, 0},
                                       {12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                       {14, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0},
                                       {10, 1, 2, 1, 'a'},
                                       {10, 1, 10, 0},
                                       {11, 1, 10, 0, 10, 0},
                                       {11, 1, 8, 1, 'a', 8, 1, 'a'}};
  // Just over a power of two: the room for members has been doubled for only a few.
  constexpr std::uint32_t kMembers = 33'000;
  for (const Bytes& member : smallest) expectModestMemory(arrayOf(kMembers, member), kFactor);
  // The same for members of many bytes.
  constexpr std::uint32_t kChains = 520;
  for (const Bytes& chain :
       {nested({9, 1}, {3, 1}), nested({10, 1}, {10, 0}), nested({11, 1, 3, 1}, {11, 0}),
        nested({11, 1, 10, 0}, {10, 0}), nested({11, 1, 8, 1, 'a'}, {8, 1, 'a'})}) {
    expectModestMemory(arrayOf(kChains, chain), kFactor);
  }
}

TEST(DecodingMemory, WhatHasOneValueAndDoesNotChangeCostsAPointer) {
  for (const Bytes& member : {Bytes{1, 0}, {2, 0}, {3, 0}, {3, 1}, {9, 0}, {11, 0}})
    expectModestMemory(arrayOf(33'000, member), 16);
}
