// SPDX-License-Identifier: Apache-2.0

#include "router/policy/WantedReports.h"

#include <algorithm>

namespace router {

namespace {

UsageRange only(const Usage& usage) {
  const std::uint32_t number = usage.page << 16U | usage.id;
  return {number, number};
}

/// The usages that values of the field can have.
std::vector<UsageRange> usagesOfValues(const ReportField& field) {
  if (field.variable) {
    if (field.usages.empty()) return {only(field.usageOfField(0))};
    return field.usages.firstRanges(field.count);
  }
  const auto span = static_cast<std::uint64_t>(field.logicalMaximum - field.logicalMinimum);
  std::vector<UsageRange> usages = field.usages.firstRanges(span + 1);
  usages.push_back(only(field.noSelection()));
  return usages;
}

/// If IDs are used, no report can carry a field that was laid out before the first ID.
bool isInput(const ReportField& field, const ReportDescriptor& descriptor) {
  const bool isCarried = !descriptor.usesReportIDs() || field.reportID != 0;
  return field.type == ReportType::Input && isCarried;
}

}  // namespace

std::set<std::uint8_t> declaredReports(const ReportDescriptor& descriptor) {
  std::set<std::uint8_t> reports;
  for (const ReportField& field : descriptor.fields())
    if (isInput(field, descriptor)) reports.insert(field.reportID);
  return reports;
}

std::optional<std::set<std::uint8_t>> wantedReports(const ReportDescriptor& descriptor,
                                                    const UsageFilter& filter) {
  if (filter.wantsEverything()) return std::nullopt;
  std::set<std::uint8_t> reports;
  for (const ReportField& field : descriptor.fields()) {
    if (!isInput(field, descriptor) || field.constant) continue;
    const std::vector<UsageRange> usages = usagesOfValues(field);
    if (std::ranges::any_of(usages, [&](const UsageRange& range) {
          return filter.wantsAnyOf(range.first, range.last);
        }))
      reports.insert(field.reportID);
  }
  return reports;
}

}  // namespace router
