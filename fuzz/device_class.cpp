// SPDX-License-Identifier: Apache-2.0

// Any bytes are the descriptor of an ordinary or of a sensitive device, and no grant to ordinary
// reports covers one with a sensitive usage, which a plain walk over the items finds. The first
// byte of the input says what else is known of the device.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "router/ReportDescriptor.h"
#include "router/policy/DeviceClass.h"
#include "router/policy/WantedReports.h"
#include "tests/support/SensitiveReports.h"

namespace {

using router::Classification;
using router::DeviceClass;
using router::DeviceFacts;
using router::ReportDescriptor;

void require(bool condition) {
  if (!condition) std::abort();
}

DeviceFacts factsOf(std::uint8_t known, std::span<const std::uint8_t> descriptor) {
  DeviceFacts facts;
  facts.reportDescriptor.assign(descriptor.begin(), descriptor.end());
  facts.isBootKeyboard = (known & 1U) != 0;
  facts.hasKeyboardNode = (known & 2U) != 0;
  facts.isBesideKeyboard = (known & 4U) != 0;
  return facts;
}

/// A descriptor that cannot be read is nobody's ordinary device.
void checkWithoutParse(const Classification& found) {
  require(found.deviceClass == DeviceClass::Sensitive);
  require(found.ordinaryReports.empty());
}

void checkAgainstDescriptor(const Classification& found, const ReportDescriptor& descriptor) {
  require(found.ordinaryReports.empty() || descriptor.usesReportIDs());
  for (const std::uint8_t report : found.ordinaryReports) {
    require(report != 0);
    require(std::ranges::any_of(descriptor.fields(), [&](const router::ReportField& field) {
      return field.type == router::ReportType::Input && field.reportID == report;
    }));
  }
  require(!router::wantedReports(descriptor, router::UsageFilter()).has_value());
}

void checkAgainstWalk(const Classification& found, std::span<const std::uint8_t> descriptor) {
  const test::SensitiveReports sensitive = test::sensitiveReports(descriptor);
  if (sensitive.isAnything) require(found.deviceClass == DeviceClass::Sensitive);
  for (const std::uint8_t report : sensitive.reports)
    require(!found.ordinaryReports.contains(report));
}

void checkClass(const Classification& found, const DeviceFacts& facts) {
  constexpr std::size_t kMostWords = 250;
  require(!found.reason.empty() && found.reason.size() < kMostWords);
  require(std::ranges::none_of(found.reason, [](char c) { return c >= 0 && c < ' '; }));
  if (found.deviceClass == DeviceClass::Ordinary) require(found.ordinaryReports.empty());
  if (facts.isBootKeyboard || facts.hasKeyboardNode)
    require(found.deviceClass == DeviceClass::Sensitive);
  if (facts.isBootKeyboard) require(found.ordinaryReports.empty());
  checkAgainstWalk(found, facts.reportDescriptor);
  try {
    checkAgainstDescriptor(found, ReportDescriptor::parse(facts.reportDescriptor));
  } catch (const router::ReportDescriptorError&) {
    checkWithoutParse(found);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  DeviceFacts facts = factsOf(data[0], {data + 1, size - 1});
  checkClass(router::classify(facts), facts);
  facts.decided = (data[0] & 8U) != 0 ? DeviceClass::Ordinary : DeviceClass::Sensitive;
  require(router::classify(facts).deviceClass == *facts.decided);
  require(router::classify(facts).ordinaryReports.empty());
  return 0;
}
