// SPDX-License-Identifier: Apache-2.0

// Lets a test play the router on a scripted platform.
//
//   testkit::installRouter(platform);
//   client->setStarted(true);
//   testkit::sendReport(*platform.connection(1), {0x01, 0xff}, 1);
//
// Threading: as ScriptedConnection.h: these functions act as the connection's queue.
// Errors: false if a connection in this state would not let the message through, or if the client's
//   interface does not admit it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/scripted/ScriptedConnection.h"
#include "platform/scripted/ScriptedPlatform.h"

namespace testkit {

/// From now on the router is installed, for clients that are created or notified afterwards.
void installRouter(platform::ScriptedPlatform& platform);

using Timing = platform::ScriptedConnection::Timing;

bool sendReport(platform::ScriptedConnection& connection, std::initializer_list<std::uint8_t> bytes,
                std::uint32_t reportID, Timing timing = Timing::InOrder);
/// `values` are KQHIDDeviceElementValues, or anything else that a test expects to be refused.
bool sendElementValues(platform::ScriptedConnection& connection,
                       std::vector<std::shared_ptr<platform::NSObject>> values,
                       Timing timing = Timing::InOrder);

}  // namespace testkit
