// SPDX-License-Identifier: Apache-2.0

// An application of another project: says what it sees of the library and of the router. With the
// argument "install" it installs the router of its bundle first.
#include <cstdint>
#include <iostream>
#include <string_view>
#include <vector>

#include "WLHIDAccess/WLHIDAccess.h"

namespace {

using Client = WLHIDEventRouterClient;

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<Client>& client,
                                                  WLHIDEventRouterClientStatus status) override {
    if (status != WLHIDEventRouterClientStatusIdle && client->registryEntryID() == 77)
      std::cout << "the delegate is called\n";
  }
};

void install() {
  Client::installWithPrompt_completionHandler(
      nullptr, [](bool success, const std::shared_ptr<platform::NSError>& error) {
        if (!success) std::cout << "not installed: " << platform::descriptionOf(error) << '\n';
      });
}

/// The library's own registers itself, whether this program refers to it or not.
void showLogModule() {
  for (const auto& module : platform::KQLogger::sharedLogger().modules())
    if (module->identifier()->UTF8String() == "WLHIDEventRouter")
      std::cout << "the log module is registered\n";
}

/// What the library throws is caught by its type, in whatever library that was made.
void catchException() {
  const std::vector<std::uint8_t> bytes{1, 2};
  try {
    static_cast<void>(platform::NSData::dataWithBytes(bytes)->subdataWithRange(1, 7));
  } catch (const platform::NSRangeException&) {
    std::cout << "the exception is caught\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == "install") install();
  std::cout << WLHIDAccessVersionString;
  showLogModule();
  catchException();
  const auto delegate = std::make_shared<Delegate>();
  const auto client = Client::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
      77, /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(delegate);
  client->setStarted(true);
  client->setStarted(false);
  std::cout << (Client::isInstalled() ? "installed\n" : "not installed\n");
}
