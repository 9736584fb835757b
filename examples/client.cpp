// SPDX-License-Identifier: Apache-2.0

// Prints the reports of the device with the given registry entry ID until Enter is pressed.
#include <cstdlib>
#include <iostream>

#include "WLHIDAccess/WLHIDAccess.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/PrintableText.h"

using Client = std::shared_ptr<WLHIDEventRouterClient>;

class Printer final : public WLHIDEventRouterClientDelegate {  // called on the connection's queue
 public:
  void hidEventRouterClient_clientStatusChangedTo(const Client&,
                                                  WLHIDEventRouterClientStatus status) override {
    std::cerr << "status " << static_cast<int>(status) << std::endl;  // 2 opening, 4 routing
    if (status != WLHIDEventRouterClientStatusRouterUnavailable) return;
    std::cerr << platform::stringWithFormat(
        "The router is not installed, or is not the one in %@/Contents/Library/LaunchServices. "
        "Install it (wlhid install); wlhid doctor shows what else is missing.\n",
        platform::NSBundle::mainBundle()->bundlePath());
  }
  void hidEventRouterClient_handleError(const Client&,
                                        const std::shared_ptr<platform::NSError>& error) override {
    std::cerr << platform::printableLine(error->description()) << std::endl;
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const Client&, const std::shared_ptr<platform::NSData>& data, std::uint32_t id) override {
    std::cout << platform::stringWithFormat("report %u: %@", id, data) << std::endl;
  }
};

int main(int argc, char** argv) {
  platform::KQLogger::setLogLevel(3);                // show connection errors too
  const auto printer = std::make_shared<Printer>();  // kept here: the client holds it weakly
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          std::strtoull(argc > 1 ? argv[1] : "0", nullptr, 0), /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(printer);
  client->setStarted(true);
  std::cin.get();
  client->setStarted(false);
}
