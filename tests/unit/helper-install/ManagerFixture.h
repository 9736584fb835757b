// SPDX-License-Identifier: Apache-2.0

// The helper manager on a scripted platform: version 7 in the application's bundle, version 7
// installed.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "platform/scripted/HelperImage.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "tests/support/ClientTrace.h"

namespace test {

class ManagerTest : public ::testing::Test {
 protected:
  static inline const std::string kBundleCopy =
      "/Applications/Example.app/Contents/Library/LaunchServices/com.quillmar.hideventrouter";
  static inline const std::string kInstalled =
      "/Library/PrivilegedHelperTools/com.quillmar.hideventrouter";

  ManagerTest() {
    platform_.setBundleCopy(kLabel, "7");
    platform_.installHelper(kLabel, "7");
  }

  static bool isInstalled() {
    return KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(platform::str(kLabel));
  }
  Lines taken() { return platform_.trace().take(); }

  platform::ScriptedPlatform platform_;
};

}  // namespace test
