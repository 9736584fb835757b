// Prints what one device sends, until Enter is pressed: client REGISTRY_ENTRY_ID
#include <cstdlib>
#include <iostream>

#include "WLHIDAccess/WLHIDAccess.h"

using Client = std::shared_ptr<WLHIDEventRouterClient>;

// Called on the connection's queue (a status also on the thread that starts or stops).
class Printer final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const Client&,
                                                  WLHIDEventRouterClientStatus status) override {
    std::cout << "status " << static_cast<std::uint64_t>(status) << std::endl;
  }
  void hidEventRouterClient_handleError(const Client&,
                                        const std::shared_ptr<platform::NSError>& error) override {
    std::cout << error->description() << std::endl;
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const Client&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t reportID) override {
    std::cout << "report " << reportID << " " << data->description() << std::endl;
  }
};

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: client REGISTRY_ENTRY_ID\n";
    return 2;
  }
  const auto printer = std::make_shared<Printer>();  // ours to keep: the client holds it weakly
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          std::strtoull(argv[1], nullptr, 0), /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(printer);
  client->setStarted(true);
  std::cin.get();
  client->setStarted(false);
}
