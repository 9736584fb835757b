// SPDX-License-Identifier: Apache-2.0

#include "testkit/RouterSide.h"

#include <span>
#include <utility>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "router-client/WLHIDEventRouterProtocols.h"

using platform::NSObject;

namespace testkit {

void installRouter(platform::ScriptedPlatform& platform) {
  const std::string label(WLHIDEventRouterLabel);
  platform.setBundleCopy(label, "1");
  platform.installHelper(label, "1");
}

bool sendReport(platform::ScriptedConnection& connection, std::initializer_list<std::uint8_t> bytes,
                std::uint32_t reportID, Timing timing) {
  platform::XPCValues values;
  values.append(std::shared_ptr<NSObject>(
      platform::NSData::dataWithBytes(std::span<const std::uint8_t>(bytes.begin(), bytes.size()))));
  values.append(reportID);
  return connection.deliverMessage("receivedData:forReportID:", values, timing);
}

bool sendElementValues(platform::ScriptedConnection& connection,
                       std::vector<std::shared_ptr<NSObject>> values, Timing timing) {
  platform::XPCValues arguments;
  arguments.append(
      std::shared_ptr<NSObject>(platform::NSMutableArray::arrayWithObjects(std::move(values))));
  return connection.deliverMessage("receivedElementValues:", arguments, timing);
}

}  // namespace testkit
