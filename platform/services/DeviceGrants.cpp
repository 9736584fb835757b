// SPDX-License-Identifier: Apache-2.0

#include "platform/services/DeviceGrants.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace platform {
namespace {

constexpr std::array<std::string_view, 6> kKeys{"User",    "Bus",    "Vendor",
                                                "Product", "Unique", "Name"};

/// An integer from 0 to the largest 32-bit one.
std::optional<std::uint32_t> number(const NSDictionary& entry, std::string_view key) {
  const auto value = objectCast<NSNumber>(entry.objectForKey(key));
  const auto* const integer =
      value == nullptr ? nullptr : std::get_if<std::int64_t>(&value->value());
  constexpr std::int64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  if (integer == nullptr || *integer < 0 || *integer > kLargest) return std::nullopt;
  return static_cast<std::uint32_t>(*integer);
}

/// Empty text if the key is missing; nothing if it holds something else.
std::optional<std::string> text(const NSDictionary& entry, std::string_view key) {
  const auto value = entry.objectForKey(key);
  if (value == nullptr) return std::string();
  const auto string = objectCast<NSString>(value);
  if (string == nullptr) return std::nullopt;
  return string->UTF8String();
}

/// A key that is not understood could be a condition, so nothing may be granted without it.
bool hasOnlyKnownKeys(const NSDictionary& entry) {
  return std::all_of(entry.entries().begin(), entry.entries().end(), [](const auto& each) {
    const auto key = objectCast<NSString>(each.first);
    return key != nullptr &&
           std::find(kKeys.begin(), kKeys.end(), key->UTF8String()) != kKeys.end();
  });
}

std::optional<DeviceGrant> parseGrant(const std::shared_ptr<NSObject>& object) {
  const auto entry = objectCast<NSDictionary>(object);
  if (entry == nullptr || !hasOnlyKnownKeys(*entry)) return std::nullopt;
  const auto user = number(*entry, "User");
  const auto bus = number(*entry, "Bus");
  const auto vendor = number(*entry, "Vendor");
  const auto product = number(*entry, "Product");
  const auto unique = text(*entry, "Unique");
  const auto name = text(*entry, "Name");
  if (!user || !bus || !vendor || !product || !unique || !name) return std::nullopt;
  return DeviceGrant{*user, {*bus, *vendor, *product, *unique}, *name};
}

std::nullopt_t refuse(std::string* returnReason, std::string reason) {
  if (returnReason != nullptr) *returnReason = std::move(reason);
  return std::nullopt;
}

std::shared_ptr<NSDictionary> entryOf(const DeviceGrant& grant) {
  const auto integer = [](std::uint32_t value) { return NSNumber::numberWithLongLong(value); };
  std::vector<NSDictionary::Entry> entry{{str("User"), integer(grant.user)},
                                         {str("Bus"), integer(grant.device.bus)},
                                         {str("Vendor"), integer(grant.device.vendor)},
                                         {str("Product"), integer(grant.device.product)}};
  if (!grant.device.unique.empty()) {
    auto unique = NSString::stringWithUTF8(grant.device.unique);
    if (unique == nullptr)
      throw ServiceError(ServiceErrorCode::InvalidArgument, "the serial number is not text");
    entry.emplace_back(str("Unique"), std::move(unique));
  }
  if (auto name = NSString::stringWithUTF8(grant.name))
    entry.emplace_back(str("Name"), std::move(name));
  return NSDictionary::dictionaryWithEntries(std::move(entry));
}

}  // namespace

bool DeviceGrant::covers(uid_t caller, const DeviceIdentity& identity) const {
  return user == caller && device.bus == identity.bus && device.vendor == identity.vendor &&
         device.product == identity.product &&
         (device.unique.empty() || device.unique == identity.unique);
}

std::optional<std::vector<DeviceGrant>> parseDeviceGrants(std::span<const std::uint8_t> bytes,
                                                          std::string* returnReason) {
  if (bytes.size() > kMaximumGrantFileBytes) return refuse(returnReason, "it is too large");
  const auto list = objectCast<NSDictionary>(
      NSPropertyListSerialization::propertyListWithData_options_format_error(
          NSData::dataWithBytes(bytes), 0, nullptr, nullptr));
  if (list == nullptr) return refuse(returnReason, "it is not a property list with a dictionary");
  const auto entries = objectCast<NSArray>(list->objectForKey("Grants"));
  if (entries == nullptr) return refuse(returnReason, "it has no array \"Grants\"");
  if (entries->count() > kMaximumGrants) return refuse(returnReason, "it has too many grants");
  std::vector<DeviceGrant> grants;
  for (std::size_t i = 0; i < entries->count(); ++i) {
    auto grant = parseGrant(entries->objectAtIndex(i));
    if (!grant)
      return refuse(returnReason, "grant " + std::to_string(i + 1) + " cannot be understood");
    grants.push_back(std::move(*grant));
  }
  return grants;
}

std::vector<DeviceGrant> readDeviceGrants(int rootDirectory) {
  const auto directory = openPlace(rootDirectory, kGrantDirectory);
  const auto bytes =
      directory ? readFileIn(directory.get(), kGrantFile, kMaximumGrantFileBytes) : std::nullopt;
  if (!bytes) return {};
  std::string reason;
  auto grants = parseDeviceGrants(*bytes, &reason);
  if (!grants)
    throw ServiceError(ServiceErrorCode::FileSystem, std::string(kGrantFile) + ": " + reason);
  return std::move(*grants);
}

std::vector<std::uint8_t> encodeDeviceGrants(const std::vector<DeviceGrant>& grants) {
  if (grants.size() > kMaximumGrants)
    throw ServiceError(ServiceErrorCode::InvalidArgument, "there are too many grants");
  std::vector<std::shared_ptr<NSObject>> entries;
  entries.reserve(grants.size());
  for (const DeviceGrant& each : grants) entries.push_back(entryOf(each));
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      NSDictionary::dictionaryWithEntries(
          {{str("Grants"), NSArray::arrayWithObjects(std::move(entries))}}),
      NSPropertyListFormat::XML, nullptr);
  if (data == nullptr)
    throw ServiceError(ServiceErrorCode::InvalidArgument,
                       "a name or serial number cannot be written to a property list");
  return {data->span().begin(), data->span().end()};
}

}  // namespace platform
