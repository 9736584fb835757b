// SPDX-License-Identifier: Apache-2.0

// Resident memory of a client with an open connection: 1,000 of them in a process of their own, in
// two halves, so that growth faster than linear would show.
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Client.h"
#include "bench/Roles.h"

namespace bench {
namespace {

constexpr std::size_t kClients = 1000;
constexpr double kBytesInKiB = 1024;

double residentKiB() {
  std::ifstream in("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  in >> total >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / kBytesInKiB;
}

void allowManyDescriptors() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

class RoutingCounter final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override {
    if (status != WLHIDEventRouterClientStatusRouting) return;
    const std::lock_guard lock(mutex_);
    ++routing_;
    changed_.notify_all();
  }
  void waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::seconds(60), [&] { return routing_ >= count; })) {
      throw std::runtime_error("the clients did not start routing");
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t routing_ = 0;
};

}  // namespace

int runClientsRole(const char* endpoint) {
  allowManyDescriptors();
  try {
    const BenchPlatform platform(endpoint);
    const auto counter = std::make_shared<RoutingCounter>();
    std::vector<std::shared_ptr<WLHIDEventRouterClient>> clients;
    clients.reserve(kClients);
    std::array<double, 3> resident{residentKiB(), 0, 0};
    for (std::size_t half = 1; half <= 2; ++half) {
      while (clients.size() < kClients / 2 * half) {
        clients.push_back(clientFor({}));
        clients.back()->setDelegate(counter);
        clients.back()->setStarted(true);
      }
      counter->waitFor(clients.size());
      resident.at(half) = residentKiB();
    }
    std::printf("%.0f %.0f %.0f\n", resident[0], resident[1], resident[2]);
    std::fflush(stdout);
  } catch (const std::exception& exception) {
    std::cerr << "wlhid-bench: " << exception.what() << '\n';
    return 1;
  }
  ::_exit(0);  // the orderly closing of a thousand connections is not measured
}

void measureClients(Report& report) {
  allowManyDescriptors();  // inherited by the router
  const RouterProcess router;
  const auto [before, half, all] = roleFigures<3>("clients", router.endpoint());
  report.add({"clients1000",
              "kib_each",
              (all - before) / kClients,
              32,
              /*atLeast=*/false,
              {"resident_kib", all},
              {"resident_before_kib", before}});
  report.add({"clients1000",
              "linearity",
              (all - half) / (half - before),
              1.1,
              /*atLeast=*/false,
              {"second_half_kib", all - half},
              {"first_half_kib", half - before}});
}

}  // namespace bench
