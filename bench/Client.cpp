// SPDX-License-Identifier: Apache-2.0

#include "bench/Client.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/scripted/HelperImage.h"
#include "platform/xpc/NSXPCListener.h"

namespace bench {
namespace {

class InstalledServices final : public platform::ServicesProvider {
 public:
  std::shared_ptr<platform::NSDictionary> jobCopyDictionary(
      std::string_view, const std::shared_ptr<platform::NSString>&) override {
    const auto arguments = platform::NSArray::arrayWithObjects({platform::str("/installed")});
    return platform::NSDictionary::dictionaryWithEntries(
        {{platform::str("ProgramArguments"), arguments}});
  }
  bool jobRemove(std::string_view, const std::shared_ptr<platform::NSString>&,
                 const platform::AuthorizationRef&, bool,
                 std::shared_ptr<platform::NSError>*) override {
    return false;
  }
  bool jobBless(std::string_view, const std::shared_ptr<platform::NSString>&,
                const platform::AuthorizationRef&, std::shared_ptr<platform::NSError>*) override {
    return false;
  }
  platform::OSStatus authorizationCreate(const platform::AuthorizationRights*,
                                         const platform::AuthorizationEnvironment*,
                                         platform::AuthorizationFlags,
                                         platform::AuthorizationRef*) override {
    return platform::errAuthorizationDenied;
  }
};

class ImageFoundation final : public platform::ForwardingFoundationProvider {
 public:
  std::shared_ptr<platform::NSData> dataWithContentsOfFile(
      const std::shared_ptr<platform::NSString>&) override {
    return image_;
  }
  std::shared_ptr<platform::NSString> mainBundlePath() override { return platform::str("/bundle"); }

 private:
  const std::shared_ptr<platform::NSData> image_ = platform::NSData::dataWithBytes(
      platform::helperImageWithInfoPlist(platform::infoPlistWithVersion("1")));
};

class OneEndpoint final : public platform::ServiceEndpoints {
 public:
  explicit OneEndpoint(std::string path) : path_(std::move(path)) {}
  platform::ServiceConnectResult connectToService(std::string_view) override {
    using Outcome = platform::ServiceConnectResult::Outcome;
    const int socket = platform::connectUnixSocket(path_, SOCK_STREAM);
    if (socket < 0) return {Outcome::TryAgain, -1, "the endpoint is busy"};
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    return {Outcome::Connected, socket, {}};
  }

 private:
  const std::string path_;
};

}  // namespace

BenchPlatform::BenchPlatform(std::string endpoint)
    : foundation_(platform::foundationProvider().exchange(std::make_shared<ImageFoundation>())),
      services_(platform::servicesProvider().exchange(std::make_shared<InstalledServices>())),
      endpoints_(platform::serviceEndpoints().exchange(
          std::make_shared<OneEndpoint>(std::move(endpoint)))) {}

BenchPlatform::~BenchPlatform() {
  platform::foundationProvider().exchange(foundation_);
  platform::servicesProvider().exchange(services_);
  platform::serviceEndpoints().exchange(endpoints_);
}

std::shared_ptr<WLHIDEventRouterClient> clientFor(const Job& job) {
  return WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
      job.encode(), 0, nullptr, nullptr);
}

void waitForConnectionsToEnd() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (platform::liveConnectionCount() > 0) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("connections did not end");
    std::this_thread::yield();
  }
}

}  // namespace bench
