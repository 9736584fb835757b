// SPDX-License-Identifier: Apache-2.0

// A router with its other services, each on a socket of its own, and callers of any user.
//
// Threading: as RouterFixture.h.
// Ownership: the fixture installs its endpoints and removes them again.
#pragma once

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>

#include "router-client/WLHIDDeviceDirectoryProtocols.h"
#include "router/RoutedDevices.h"
#include "router/control/ControlProtocol.h"
#include "tests/integration/router/RouterFixture.h"
#include "tests/support/OtherUser.h"

namespace routertest {

/// Connects to sockets by the names of their services, as a user of the test's choice.
class Endpoints final : public platform::ServiceEndpoints {
 public:
  explicit Endpoints(std::map<std::string, std::string, std::less<>> paths)
      : paths_(std::move(paths)) {}

  platform::ServiceConnectResult connectToService(std::string_view service) override {
    using Outcome = platform::ServiceConnectResult::Outcome;
    const auto path = paths_.find(service);
    if (path == paths_.end()) return {Outcome::UnknownName, -1, "no such service"};
    // The kernel's call concerns this thread only.
    const uid_t before = ::geteuid();
    ::syscall(SYS_setresuid, -1, user.load(), -1);
    const int descriptor =
        isOtherProcess ? connectedByAnother(path->second) : connected(path->second);
    ::syscall(SYS_setresuid, -1, before, -1);
    if (descriptor < 0) return {Outcome::UnknownName, -1, "the endpoint takes no connection"};
    return {Outcome::Connected, descriptor, ""};
  }

  std::atomic<uid_t> user{::geteuid()};
  /// The peer sees another process of that user's, which has ended since.
  std::atomic<bool> isOtherProcess{false};

 private:
  static int connected(const std::string& path) {
    return platform::connectUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
  }
  /// For the kernel a peer is whoever has called connect().
  static int connectedByAnother(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const pid_t child = ::fork();
    if (child == 0) {
      const auto* const where = reinterpret_cast<const sockaddr*>(&address);
      ::_exit(::connect(descriptor, where, sizeof address) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    if (status == 0) return descriptor;
    ::close(descriptor);
    return -1;
  }

  const std::map<std::string, std::string, std::less<>> paths_;
};

/// Answers each question as the test says. Its members may be changed while the router runs if the
/// lock is held.
class PresetAuthority final : public router::RoutingAuthority,
                              public std::enable_shared_from_this<PresetAuthority> {
 public:
  std::shared_ptr<router::RoutingCaller> callerOf(const platform::NSXPCConnection&) override {
    return std::make_shared<Caller>(shared_from_this());
  }
  std::optional<router::Classification> classOf(const router::DeviceDescription&) const override {
    return classification;
  }

  bool hasMemories() override {
    memories.add("asked");
    const std::lock_guard lock(mutex);
    return remembers;
  }

  std::mutex mutex;
  router::Classification classification{
      router::DeviceClass::Sensitive, "it has keys", {2, 5}};  // to be set before it runs
  std::map<std::uint64_t, router::RoutingAnswer> previews;     // no answer for the others
  bool isUndecided = false;                                    // does not answer a start request
  router::RoutingAnswer start{true, {}, router::allReports()};
  router::RoutingAnswer end{false, "not permitted: nobody may", {}};
  router::RoutingCaller::Revoked revoked;  // takes back the latest permission to start
  LineLog asked;
  LineLog previewed;
  bool remembers = false;
  LineLog memories;

 private:
  class Caller final : public router::RoutingCaller {
   public:
    explicit Caller(std::shared_ptr<PresetAuthority> authority)
        : authority_(std::move(authority)) {}
    std::unique_ptr<router::RoutingPermit> ask(const router::RoutingRequest& request,
                                               Decided decided, Revoked revoked) override {
      const std::lock_guard lock(authority_->mutex);
      if (!request.isPreview) {
        authority_->revoked = std::move(revoked);
        authority_->asked.add("start");
        if (!authority_->isUndecided) decided(authority_->start);
        return std::make_unique<router::RoutingPermit>();
      }
      authority_->previewed.add("preview");
      if (const auto answer = authority_->previews.find(request.device.registryEntryID);
          answer != authority_->previews.end()) {
        decided(answer->second);
      }
      return std::make_unique<router::RoutingPermit>();
    }
    std::unique_ptr<router::RoutingPermit> askToEnd(std::uint64_t session,
                                                    Decided decided) override {
      authority_->asked.add("end " + std::to_string(session));
      decided(authority_->end);
      return std::make_unique<router::RoutingPermit>();
    }
    [[nodiscard]] std::string program() const override { return "/usr/bin/pen"; }
    [[nodiscard]] std::string unit() const override { return "pen.scope"; }

   private:
    const std::shared_ptr<PresetAuthority> authority_;
  };
};

class ServiceFixture : public RouterFixture {
 protected:
  void SetUp() override {
    ::chmod(directory_.c_str(), 0755);
    endpoints_ = std::make_shared<Endpoints>(std::map<std::string, std::string, std::less<>>{
        {std::string(WLHIDEventRouterLabel), (directory_ / "router.sock").string()},
        {std::string(router::kControlService), (directory_ / "control.sock").string()},
        {std::string(WLHIDDeviceDirectoryLabel), (directory_ / "devices.sock").string()}});
    previous_ = platform::serviceEndpoints().exchange(endpoints_);
  }
  void TearDown() override {
    router_.reset();
    platform::serviceEndpoints().exchange(previous_);
  }
  [[nodiscard]] std::shared_ptr<platform::NSXPCListener> listener(const char* name) const {
    const auto path = (directory_ / name).string();
    const int socket =
        platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 64, 0666);
    EXPECT_GE(socket, 0);
    return platform::NSXPCListener::initWithListeningDescriptor(socket);
  }
  void start(std::shared_ptr<router::RoutingAuthority> authority,
             const router::RouterLimits& limits = {}) {
    router::RouterOptions options;
    options.idleLimit = idleLimit_;
    options.limits = limits;
    options.authority = std::move(authority);
    options.sources = sources_;
    options.log = [log = routerLog_](std::string_view line) { log->add(std::string(line)); };
    options.control = listener("control.sock");
    options.directory = listener("devices.sock");
    router_ = std::make_unique<router::Router>(root(), listener("router.sock"), options);
    router_->resume();
  }
  /// On a root whose users are not each other's.
  void startShared(const router::RouterLimits& limits = {}) { start(authority_, limits); }
  /// Connections that are made from now on are that user's.
  void actAs(uid_t user) { endpoints_->user = user; }

  std::shared_ptr<Endpoints> endpoints_;
  const std::shared_ptr<PresetAuthority> authority_ = std::make_shared<PresetAuthority>();
  // Set these before the router starts.
  std::chrono::milliseconds idleLimit_ = std::chrono::hours(1);
  std::shared_ptr<const router::DeviceSources> sources_;  // null: the root's

 private:
  std::shared_ptr<platform::ServiceEndpoints> previous_;
};

}  // namespace routertest
