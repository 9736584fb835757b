// SPDX-License-Identifier: Apache-2.0

// The value of one HID element in one report.
//
// Threading: immutable after creation.
// Ownership: as in NSObject.h. The values in a delivered array share the array's one allocation,
//   and a pointer to a value keeps that allocation alive.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/foundation/Export.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"

namespace platform {

/// The numbers of a value. `bytes` is the field as it is in the report, little-endian, unused high
/// bits zero.
struct HIDElementValueRecord {
  std::uint32_t reportID = 0;
  std::uint32_t usagePage = 0;
  std::uint32_t usage = 0;
  std::uint64_t cookie = 0;  ///< 1-based index of the element in the whole descriptor
  /// Sign-extended if the logical minimum is negative; 0 for fields wider than 64 bits.
  std::int64_t integerValue = 0;
  std::span<const std::uint8_t> bytes;
};

class WLHID_EXPORT KQHIDDeviceElementValue : public NSObject {
 public:
  static const NSClass& classObject();
  /// Copies the record's bytes.
  static std::shared_ptr<KQHIDDeviceElementValue> elementValue(const HIDElementValueRecord& record);

  [[nodiscard]] std::uint32_t hidReportID() const { return record_.reportID; }
  [[nodiscard]] std::uint32_t hidUsage() const { return record_.usage; }
  [[nodiscard]] std::uint32_t hidUsagePage() const { return record_.usagePage; }
  [[nodiscard]] std::uint64_t hidCookie() const { return record_.cookie; }
  [[nodiscard]] std::int64_t integerValue() const { return record_.integerValue; }
  /// Valid as long as the returned pointer or this value exists, whichever is longer.
  [[nodiscard]] virtual std::shared_ptr<NSData> bytesValue() const = 0;
  [[nodiscard]] const HIDElementValueRecord& record() const { return record_; }

  [[nodiscard]] const NSClass& isa() const override { return classObject(); }
  [[nodiscard]] std::string description() const override;

 protected:
  [[nodiscard]] std::strong_ordering compareValue(const NSObject& other) const override;
  explicit KQHIDDeviceElementValue(const HIDElementValueRecord& record) : record_(record) {}

 private:
  const HIDElementValueRecord record_;
};

/// An NSMutableArray (exactly that class) of element values in one allocation: the values and their
/// bytes are in the array's own block, and every pointer to them aliases it. `records` are copied.
[[nodiscard]] WLHID_EXPORT std::shared_ptr<class NSMutableArray> elementValueArray(
    std::span<const HIDElementValueRecord> records);

}  // namespace platform
