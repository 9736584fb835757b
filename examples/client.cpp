// Prints the reports of the device with the given registry entry ID, until Enter is pressed.
#include <cstdlib>
#include <iostream>

#include "WLHIDAccess/WLHIDAccess.h"

using Client = std::shared_ptr<WLHIDEventRouterClient>;

class Printer final : public WLHIDEventRouterClientDelegate {  // called on the connection's queue
 public:
  void hidEventRouterClient_handleError(const Client&,
                                        const std::shared_ptr<platform::NSError>& error) override {
    std::cerr << error->description() << std::endl;
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const Client&, const std::shared_ptr<platform::NSData>& data, std::uint32_t id) override {
    std::cout << platform::stringWithFormat("report %u: %@", id, data) << std::endl;
  }
};

int main(int argc, char** argv) {
  const auto printer = std::make_shared<Printer>();  // ours to keep: the client holds it weakly
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          std::strtoull(argc > 1 ? argv[1] : "0", nullptr, 0), /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(printer);
  client->setStarted(true);
  std::cin.get();
  client->setStarted(false);
}
