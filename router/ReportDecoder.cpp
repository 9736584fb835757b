// SPDX-License-Identifier: Apache-2.0

#include "router/ReportDecoder.h"

#include <algorithm>
#include <cstring>

namespace router {

namespace {

constexpr std::uint32_t kMaxIntegerBits = 64;

std::uint32_t bytesForBits(std::uint32_t bits) {
  return (bits + 7) / 8;
}

/// Up to eight bytes from `offset`, little-endian; bytes beyond the report read as zero.
std::uint64_t loadLittleEndian(std::span<const std::uint8_t> report, std::size_t offset) {
  std::uint64_t value = 0;
  const std::size_t count = std::min<std::size_t>(8, report.size() - offset);
  if (count == 8) {
    for (unsigned i = 0; i < 8; ++i)
      value |= std::uint64_t{report[offset + i]} << (8 * i);  // one load
    return value;
  }
  for (unsigned i = 0; i < count; ++i) value |= std::uint64_t{report[offset + i]} << (8 * i);
  return value;
}

/// `size` bits, 1 to 64, from bit `offset`. They must lie within the report.
std::uint64_t extractBits(std::span<const std::uint8_t> report, std::uint32_t offset,
                          std::uint32_t size) {
  const std::uint32_t shift = offset % 8;
  std::uint64_t value = loadLittleEndian(report, offset / 8) >> shift;
  if (shift + size > 64) value |= std::uint64_t{report[offset / 8 + 8]} << (64 - shift);
  return size == 64 ? value : value & ((std::uint64_t{1} << size) - 1);
}

std::int64_t integerFromBits(std::uint64_t bits, std::uint32_t size, bool isSigned) {
  const std::uint32_t unused = 64 - size;
  if (!isSigned) return static_cast<std::int64_t>(bits);
  return static_cast<std::int64_t>(bits << unused) >> unused;
}

void copyBits(std::span<const std::uint8_t> report, std::uint32_t offset, std::uint32_t size,
              std::uint8_t* out) {
  while (size > 0) {
    const std::uint32_t chunk = std::min<std::uint32_t>(size, 8);
    *out++ = static_cast<std::uint8_t>(extractBits(report, offset, chunk));
    offset += chunk;
    size -= chunk;
  }
}

}  // namespace

ReportDecoder::ReportDecoder(std::shared_ptr<const ReportDescriptor> descriptor)
    : descriptor_(std::move(descriptor)) {
  std::uint32_t scratchBytes = 0;
  for (const ReportField& field : descriptor_->fields()) {
    // If IDs are used, no report can carry a field that was laid out before the first ID.
    const bool isCarried = !descriptor_->usesReportIDs() || field.reportID != 0;
    if (field.type != ReportType::Input || field.constant || !isCarried) continue;
    auto& plan = plans_[field.reportID];
    if (!plan) plan = std::make_unique<Plan>();
    addField(field, plan.get());
    scratchBytes = std::max(scratchBytes, plan->scratchBytes);
  }
  scratch_.resize(scratchBytes);
}

void ReportDecoder::addField(const ReportField& field, Plan* plan) const {
  for (std::uint32_t i = 0; i < field.count; ++i) {
    Step step;
    step.bitOffset = field.bitOffset + i * field.bitSize;
    step.bitSize = field.bitSize;
    step.isSigned = field.logicalMinimum < 0;
    step.isByteAligned = step.bitOffset % 8 == 0 && step.bitSize % 8 == 0;
    // A slot too wide for an integer selects nothing.
    step.array = field.variable || field.bitSize > kMaxIntegerBits ? nullptr : &field;
    step.scratchOffset = plan->scratchBytes;
    if (!step.isByteAligned) plan->scratchBytes += bytesForBits(step.bitSize);

    platform::HIDElementValueRecord record;
    record.reportID = field.reportID;
    record.cookie = field.firstCookie + i;
    const Usage usage = field.variable ? field.usageOfField(i) : field.noSelection();
    record.usagePage = usage.page;
    record.usage = usage.id;
    plan->steps.push_back(step);
    plan->records.push_back(record);
  }
}

std::uint32_t ReportDecoder::reportID(std::span<const std::uint8_t> report) const {
  return descriptor_->usesReportIDs() && !report.empty() ? report[0] : 0;
}

std::span<const platform::HIDElementValueRecord> ReportDecoder::decode(
    std::span<const std::uint8_t> report) {
  Plan* plan = plans_[reportID(report)].get();
  if (plan == nullptr) return {};
  const std::uint64_t reportBits = std::uint64_t{report.size()} * 8;
  std::size_t decoded = 0;
  // The fields of a report are in ascending order, so the first one that is cut off ends it.
  for (const Step& step : plan->steps) {
    if (std::uint64_t{step.bitOffset} + step.bitSize > reportBits) break;
    decodeStep(step, report, &plan->records[decoded++]);
  }
  return {plan->records.data(), decoded};
}

void ReportDecoder::decodeStep(const Step& step, std::span<const std::uint8_t> report,
                               platform::HIDElementValueRecord* record) {
  const std::uint32_t byteCount = bytesForBits(step.bitSize);
  std::uint8_t* const scratch = scratch_.data() + step.scratchOffset;
  if (step.bitSize <= kMaxIntegerBits) {
    const std::uint64_t bits = extractBits(report, step.bitOffset, step.bitSize);
    record->integerValue = integerFromBits(bits, step.bitSize, step.isSigned);
    if (!step.isByteAligned) {
      for (std::uint32_t i = 0; i < byteCount; ++i)
        scratch[i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
  } else if (!step.isByteAligned) {
    copyBits(report, step.bitOffset, step.bitSize, scratch);
  }
  record->bytes = step.isByteAligned ? report.subspan(step.bitOffset / 8, byteCount)
                                     : std::span<const std::uint8_t>(scratch, byteCount);
  if (step.array != nullptr) {
    const Usage usage = step.array->usageOfSelection(record->integerValue);
    record->usagePage = usage.page;
    record->usage = usage.id;
  }
}

}  // namespace router
