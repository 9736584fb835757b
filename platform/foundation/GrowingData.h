// Bytes that grow to any length and become an NSData without being copied.
//
// The bytes lie in pages of their own, which the system moves in one piece when there is no room
// behind them; so neither growing nor handing over ever needs the memory twice. Made for results of
// megabytes; a few bytes are better kept in a std::string.
//
// Threading: a value of one thread.
// Ownership: takeData() hands the pages to the NSData, which gives them back with its last
//   reference.
// Errors: std::bad_alloc when the system has no more memory; what was there stays.
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
  /// Drops everything behind the first `size` bytes; pages that this leaves empty go back to the
  /// system when there are many.
  void truncate(std::size_t size);
  [[nodiscard]] std::size_t size() const { return size_; }
  /// Valid until the next change.
  [[nodiscard]] std::string_view view() const { return {begin_, size_}; }

  /// Everything appended; this object is empty again.
  [[nodiscard]] std::shared_ptr<NSData> takeData();

 private:
  void reserve(std::size_t needed);
  void trim();

  char* begin_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;  ///< a multiple of the page size
};

}  // namespace platform
