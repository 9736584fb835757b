// SPDX-License-Identifier: Apache-2.0

// Immutable bytes, in one allocation.
//
// Threading: as in NSObject.h.
// Ownership: an NSData made by a factory has its bytes in its own allocation. An NSData may also be
//   a view that is a member of a larger object (an element value inside a delivered array); the
//   shared_ptr to it aliases that owner, so the bytes live as long as the pointer.
// Errors: see each function.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/TrailingStorage.h"

namespace platform {

class NSString;

/// Raised if a range or index is outside the object.
class WLHID_EXPORT NSRangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
};

class WLHID_EXPORT NSData final : public NSObject {
 public:
  static const NSClass& classObject();
  /// Copies `bytes`.
  static std::shared_ptr<NSData> dataWithBytes(std::span<const std::uint8_t> bytes);
  /// One allocation for the object and `length` bytes. `fill` takes a std::span<std::uint8_t> and
  /// is called once, with exactly that many uninitialised bytes, before anything else can access
  /// the object.
  template <class Fill>
  static std::shared_ptr<NSData> dataWithLength(std::size_t length, Fill&& fill) {
    TrailingStorage storage{length};
    auto data = std::allocate_shared<NSData>(TrailingAllocator<NSData>(storage), storage);
    std::forward<Fill>(fill)(std::span(reinterpret_cast<std::uint8_t*>(storage.begin), length));
    return data;
  }
  /// The whole file, or null if it cannot be read, is not a regular file, shrinks while it is read,
  /// or the path is null. Goes through the foundation provider (FoundationProvider.h), so a
  /// scripted platform can answer.
  static std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path);

  /// Null for empty data.
  [[nodiscard]] const std::uint8_t* bytes() const { return length_ == 0 ? nullptr : bytes_; }
  [[nodiscard]] std::size_t length() const { return length_; }
  [[nodiscard]] std::span<const std::uint8_t> span() const { return {bytes_, length_}; }
  /// A new object with a copy of the bytes. Throws NSRangeException if the range is not within the
  /// data.
  [[nodiscard]] std::shared_ptr<NSData> subdataWithRange(std::size_t location,
                                                         std::size_t length) const;

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  /// "{length = 4, bytes = 0x01020304}"; more than 24 bytes are shortened to the first 16 and the
  /// last 8, in groups of four: "{length = 32, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ...
  /// 18191a1b 1c1d1e1f }".
  [[nodiscard]] std::string description() const override;
  /// Unquoted inside a collection.
  [[nodiscard]] std::string descriptionWithIndent(std::size_t indent) const override;

  /// A view of bytes that outlive this object; only for a member of their owner. Otherwise use a
  /// factory.
  explicit NSData(std::span<const std::uint8_t> view) : bytes_(view.data()), length_(view.size()) {}

  /// The bytes after the object in its own block; for dataWithLength.
  explicit NSData(const TrailingStorage& storage)
      : bytes_(reinterpret_cast<const std::uint8_t*>(storage.begin)), length_(storage.size) {}

 protected:
  /// The shorter before the longer.
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;

 private:
  const std::uint8_t* const bytes_;
  const std::size_t length_;
};

}  // namespace platform
