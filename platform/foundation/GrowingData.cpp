// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/GrowingData.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace platform {
namespace {

// A mapping uses memory only where it has been written, so capacities can be generous: hardly any
// result moves more than once.
constexpr std::size_t kFirstCapacity = std::size_t{256} * 1024;
constexpr std::size_t kSecondCapacity = std::size_t{64} * 1024 * 1024;
constexpr std::size_t kGrowth = 16;
// From the second on, mappings are aligned to large pages, which makes first use and moving many
// times cheaper.
constexpr std::size_t kLargePage = std::size_t{2} * 1024 * 1024;
constexpr std::size_t kManyBytes = std::size_t{1024} * 1024;

std::size_t pageSize() {
  static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

std::size_t wholePages(std::size_t size) {
  return (size + pageSize() - 1) / pageSize() * pageSize();
}

std::size_t nextCapacity(std::size_t capacity) {
  if (capacity < kFirstCapacity) return kFirstCapacity;
  return std::max(kSecondCapacity, capacity * kGrowth);
}

/// New pages, or null.
char* mapped(std::size_t size) {
  void* const mapping = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return mapping == MAP_FAILED ? nullptr : static_cast<char*>(mapping);
}

/// New pages aligned to a large page, or null.
char* mappedForLargePages(std::size_t size) {
  char* const wide = mapped(size + kLargePage);
  if (wide == nullptr) return nullptr;
  const std::size_t before = -reinterpret_cast<std::uintptr_t>(wide) % kLargePage;
  if (before > 0) ::munmap(wide, before);
  ::munmap(wide + before + size, kLargePage - before);
  ::madvise(wide + before, size, MADV_HUGEPAGE);  // may be refused
  return wide + before;
}

/// A mapping of `newSize` bytes that starts with the old mapping's contents; null if there is no
/// room, and the old one is then unchanged.
char* resized(char* begin, std::size_t oldSize, std::size_t newSize) {
  char* const place = newSize < kSecondCapacity ? mapped(newSize) : mappedForLargePages(newSize);
  if (place == nullptr || begin == nullptr) return place;
  // Moves the pages themselves; the system unmaps the new range for them first.
  if (::mremap(begin, oldSize, newSize, MREMAP_MAYMOVE | MREMAP_FIXED, place) != MAP_FAILED) {
    ::madvise(place, newSize, MADV_HUGEPAGE);
    return place;
  }
  ::munmap(place, newSize);
  return nullptr;
}

/// Owns the pages while the data is referenced.
struct MappedData {
  MappedData(char* begin, std::size_t size, std::size_t capacity)
      : mapping(begin),
        mappedSize(capacity),
        data(std::span(reinterpret_cast<const std::uint8_t*>(begin), size)) {}
  MappedData(const MappedData&) = delete;
  MappedData& operator=(const MappedData&) = delete;
  ~MappedData() { ::munmap(mapping, mappedSize); }

  char* const mapping;
  const std::size_t mappedSize;
  NSData data;
};

}  // namespace

GrowingData::~GrowingData() {
  if (begin_ != nullptr) ::munmap(begin_, capacity_);
}

void GrowingData::reserve(std::size_t needed) {
  if (needed <= capacity_) return;
  const std::size_t generous = wholePages(std::max(needed, nextCapacity(capacity_)));
  for (const std::size_t capacity : {generous, wholePages(needed)}) {
    char* const begin = resized(begin_, capacity_, capacity);
    if (begin == nullptr) continue;
    begin_ = begin;
    capacity_ = capacity;
    return;
  }
  throw std::bad_alloc();
}

void GrowingData::append(std::string_view bytes) {
  if (bytes.empty()) return;
  if (bytes.size() > std::numeric_limits<std::ptrdiff_t>::max() - size_) throw std::bad_alloc();
  reserve(size_ + bytes.size());
  std::memcpy(begin_ + size_, bytes.data(), bytes.size());
  size_ += bytes.size();
}

void GrowingData::truncate(std::size_t size) {
  if (size >= size_) return;
  const std::size_t kept = wholePages(size);
  const std::size_t used = wholePages(size_);
  if (used - kept >= kManyBytes) ::madvise(begin_ + kept, used - kept, MADV_DONTNEED);
  size_ = size;
}

void GrowingData::trim() {
  const std::size_t used = wholePages(size_);
  if (used == capacity_) return;
  ::munmap(begin_ + used, capacity_ - used);
  capacity_ = used;
}

std::shared_ptr<NSData> GrowingData::takeData() {
  if (size_ == 0) return NSData::dataWithBytes({});
  trim();
  const auto owner = std::make_shared<MappedData>(begin_, size_, capacity_);
  begin_ = nullptr;
  size_ = 0;
  capacity_ = 0;
  return {owner, &owner->data};
}

}  // namespace platform
