// SPDX-License-Identifier: Apache-2.0

// Bytes that grow to any length and become an NSData without being copied.
//
// The bytes are in pages of their own, which the system moves as a whole when there is no room
// after them, so neither growing nor takeData() ever needs the memory twice. Meant for results of
// megabytes; a std::string is better for a few bytes.
//
// Threading: a value of one thread.
// Ownership: takeData() passes the pages to the NSData, which releases them with its last
//   reference.
// Errors: std::bad_alloc if the system is out of memory; the contents are then unchanged.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "platform/foundation/NSData.h"

namespace platform {

class GrowingData {
 public:
  GrowingData() = default;
  GrowingData(const GrowingData&) = delete;
  GrowingData& operator=(const GrowingData&) = delete;
  ~GrowingData();

  void append(std::string_view bytes);
  /// Drops everything after the first `size` bytes; if that empties many pages, they are returned
  /// to the system.
  void truncate(std::size_t size);
  [[nodiscard]] std::size_t size() const { return size_; }
  /// Valid until the next change.
  [[nodiscard]] std::string_view view() const { return {begin_, size_}; }

  /// Returns everything appended and leaves this object empty.
  [[nodiscard]] std::shared_ptr<NSData> takeData();

 private:
  void reserve(std::size_t needed);
  void trim();

  char* begin_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;  ///< a multiple of the page size
};

}  // namespace platform
