// SPDX-License-Identifier: Apache-2.0

#include "c/Records.h"

#include <span>
#include <utility>

namespace wlhid::abi {

namespace {

static_assert(static_cast<int>(Permission::Unknown) == WLHID_PERMISSION_UNKNOWN);
static_assert(static_cast<int>(Permission::Administrator) == WLHID_PERMISSION_ADMINISTRATOR);
static_assert(static_cast<int>(DeviceClass::Sensitive) == WLHID_CLASS_SENSITIVE);

/// The number, if the criterion's field counts.
template <class Number>
std::optional<Number> fieldOf(const wlhid_criterion& criterion, std::uint32_t field,
                              Number number) {
  return (criterion.fields & field) != 0 ? std::optional(number) : std::nullopt;
}

std::vector<Criterion> criteriaOf(const wlhid_criterion* criteria, std::size_t count) {
  std::vector<Criterion> list;
  for (const wlhid_criterion& each : std::span(criteria, criteria == nullptr ? 0 : count))
    list.push_back({fieldOf(each, WLHID_MATCH_ID, each.id),
                    fieldOf(each, WLHID_MATCH_VENDOR, each.vendor),
                    fieldOf(each, WLHID_MATCH_PRODUCT, each.product),
                    fieldOf(each, WLHID_MATCH_USAGE_PAGE, each.usage_page),
                    fieldOf(each, WLHID_MATCH_USAGE, each.usage)});
  return list;
}

}  // namespace

DeviceRecord::DeviceRecord(Device device) : device_(std::move(device)) {
  for (const Usage& each : device_.collections) collections_.push_back({each.page, each.id});
  record_.id = device_.id;
  record_.bus = device_.bus;
  record_.vendor = device_.vendor;
  record_.product = device_.product;
  record_.interface_number = device_.interface ? static_cast<std::int32_t>(*device_.interface) : -1;
  record_.device_class = static_cast<std::uint32_t>(device_.deviceClass);
  record_.permission = static_cast<std::uint32_t>(device_.permission);
  record_.name = device_.name.c_str();
  record_.source = device_.source.c_str();
  record_.path = device_.path.c_str();
  record_.serial = device_.serial.c_str();
  record_.reason = device_.reason.c_str();
  record_.explanation = device_.explanation.c_str();
  record_.collections = collections_.data();
  record_.collection_count = collections_.size();
}

DeviceFilter filterOf(const wlhid_filter* filter) {
  if (filter == nullptr) return {};
  return {criteriaOf(filter->matching, filter->matching_count),
          criteriaOf(filter->excluding, filter->excluding_count)};
}

}  // namespace wlhid::abi
