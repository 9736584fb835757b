// SPDX-License-Identifier: Apache-2.0

// The class methods that install and remove the router.
#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/NSNotificationCenter.h"

using platform::NSError;
using platform::NSNotificationCenter;
using platform::NSString;
using platform::str;

namespace {

using ManagerMethod = bool (*)(const std::shared_ptr<NSString>& label,
                               const std::shared_ptr<NSString>& prompt,
                               std::shared_ptr<NSError>* returnError);

/// The handler receives the outcome first; then, on success, all clients are notified.
void changeInstallation(ManagerMethod change, const std::shared_ptr<NSString>& prompt,
                        const WLHIDEventRouterClient::CompletionHandler& handler) {
  std::shared_ptr<NSError> error;
  const bool success = change(str(WLHIDEventRouterLabel), prompt, &error);
  if (handler) handler(success, error);
  if (!success) return;
  NSNotificationCenter::defaultCenter()->postNotificationName_object(
      str(WLHIDEventRouterClientInstallationStatusChanged), /*object=*/nullptr);
}

}  // namespace

bool WLHIDEventRouterClient::isInstalled() {
  return KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(
      str(WLHIDEventRouterLabel));
}

void WLHIDEventRouterClient::installWithPrompt_completionHandler(
    const std::shared_ptr<NSString>& prompt, const CompletionHandler& handler) {
  changeInstallation(
      &KQPrivilegedHelperManager::blessPriviledgedXCPHelperWithLabel_prompt_returnError, prompt,
      handler);
}

void WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(
    const std::shared_ptr<NSString>& prompt, const CompletionHandler& handler) {
  changeInstallation(
      &KQPrivilegedHelperManager::removePriviledgedXCPHelperWithLabel_prompt_returnError, prompt,
      handler);
}
