// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DeviceFilter.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"

namespace router {

namespace {

using platform::NSDictionary;
using platform::NSNumber;
using platform::objectCast;

bool isOrAny(const std::optional<std::uint64_t>& wanted, std::uint64_t value) {
  return !wanted || *wanted == value;
}

std::uint64_t numberFrom(const std::shared_ptr<platform::NSObject>& value) {
  const auto number = objectCast<NSNumber>(value);
  if (number == nullptr) throw std::invalid_argument("a value in a criterion is not a number");
  return number->unsignedLongLongValue();
}

}  // namespace

DeviceFilter::DeviceFilter(const std::shared_ptr<platform::NSArray>& matching,
                           const std::shared_ptr<platform::NSArray>& excluding, std::size_t limit) {
  const auto countOf = [](const auto& array) { return array == nullptr ? 0 : array->count(); };
  if (countOf(matching) + countOf(excluding) > limit)
    throw std::invalid_argument("more than " + std::to_string(limit) + " criteria");
  matching_ = criteriaIn(matching);
  excluding_ = criteriaIn(excluding);
}

DeviceFilter::Criteria DeviceFilter::criteriaIn(const std::shared_ptr<platform::NSArray>& array) {
  Criteria criteria;
  if (array == nullptr) return criteria;
  array->enumerateObjects([&](const std::shared_ptr<platform::NSObject>& member) {
    criteria.push_back(criterionIn(*member));
  });
  return criteria;
}

/// A key that is not known is refused: without it, the criterion would mean something else.
DeviceFilter::Criterion DeviceFilter::criterionIn(const platform::NSObject& object) {
  if (!object.isa().isSubclassOfClass(NSDictionary::classObject()))
    throw std::invalid_argument("a criterion is not a dictionary");
  Criterion criterion;
  const std::array<std::pair<std::string_view, std::optional<std::uint64_t>*>, 5> keys{
      {{"Device", &criterion.device},
       {"Vendor", &criterion.vendor},
       {"Product", &criterion.product},
       {"UsagePage", &criterion.usagePage},
       {"Usage", &criterion.usage}}};
  for (const auto& [key, value] : static_cast<const NSDictionary&>(object).entries()) {
    const std::string name = key->description();
    const auto* const known = std::find_if(keys.begin(), keys.end(),
                                           [&](const auto& each) { return each.first == name; });
    if (known == keys.end())
      throw std::invalid_argument("unknown criterion " + platform::printableLine(name, 40));
    *known->second = numberFrom(value);
  }
  return criterion;
}

bool DeviceFilter::Criterion::isMetBy(const ListedDevice& listed) const {
  const bool isModel = isOrAny(device, listed.device.registryEntryID) &&
                       isOrAny(vendor, listed.device.vendor) &&
                       isOrAny(product, listed.device.product);
  if (!isModel || (!usagePage && !usage)) return isModel;
  return std::any_of(listed.collections.begin(), listed.collections.end(), [&](const Usage& each) {
    return isOrAny(usagePage, each.page) && isOrAny(usage, each.id);
  });
}

bool DeviceFilter::admits(const ListedDevice& device) const {
  const auto isMet = [&](const Criterion& each) { return each.isMetBy(device); };
  const bool isWanted = matching_.empty() || std::any_of(matching_.begin(), matching_.end(), isMet);
  return isWanted && std::none_of(excluding_.begin(), excluding_.end(), isMet);
}

}  // namespace router
