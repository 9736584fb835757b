// SPDX-License-Identifier: Apache-2.0

#include "router/RouterErrors.h"

#include <vector>

#include "platform/foundation/PrintableText.h"
#include "platform/kit/KQIOObject.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace router {

namespace {

using platform::NSDictionary;
using platform::NSError;
using platform::str;

std::shared_ptr<NSError> errorWithEntries(IOReturn code, std::string_view description,
                                          std::vector<NSDictionary::Entry> entries) {
  // The description may contain a path or name from outside.
  entries.emplace_back(str(platform::NSLocalizedDescriptionKey),
                       str(platform::printableLine(description)));
  return NSError::errorWithDomain_code_userInfo(
      str(HIDEventRouterDomain), static_cast<std::int64_t>(code),
      NSDictionary::dictionaryWithEntries(std::move(entries)));
}

}  // namespace

std::shared_ptr<NSError> routerError(IOReturn code, std::string_view description) {
  return errorWithEntries(code, description, {});
}

std::shared_ptr<NSError> routerError(IOReturn code, std::string_view description,
                                     std::uint64_t registryEntryID) {
  const auto device =
      platform::KQIOObject::objectWithRegistryEntryID_name(registryEntryID, nullptr);
  return errorWithEntries(code, description, {{str(WLHIDDeviceKey), device}});
}

IOReturn ioReturnOf(const std::error_code& code) {
  const bool isRefused =
      code == std::errc::permission_denied || code == std::errc::operation_not_permitted;
  if (isRefused) return IOReturn::NotPermitted;
  if (code == std::errc::device_or_resource_busy) return IOReturn::ExclusiveAccess;
  return code == std::errc::no_such_device ? IOReturn::NoDevice : IOReturn::IOError;
}

bool isEndOfRecording(const platform::NSError& error) {
  return error.domain() && error.domain()->UTF8String() == HIDEventRouterDomain &&
         error.code() == static_cast<std::int64_t>(IOReturn::Underrun);
}

}  // namespace router
