// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/DescriptorJson.h"

#include <nlohmann/json.hpp>

#include "input/UsageNames.h"
#include "tool/descriptor/UnitNames.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using router::Collection;
using router::ReportField;
using router::UsageRange;

ordered_json usagesJson(const std::vector<UsageRange>& ranges) {
  auto list = ordered_json::array();
  for (const UsageRange& range : ranges) {
    list.push_back({{"page", range.first >> 16U},
                    {"first", range.first & 0xffffU},
                    {"last", range.last & 0xffffU},
                    {"name", usageNames({range})}});
  }
  return list;
}

/// Null for none.
ordered_json unitJson(const ReportField& field) {
  if (field.unit == 0) return nullptr;
  return {{"code", field.unit},
          {"name", unitName(field.unit)},
          {"system", unitSystem(field.unit)},
          {"exponent", field.unitExponent}};
}

ordered_json fieldJson(const ReportField& field) {
  const auto perUnit = valuesPerUnit(field);
  return {{"offset", field.offset},
          {"type", typeName(field.type)},
          {"reportID", field.reportID},
          {"bitOffset", field.bitOffset},
          {"bitSize", field.bitSize},
          {"count", field.count},
          {"firstCookie", field.firstCookie},
          {"constant", field.constant},
          {"variable", field.variable},
          {"relative", field.relative},
          {"nullState", field.hasNullState},
          {"logicalMinimum", field.logicalMinimum},
          {"logicalMaximum", field.logicalMaximum},
          {"physicalMinimum", field.physicalMinimum},
          {"physicalMaximum", field.physicalMaximum},
          {"unit", unitJson(field)},
          {"valuesPerUnit", perUnit ? ordered_json(*perUnit) : ordered_json()},
          {"usagePage", field.usagePage},
          {"usages", usagesJson(usagesOf(field))}};
}

ordered_json collectionJson(const Collection& collection) {
  std::vector<UsageRange> named;
  if (!collection.everyUsage.empty()) named.push_back(collection.everyUsage.front());
  return {{"offset", collection.offset},
          {"collection", collectionType(collection.type)},
          {"usages", usagesJson(named)}};
}

}  // namespace

ordered_json jsonOf(const std::vector<DescriptorNode>& tree) {
  auto items = ordered_json::array();
  for (const DescriptorNode& node : tree) {
    if (node.field != nullptr) {
      items.push_back(fieldJson(*node.field));
    } else {
      items.push_back(collectionJson(*node.collection));
      items.back()["items"] = jsonOf(node.children);
    }
  }
  return items;
}

ordered_json jsonOf(const std::vector<DescriptorFault>& faults) {
  auto list = ordered_json::array();
  for (const DescriptorFault& fault : faults)
    list.push_back({{"offset", fault.offset}, {"text", fault.text}, {"fatal", fault.isFatal}});
  return list;
}

ordered_json reportsJson(const router::ReportDescriptor& descriptor) {
  auto list = ordered_json::array();
  for (const ReportSize& size : reportSizes(descriptor)) {
    list.push_back({{"type", typeName(size.type)},
                    {"id", size.reportID},
                    {"bits", size.bits},
                    {"bytes", size.bytes()}});
  }
  return list;
}

}  // namespace tool
