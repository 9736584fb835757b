// SPDX-License-Identifier: Apache-2.0

// A scripted platform's answers, shared by its providers. Private to this folder.
//
// Threading: any thread; the mutex protects the answers and is never held during a call.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSString.h"
#include "platform/scripted/ScriptedConnection.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "platform/scripted/Trace.h"
#include "platform/services/Authorization.h"
#include "platform/services/ServiceManagement.h"
#include "platform/xpc/NSXPCConnection.h"

namespace platform {

struct ScriptedPlatform::State {
  const std::shared_ptr<Trace> trace = std::make_shared<Trace>();

  mutable std::mutex mutex;
  std::shared_ptr<NSString> mainBundlePath = str("/Applications/Example.app");
  std::map<std::string, std::vector<std::uint8_t>, std::less<>> files;
  std::map<std::string, std::shared_ptr<NSObject>, std::less<>> propertyLists;
  std::map<std::string, std::shared_ptr<NSDictionary>, std::less<>> jobs;
  std::deque<std::shared_ptr<NSDictionary>> nextJobs;
  OSStatus authorizationStatus = errAuthorizationSuccess;
  std::deque<char> authorizations;  // only their addresses matter, and a deque never moves them
  OutcomeScript removal;
  OutcomeScript bless;
  std::set<std::string, std::less<>> refusedInterfaces;
  bool refusesConnections = false;
  std::vector<std::shared_ptr<ScriptedConnection>> connections;

  /// Records a call of the platform.
  void record(std::string object, std::string name, std::vector<std::string> arguments,
              std::string text) const {
    trace->record({TraceKind::Call, std::move(object), std::move(name), std::move(arguments),
                   std::move(text)});
  }
};

std::shared_ptr<FoundationProvider> scriptedFoundation(
    std::shared_ptr<ScriptedPlatform::State> state);
std::shared_ptr<ServicesProvider> scriptedServices(std::shared_ptr<ScriptedPlatform::State> state);
std::shared_ptr<XPCProvider> scriptedXPC(std::shared_ptr<ScriptedPlatform::State> state);

}  // namespace platform
