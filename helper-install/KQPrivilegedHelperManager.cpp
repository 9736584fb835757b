// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/KQPrivilegedHelperManager.h"

#include <optional>
#include <span>

#include "helper-install/MachO.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/services/Authorization.h"
#include "platform/services/ServiceManagement.h"

using namespace platform;

namespace {

constexpr std::string_view kCFBundleVersionKey = "CFBundleVersion";
constexpr std::string_view kBlessHelperRight = "com.apple.ServiceManagement.blesshelper";

// ---- The presence check

/// The path of the application's own copy of the helper.
std::shared_ptr<NSString> bundleCopyPath(const std::shared_ptr<NSString>& label) {
  const auto bundlePath = NSBundle::mainBundle()->bundlePath();
  if (!bundlePath || !label) return nullptr;
  return bundlePath->stringByAppendingPathComponent(str("Contents/Library/LaunchServices"))
      ->stringByAppendingPathComponent(label);
}

/// The executable that the job runs.
std::shared_ptr<NSString> installedPath(const NSDictionary& job) {
  const auto arguments = objectCast<NSArray>(job.objectForKey("ProgramArguments"));
  if (!arguments || arguments->count() == 0) return nullptr;
  return objectCast<NSString>(arguments->objectAtIndex(0));
}

std::shared_ptr<NSData> infoPlistOfExecutable(const std::shared_ptr<NSString>& path) {
  return KQPrivilegedHelperManager::extractInfoPlistFromData(NSData::dataWithContentsOfFile(path));
}

std::shared_ptr<NSObject> parsed(const std::shared_ptr<NSData>& propertyList) {
  return NSPropertyListSerialization::propertyListWithData_options_format_error(
      propertyList, /*options=*/0,
      /*returnFormat=*/nullptr,
      /*returnError=*/nullptr);
}

std::shared_ptr<NSObject> versionIn(const std::shared_ptr<NSObject>& propertyList) {
  const auto dictionary = objectCast<NSDictionary>(propertyList);
  return dictionary ? dictionary->objectForKey(kCFBundleVersionKey) : nullptr;
}

/// Compared as objects, not as versions: 1.2 and 1.2.0 differ, and a newer version is as different
/// as an older one.
bool haveSameVersion(const std::shared_ptr<NSData>& installedInfo,
                     const std::shared_ptr<NSData>& bundleCopyInfo) {
  const auto bundleCopyList = parsed(bundleCopyInfo);
  const auto installedList = parsed(installedInfo);
  if (!bundleCopyList || !installedList) return false;
  const auto installedVersion = versionIn(installedList);
  const auto bundleCopyVersion = versionIn(bundleCopyList);
  return installedVersion && bundleCopyVersion && installedVersion->isEqual(bundleCopyVersion);
}

// ---- Authorization

/// Asks for the right to bless, with the application's prompt or, if it has none, the system's own
/// text. The reference is never freed.
OSStatus authorize(const std::shared_ptr<NSString>& prompt, AuthorizationRef* returnAuthorization) {
  const AuthorizationItem right{kBlessHelperRight, 0, nullptr, 0};
  const AuthorizationRights rights{1, &right};
  constexpr AuthorizationFlags flags = kAuthorizationFlagInteractionAllowed |
                                       kAuthorizationFlagExtendRights |
                                       kAuthorizationFlagPreAuthorize;
  if (!prompt)
    return AuthorizationCreate(&rights, /*environment=*/nullptr, flags, returnAuthorization);

  const std::string& text = prompt->UTF8String();
  const AuthorizationItem item{"prompt", text.size(), text.data(), 0};
  const AuthorizationEnvironment environment{1, &item};
  return AuthorizationCreate(&rights, &environment, flags, returnAuthorization);
}

/// Removes the helper if the installed version is the bundle copy's. A failure is only logged.
bool removeCurrentCopy(const std::shared_ptr<NSString>& label,
                       const AuthorizationRef& authorization) {
  if (!KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(label)) return false;
  std::shared_ptr<NSError> error;
  const bool removed =
      SMJobRemove(kSMDomainSystemLaunchd, label, authorization, /*wait=*/true, &error);
  if (!removed && error) NSLog("Error removing pre-existing copy of helper: %@", error);
  return removed;
}

}  // namespace

std::shared_ptr<NSData> KQPrivilegedHelperManager::extractInfoPlistFromData(
    const std::shared_ptr<NSData>& data) {
  if (!data || data->bytes() == nullptr) return nullptr;
  const auto section = findMachOSection(data->span(), "__TEXT", "__info_plist");
  return section ? NSData::dataWithBytes(*section) : nullptr;
}

bool KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(
    const std::shared_ptr<NSString>& label) {
  const auto job = SMJobCopyDictionary(kSMDomainSystemLaunchd, label);
  if (!job) return false;
  const auto bundleCopy = bundleCopyPath(label);
  const auto installed = installedPath(*job);
  if (!bundleCopy || !installed) return false;
  const auto bundleCopyInfo = infoPlistOfExecutable(bundleCopy);
  if (!bundleCopyInfo) return false;
  const auto installedInfo = infoPlistOfExecutable(installed);
  return installedInfo && haveSameVersion(installedInfo, bundleCopyInfo);
}

bool KQPrivilegedHelperManager::blessPriviledgedXCPHelperWithLabel_prompt_returnError(
    const std::shared_ptr<NSString>& label, const std::shared_ptr<NSString>& prompt,
    std::shared_ptr<NSError>* returnError) {
  return _blessPriviledgedXCPHelperWithLabel_prompt_removeOnly_returnError(
      label, prompt, /*removeOnly=*/false, returnError);
}

bool KQPrivilegedHelperManager::removePriviledgedXCPHelperWithLabel_prompt_returnError(
    const std::shared_ptr<NSString>& label, const std::shared_ptr<NSString>& prompt,
    std::shared_ptr<NSError>* returnError) {
  return _blessPriviledgedXCPHelperWithLabel_prompt_removeOnly_returnError(
      label, prompt, /*removeOnly=*/true, returnError);
}

bool KQPrivilegedHelperManager::_blessPriviledgedXCPHelperWithLabel_prompt_removeOnly_returnError(
    const std::shared_ptr<NSString>& label, const std::shared_ptr<NSString>& prompt,
    bool removeOnly, std::shared_ptr<NSError>* returnError) {
  std::shared_ptr<NSError> error;
  bool result = false;
  AuthorizationRef authorization = nullptr;
  const OSStatus status = authorize(prompt, &authorization);
  if (status != errAuthorizationSuccess) {
    error = NSError::errorWithDomain_code_userInfo(str(NSOSStatusErrorDomain), status, nullptr);
  } else {
    result = removeCurrentCopy(label, authorization);
    // A failed removal doesn't stop the bless: it replaces what is installed, and only its outcome
    // counts.
    if (!removeOnly) result = SMJobBless(kSMDomainSystemLaunchd, label, authorization, &error);
  }
  if (returnError != nullptr) *returnError = error;
  return result;
}
