// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/DescriptorTree.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "input/UsageNames.h"
#include "platform/foundation/Format.h"
#include "tool/descriptor/UnitNames.h"
#include "tool/descriptor/UsageText.h"

namespace tool {

namespace {

using router::Collection;
using router::ReportDescriptor;
using router::ReportField;
using router::UsageRange;

using Children = std::map<std::optional<std::size_t>, std::vector<DescriptorNode>>;

/// The nodes in the collection with that index, or in none, with everything in them.
std::vector<DescriptorNode> takeNodes(const ReportDescriptor& descriptor,
                                      std::optional<std::size_t> enclosing, Children* children) {
  std::vector<DescriptorNode> nodes = std::move((*children)[enclosing]);
  std::ranges::sort(nodes, {}, &DescriptorNode::offset);
  for (DescriptorNode& node : nodes) {
    if (node.collection == nullptr) continue;
    const auto index = static_cast<std::size_t>(node.collection - descriptor.collections().data());
    node.children = takeNodes(descriptor, index, children);
  }
  return nodes;
}

std::string bitsText(const ReportField& field) {
  std::string text;
  if (field.count > 1) text = std::to_string(field.count) + " × ";
  return text + std::to_string(field.bitSize) + (field.bitSize == 1 ? " bit" : " bits") +
         " from bit " + std::to_string(field.bitOffset);
}

std::string contentsText(const ReportField& field) {
  if (field.constant && field.usages.empty()) return "padding";
  const std::string names = usageNames(usagesOf(field));
  const std::string constant = field.constant ? "constant " : "";
  if (names.empty())
    return constant + "without usage on the page " + wlhid::usagePageName(field.usagePage);
  return constant + (field.variable ? "" : "any of ") + names;
}

/// A descriptor's ranges and units last until it sets others, so that switches and plain numbers
/// often have some that are not meant for them.
std::string physicalText(const ReportField& field) {
  if (field.bitSize == 1 || unitName(field.unit).empty()) return {};
  std::string text = physicalRange(field);
  if (text.empty()) return text;
  text = "; stands for " + text;
  if (const std::string system = unitSystem(field.unit); !system.empty())
    text += " (" + system + ", exponent " + std::to_string(field.unitExponent) + ")";
  if (const auto density = valuesPerUnit(field))
    text += platform::stringWithFormat(", %.4g per %s", *density, unitName(field.unit).c_str());
  return text;
}

std::string fieldLine(const ReportField& field) {
  std::string line = typeName(field.type);
  if (field.reportID != 0) line += ", report " + std::to_string(field.reportID);
  line += ": " + contentsText(field) + "; " + bitsText(field);
  if (field.constant) return line;
  line += "; " + std::to_string(field.logicalMinimum) + " to " +
          std::to_string(field.logicalMaximum) + physicalText(field);
  if (field.relative) line += "; relative";
  if (field.hasNullState) line += "; outside: none";
  return line;
}

std::string collectionLine(const Collection& collection) {
  std::string type = collectionType(collection.type);
  type.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(type.front())));
  std::string line = type + " collection";
  // The other readings of what the item names are for those who must not miss one.
  if (!collection.everyUsage.empty()) line += ": " + usageNames({collection.everyUsage.front()});
  return line;
}

}  // namespace

std::vector<DescriptorNode> treeOf(const ReportDescriptor& descriptor) {
  Children children;
  for (const Collection& collection : descriptor.collections())
    children[collection.enclosing].push_back({collection.offset, &collection, nullptr, {}});
  for (const ReportField& field : descriptor.fields())
    children[field.collection].push_back({field.offset, nullptr, &field, {}});
  return takeNodes(descriptor, std::nullopt, &children);
}

std::string lineOf(const DescriptorNode& node) {
  return node.field != nullptr ? fieldLine(*node.field) : collectionLine(*node.collection);
}

void forEachNode(const std::vector<DescriptorNode>& nodes,
                 const std::function<void(const DescriptorNode&, std::size_t)>& visit) {
  const std::function<void(const std::vector<DescriptorNode>&, std::size_t)> visitAll =
      [&](const std::vector<DescriptorNode>& level, std::size_t depth) {
        for (const DescriptorNode& node : level) {
          visit(node, depth);
          visitAll(node.children, depth + 1);
        }
      };
  visitAll(nodes, 0);
}

std::string collectionType(std::uint32_t type) {
  constexpr std::array<const char*, 7> kTypes = {"physical",      "application", "logical",
                                                 "report",        "named array", "usage switch",
                                                 "usage modifier"};
  if (type < kTypes.size()) return kTypes[type];
  return platform::stringWithFormat(type < 0x80 ? "reserved 0x%02x" : "vendor-defined 0x%02x",
                                    type);
}

std::string typeName(router::ReportType type) {
  constexpr std::array<const char*, 3> kNames = {"Input", "Output", "Feature"};
  return kNames[static_cast<std::size_t>(type)];
}

std::string usageNames(const std::vector<UsageRange>& ranges) {
  constexpr std::size_t kShown = 8;
  std::string names;
  for (std::size_t i = 0; i < std::min(ranges.size(), kShown); ++i) {
    names += (i == 0 ? "" : ", ") + usageText(ranges[i]);
  }
  if (ranges.size() > kShown) names += " and " + std::to_string(ranges.size() - kShown) + " more";
  return names;
}

std::vector<UsageRange> usagesOf(const ReportField& field) {
  return field.usages.firstRanges(field.variable ? field.count : field.usages.count());
}

std::vector<ReportSize> reportSizes(const ReportDescriptor& descriptor) {
  std::map<std::pair<router::ReportType, std::uint8_t>, ReportSize> sizes;
  for (const ReportField& field : descriptor.fields()) {
    ReportSize& size = sizes[{field.type, field.reportID}];
    size = {field.type, field.reportID, field.bitOffset + field.bitSize * field.count,
            field.offset};
  }
  std::vector<ReportSize> result;
  result.reserve(sizes.size());
  for (const auto& [key, size] : sizes) result.push_back(size);
  return result;
}

std::string reportList(const ReportDescriptor& descriptor) {
  std::string list;
  for (const ReportSize& size : reportSizes(descriptor)) {
    std::string type = typeName(size.type);
    type.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(type.front())));
    list += (list.empty() ? "" : ", ") + type;
    if (size.reportID != 0) list += " " + std::to_string(size.reportID);
    list += " (" + std::to_string(size.bytes()) + (size.bytes() == 1 ? " byte)" : " bytes)");
  }
  return list.empty() ? "none" : list;
}

}  // namespace tool
