// SPDX-License-Identifier: Apache-2.0

// A client on a scripted platform, with the router installed in the application's own version 7
// unless a test says otherwise.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "WLHIDAccess/WLHIDAccess.h"
#include "platform/foundation/NSNumber.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"
#include "tests/support/ClientTrace.h"

namespace test {

/// For steps that an application does not take itself.
inline WLHIDEventRouterClient::Implementation& inside(const WLHIDEventRouterClient& client) {
  return WLHIDEventRouterClient::Implementation::of(client);
}

class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    platform_.setBundleCopy(kLabel, "7");
    platform_.installHelper(kLabel, "7");
  }

  /// Creates a client with observers of all three keys and a recording delegate, then clears the
  /// trace.
  void makeClient() {
    client_ = newClient();
    for (const char* key : {"started", "eventRouterStatus", "clientStatus"}) {
      observations_.push_back(platform_.observe(*client_, key));
    }
    delegate_ = std::make_shared<RecordingDelegate>(platform_.trace());
    client_->setDelegate(delegate_);
    platform_.trace().take();
  }
  /// Like makeClient, then started and answered: status 4 on connection 1.
  void makeRoutingClient() {
    makeClient();
    client_->setStarted(true);
    platform_.connection(1)->deliverReply(nullptr);
    ASSERT_EQ(client_->clientStatus(), WLHIDEventRouterClientStatusRouting);
    platform_.trace().take();
  }
  std::shared_ptr<WLHIDEventRouterClient> newClient() {
    return WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
        kEntryID, kDeviceMode, tags_, nullptr);
  }
  /// Drops the fixture's last reference; something else may still keep the client alive.
  void releaseClient() {
    observations_.clear();
    client_.reset();
  }

  Lines taken() { return platform_.trace().take(); }
  platform::ScriptedConnection& connection1() { return *platform_.connection(1); }

  void postStatusChange() {
    platform::NSNotificationCenter::defaultCenter()->postNotificationName_object(
        platform::str(WLHIDEventRouterClientInstallationStatusChanged), nullptr);
  }
  static std::string posted() {
    return "defaultCenter postNotificationName:WLHIDEventRouterClientInstallationStatusChanged "
           "object:nil";
  }
  static std::shared_ptr<platform::NSError> routerError(
      std::int64_t code, std::string_view domain = HIDEventRouterDomain) {
    return platform::NSError::errorWithDomain_code_userInfo(platform::str(domain), code, nullptr);
  }

  platform::ScriptedPlatform platform_;
  const std::shared_ptr<platform::NSDictionary> tags_ =
      platform::NSDictionary::dictionaryWithEntries(
          {{platform::NSNumber::numberWithUnsignedLongLong(65536), platform::str("tag")}});
  std::shared_ptr<WLHIDEventRouterClient> client_;
  std::shared_ptr<RecordingDelegate> delegate_;
  std::vector<platform::KeyValueObservation> observations_;
};

}  // namespace test
