// SPDX-License-Identifier: Apache-2.0

// One-way latency: half a ping-pong, and the time from the stamp in a report sent at 8 kHz to the
// delegate. Compared with the same number of bare sockets with frames of the same sizes (two for
// the ping-pong), each process on its own processor.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <future>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Client.h"
#include "bench/Processors.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace bench {
namespace {

constexpr std::uint32_t kRounds = 20'000;
constexpr std::uint32_t kWarmUp = 1'000;
constexpr std::uint32_t kPacedReports = 12'000;
constexpr int kRepetitions = 5;
constexpr auto kPatience = std::chrono::seconds(120);

using Samples = std::vector<double>;  // microseconds

// The client's second connection, through which it asks for the next report.
class Ponger {
 public:
  Ponger()
      : connection_(
            platform::NSXPCConnection::initWithMachServiceName_options(platform::str("bench"), 0)) {
    connection_->setRemoteObjectInterface(
        platform::NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    connection_->resume();
    router_ = connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>({});
  }
  void ask() { router_->stopRoutingService(); }
  void end() { connection_->invalidate(); }

 private:
  std::shared_ptr<platform::NSXPCConnection> connection_;
  std::shared_ptr<WLHIDEventRouterProtocol> router_;
};

class PingPongDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override {
    if (status == WLHIDEventRouterClientStatusRouting) ask();
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>&,
      std::uint32_t) override {
    samples_.push_back(static_cast<double>(monotonicNanoseconds() - asked_) / 2000.0);
    if (samples_.size() == kRounds) return finished_.set_value();
    ask();
  }
  Samples wait() {
    if (finished_.get_future().wait_for(kPatience) != std::future_status::ready)
      throw std::runtime_error("no pong arrived");
    ponger_.end();
    return {samples_.begin() + kWarmUp, samples_.end()};
  }

 private:
  void ask() {
    asked_ = monotonicNanoseconds();
    ponger_.ask();
  }
  Ponger ponger_;
  std::uint64_t asked_ = 0;
  Samples samples_;
  std::promise<void> finished_;
};

class PacedDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t) override {
    const std::uint64_t now = monotonicNanoseconds();
    std::uint64_t stamp = 0;
    std::memcpy(&stamp, data->bytes(), sizeof stamp);
    samples_.push_back(static_cast<double>(now - stamp) / 1000.0);
    if (samples_.size() == kPacedReports) finished_.set_value();
  }
  Samples wait() {
    if (finished_.get_future().wait_for(kPatience) != std::future_status::ready) {
      throw std::runtime_error("paced reports are missing");
    }
    return {samples_.begin() + kWarmUp, samples_.end()};
  }

 private:
  Samples samples_;
  std::promise<void> finished_;
};

template <class Delegate>
double layerMedian(const Job& job) {
  const auto client = clientFor(job);
  const auto delegate = std::make_shared<Delegate>();
  client->setDelegate(delegate);
  client->setStarted(true);
  const double result = median(delegate->wait());
  client->setStarted(false);
  waitForConnectionsToEnd();
  return result;
}

void receiveFrame(int socket, std::array<std::uint8_t, kReportFrameBytes>& frame) {
  if (::recv(socket, frame.data(), frame.size(), MSG_WAITALL) !=
      static_cast<ssize_t>(frame.size())) {
    throw std::runtime_error("the bare stream ended early");
  }
}

double barePingPong(const RouterProcess& router) {
  const int pongs = router.connectBare({Kind::PingPong, 1, kRounds});
  std::uint8_t ready = 0;
  if (::recv(pongs, &ready, sizeof ready, 0) != sizeof ready)
    throw std::runtime_error("the bare stream ended early");
  const int pings = router.connectBare({Kind::Ping, 1, kRounds});
  std::array<std::uint8_t, kReportFrameBytes> frame{};
  const std::array<std::uint8_t, kEmptyFrameBytes> ping{};
  Samples samples;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::uint64_t asked = monotonicNanoseconds();
    if (::send(pings, ping.data(), ping.size(), MSG_NOSIGNAL) < 0)
      throw std::runtime_error("the bare stream broke");
    receiveFrame(pongs, frame);
    samples.push_back(static_cast<double>(monotonicNanoseconds() - asked) / 2000.0);
  }
  ::close(pings);
  ::close(pongs);
  return median({samples.begin() + kWarmUp, samples.end()});
}

double barePaced(const RouterProcess& router) {
  const int socket = router.connectBare({Kind::Paced, 1, kPacedReports});
  std::array<std::uint8_t, kReportFrameBytes> frame{};
  Samples samples;
  for (std::uint32_t i = 0; i < kPacedReports; ++i) {
    receiveFrame(socket, frame);
    const std::uint64_t now = monotonicNanoseconds();
    std::uint64_t stamp = 0;
    std::memcpy(&stamp, frame.data(), sizeof stamp);
    samples.push_back(static_cast<double>(now - stamp) / 1000.0);
  }
  ::close(socket);
  return median({samples.begin() + kWarmUp, samples.end()});
}

template <class Layer, class Bare>
void addRatio(Report& report, const std::string& group, double target, Layer layer, Bare bare) {
  Samples measured;
  Samples baseline;
  for (int i = 0; i < kRepetitions; ++i) {
    baseline.push_back(bare());
    measured.push_back(layer());
  }
  report.add({group,
              "p50.ratio",
              median(measured) / median(baseline),
              target,
              /*atLeast=*/false,
              {"p50.us", median(measured)},
              {"p50.bare_us", median(baseline)}});
}

}  // namespace

void measureLatency(Report& report) {
  const TwoProcessors processors;
  processors.useSecond();
  const RouterProcess router;
  processors.useFirst();
  const BenchPlatform platform(router.endpoint());
  addRatio(
      report, "latency.pingpong", 1.1,
      [] {
        return layerMedian<PingPongDelegate>({Kind::PingPong, 1, kRounds});
      },
      [&] { return barePingPong(router); });
  addRatio(
      report, "latency.paced8k", 1.15,
      [] {
        return layerMedian<PacedDelegate>({Kind::Paced, 1, kPacedReports});
      },
      [&] { return barePaced(router); });
}

}  // namespace bench
