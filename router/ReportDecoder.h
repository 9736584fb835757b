// SPDX-License-Identifier: Apache-2.0

// Decodes input reports into element values.
//
// A report yields one value for each data field of its Input items that lies entirely within the
// report, in the order of the descriptor. Constant fields are padding and yield nothing; bytes
// after the last field are ignored; a report whose ID is not in the descriptor yields nothing. The
// integer is the logical value, not clamped to the logical range: sign-extended if the logical
// minimum is negative, otherwise zero-extended (a full 64-bit field keeps its bits), and 0 for
// fields wider than 64 bits, whose bytes are their only value. A slot of an array carries its raw
// value and the usage that the value selects.
//
// Everything that does not depend on a report's bits is computed in advance: decoding writes values
// into existing records and allocates nothing.
//
// Threading: one thread at a time.
// Ownership: shares the descriptor.
// Order: that of the descriptor.
// Errors: none; any bytes are a valid report.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/ReportDescriptor.h"

namespace router {

class ReportDecoder {
 public:
  explicit ReportDecoder(std::shared_ptr<const ReportDescriptor> descriptor);

  /// The report's first byte if the descriptor uses report IDs, otherwise 0. 0 for an empty report.
  [[nodiscard]] std::uint32_t reportID(std::span<const std::uint8_t> report) const;

  /// The values are valid until the next call, and their bytes only as long as those of `report`.
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> decode(
      std::span<const std::uint8_t> report);

  [[nodiscard]] const ReportDescriptor& descriptor() const { return *descriptor_; }

 private:
  struct Step {
    std::uint32_t bitOffset = 0;
    std::uint32_t bitSize = 0;
    std::uint32_t scratchOffset = 0;
    bool isSigned = false;
    bool isByteAligned = false;          // its bytes can be taken from the report as they are
    const ReportField* array = nullptr;  // null for a variable field, whose usage is fixed
  };
  struct Plan {
    std::vector<Step> steps;
    std::vector<platform::HIDElementValueRecord> records;  // one per step
    std::uint32_t scratchBytes = 0;
  };

  void addField(const ReportField& field, Plan* plan) const;
  void decodeStep(const Step& step, std::span<const std::uint8_t> report,
                  platform::HIDElementValueRecord* record);

  std::shared_ptr<const ReportDescriptor> descriptor_;
  std::array<std::unique_ptr<Plan>, 256>
      plans_;                          // by report ID; null if there is no such Input report
  std::vector<std::uint8_t> scratch_;  // bytes of the fields that are not byte-aligned
};

}  // namespace router
