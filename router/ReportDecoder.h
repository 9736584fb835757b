// Input reports to element values.
//
// What a report yields: one value for each data field of its Input items that lies wholly within
// the report, in the order of the descriptor. Constant fields are padding and yield nothing; bytes
// behind the last field are ignored; a report whose ID the descriptor lacks yields nothing. The
// integer is the logical value, not clamped to the logical range: sign-extended where the logical
// minimum is negative, else zero-extended (a full 64-bit field keeps its bits), and 0 for fields
// wider than 64 bits, whose bytes are their only value. A slot of an array carries its raw value
// and the usage that the value selects.
//
// All that does not depend on a report's bits is worked out once: decoding writes values into
// records that are there already, and allocates nothing.
//
// Threading: one thread at a time. Ownership: shares the descriptor. Order: that of the descriptor.
// Errors: none; any bytes are a report.
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

  /// The report's first byte where the descriptor uses report IDs, else 0. 0 for an empty report.
  [[nodiscard]] std::uint32_t reportID(std::span<const std::uint8_t> report) const;

  /// The values live until the next call, and their bytes also no longer than those of `report`.
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> decode(
      std::span<const std::uint8_t> report);

  [[nodiscard]] const ReportDescriptor& descriptor() const { return *descriptor_; }

 private:
  struct Step {
    std::uint32_t bitOffset = 0;
    std::uint32_t bitSize = 0;
    std::uint32_t scratchOffset = 0;
    bool isSigned = false;
    bool isByteAligned = false;          // its bytes are those of the report
    const ReportField* array = nullptr;  // null for a variable field, whose usage is fixed
  };
  struct Plan {
    std::vector<Step> steps;
    std::vector<platform::HIDElementValueRecord> records;  // one a step
    std::uint32_t scratchBytes = 0;
  };

  void addField(const ReportField& field, Plan* plan) const;
  void decodeStep(const Step& step, std::span<const std::uint8_t> report,
                  platform::HIDElementValueRecord* record);

  std::shared_ptr<const ReportDescriptor> descriptor_;
  std::array<std::unique_ptr<Plan>, 256>
      plans_;                          // by report ID; null where there is no such Input report
  std::vector<std::uint8_t> scratch_;  // bytes of the fields that do not lie on byte boundaries
};

}  // namespace router
