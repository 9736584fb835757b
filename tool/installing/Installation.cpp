// SPDX-License-Identifier: Apache-2.0

#include "tool/installing/Installation.h"

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"

namespace tool {

void requireSystemDaemon() {
  const auto root = platform::SystemRoot::current();
  if (!root.isSystem()) return;
  try {
    platform::JobDaemon(root).ensureRunning();
  } catch (const platform::ServiceError& error) {
    throw Failure(error.what());
  }
}

void installRouter(const std::shared_ptr<platform::NSString>& prompt) {
  bool installed = false;
  std::shared_ptr<platform::NSError> reason;
  WLHIDEventRouterClient::installWithPrompt_completionHandler(
      prompt, [&](bool success, const std::shared_ptr<platform::NSError>& error) {
        installed = success;
        reason = error;
      });
  if (!installed) throw Failure("the router was not installed: " + describeError(reason));
}

}  // namespace tool
