// SPDX-License-Identifier: Apache-2.0

// An application with any number of clients for one device, started and stopped as standard input
// says. For a single client that starts once there is `wlhid route --json`.
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>

#include "WLHIDAccess/WLHIDAccess.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

using Client = std::shared_ptr<WLHIDEventRouterClient>;

constexpr std::string_view kUsage =
    "usage: delegate-probe ID [CLIENTS] [MODE]\n"
    "Creates CLIENTS clients (1) for the device ID in device mode MODE (0), and obeys standard "
    "input:\n"
    "  start    starts every client\n"
    "  stop     stops every client\n"
    "Prints one line for each thing that a delegate is told, after the number of its client:\n"
    "\"1 status 4\", \"1 report 3 HEX\", \"1 error DOMAIN CODE TEXT\". Ends with its input.\n";

/// Lines of several connections' queues, never mixed.
void tell(const std::string& line) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  say(line);
}

class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  explicit Delegate(std::int64_t place) : prefix_(std::to_string(place) + " ") {}

  void hidEventRouterClient_clientStatusChangedTo(const Client&,
                                                  WLHIDEventRouterClientStatus status) override {
    tell(prefix_ + "status " + std::to_string(static_cast<std::uint64_t>(status)));
  }
  void hidEventRouterClient_handleError(const Client&,
                                        const std::shared_ptr<platform::NSError>& error) override {
    tell(prefix_ + "error " + error->domain()->description() + " " + std::to_string(error->code()) +
         " " + error->localizedDescription()->description());
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const Client&, const std::shared_ptr<platform::NSData>& data, std::uint32_t id) override {
    tell(prefix_ + "report " + std::to_string(id) + " " + hex(data->span()));
  }

 private:
  const std::string prefix_;
};

struct Started {
  std::shared_ptr<Delegate> delegate;  // the client holds it weakly
  Client client;
};

std::vector<Started> makeClients(std::uint64_t device, std::int64_t count, std::uint64_t mode) {
  std::vector<Started> all;
  for (std::int64_t place = 1; place <= count; ++place) {
    auto client =
        WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
            device, mode, nullptr, nullptr);
    auto delegate = std::make_shared<Delegate>(place);
    client->setDelegate(delegate);
    all.push_back({std::move(delegate), std::move(client)});
  }
  return all;
}

void serve(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.size() > 3) throw UsageError();
  const auto all = makeClients(
      std::stoull(arguments[0], nullptr, 0), arguments.size() > 1 ? number(arguments[1]) : 1,
      arguments.size() > 2 ? static_cast<std::uint64_t>(number(arguments[2])) : 0);
  for (std::string line; std::getline(std::cin, line);) {
    if (line != "start" && line != "stop") throw UsageError();
    for (const Started& each : all) each.client->setStarted(line == "start");
  }
  for (const Started& each : all) each.client->setStarted(false);
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  platform::KQLogger::setLogLevel(3);
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
