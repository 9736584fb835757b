// SPDX-License-Identifier: Apache-2.0

// Storage for bytes after an object, in the object's own shared allocation.
//
//   TrailingStorage storage{length};
//   auto object = std::allocate_shared<T>(TrailingAllocator<T>(storage), storage);
//
// T's constructor can use storage.begin.
//
// One block holds the reference counts, the object and the bytes, so a report costs one malloc and
// one free.
//
// Ownership: the storage is part of the object's block and is not initialised; the TrailingStorage
//   record itself is only used during allocate_shared.
// Errors: std::bad_alloc.
#pragma once

#include <cstddef>
#include <limits>
#include <new>

namespace platform {

struct TrailingStorage {
  std::size_t size = 0;
  /// Set by the allocation; aligned for objects with an alignment of at most 8.
  std::byte* begin = nullptr;
};

template <class T>
class TrailingAllocator {
 public:
  using value_type = T;
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  explicit TrailingAllocator(TrailingStorage& storage) : storage_(&storage) {}
  template <class U>
  explicit(false) TrailingAllocator(const TrailingAllocator<U>& other) : storage_(other.storage_) {}

  T* allocate(std::size_t count) {
    constexpr std::size_t limit = std::numeric_limits<std::ptrdiff_t>::max();
    if (count > limit / sizeof(T) || storage_->size > limit - count * sizeof(T))
      throw std::bad_alloc();
    auto* const block = static_cast<std::byte*>(::operator new(count * sizeof(T) + storage_->size));
    storage_->begin = block + count * sizeof(T);
    return reinterpret_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t) noexcept { ::operator delete(block); }

  template <class U>
  bool operator==(const TrailingAllocator<U>&) const {
    return true;
  }

 private:
  template <class>
  friend class TrailingAllocator;
  TrailingStorage* storage_;  // dangles once the object is made; only allocate() uses it
};

}  // namespace platform
