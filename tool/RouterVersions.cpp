#include "tool/RouterVersions.h"

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/services/ServiceManagement.h"

namespace tool {

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSString;
using platform::objectCast;

constexpr std::string_view kBundleVersionKey = "CFBundleVersion";

std::string versionOf(const std::string& path) {
  const auto data = platform::NSData::dataWithContentsOfFile(NSString::stringWithUTF8(path));
  const auto bytes = KQPrivilegedHelperManager::extractInfoPlistFromData(data);
  if (!bytes) return {};
  const auto list = objectCast<NSDictionary>(
      platform::NSPropertyListSerialization::propertyListWithData_options_format_error(
          bytes, 0, nullptr, nullptr));
  const auto version = list ? list->objectForKey(kBundleVersionKey) : nullptr;
  return version ? version->description() : std::string();
}

RouterCopy copyAt(const std::string& path) {
  return {path, versionOf(path)};
}

std::string bundleCopyPath() {
  const auto bundle = platform::NSBundle::mainBundle()->bundlePath();
  if (!bundle) return {};
  return bundle->UTF8String() + "/Contents/Library/LaunchServices/" +
         std::string(WLHIDEventRouterLabel);
}

std::string executableOf(const NSDictionary& job) {
  const auto arguments = objectCast<NSArray>(job.objectForKey("ProgramArguments"));
  if (!arguments || arguments->count() == 0) return {};
  return arguments->objectAtIndex(0)->description();
}

std::vector<std::string> servicesOf(const NSDictionary& job) {
  std::vector<std::string> names;
  const auto services = objectCast<NSDictionary>(job.objectForKey("MachServices"));
  if (!services) return names;
  for (const auto& [name, value] : services->entries()) names.push_back(name->description());
  return names;
}

}  // namespace

RouterVersions readRouterVersions() {
  RouterVersions versions;
  versions.bundle = copyAt(bundleCopyPath());
  const auto job = platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd,
                                                 platform::str(WLHIDEventRouterLabel));
  if (!job) return versions;
  versions.installed = copyAt(executableOf(*job));
  versions.services = servicesOf(*job);
  return versions;
}

}  // namespace tool
