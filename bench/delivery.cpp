// Delivery from the router's process to the delegate, against a bare stream socket that carries
// frames of the same size and a reader that takes 64 KiB at a time. Both are repeated in turn; the
// middle of each counts.
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Client.h"

namespace bench {
namespace {

constexpr std::uint32_t kSingleReports = 600'000;
constexpr std::uint32_t kBatchedReports = 6'400'000;
constexpr std::uint8_t kBatch = 32;
constexpr int kRepetitions = 5;
constexpr auto kPatience = std::chrono::seconds(120);

double ownProcessorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class CountingDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  explicit CountingDelegate(std::uint32_t expected) : expected_(expected) {}

  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t) override {
    if (received_ == 0) first_ = monotonicNanoseconds();
    bytes_ += data->length();
    if (++received_ == expected_) finished_.set_value(monotonicNanoseconds() - first_);
  }

  /// Reports a second.
  double rate() {
    auto result = finished_.get_future();
    if (result.wait_for(kPatience) != std::future_status::ready)
      throw std::runtime_error("reports are missing");
    const double seconds = static_cast<double>(result.get()) / 1e9;
    if (bytes_ != std::uint64_t{expected_} * kReportBytes)
      throw std::runtime_error("reports are cut");
    return (expected_ - 1) / seconds;
  }

 private:
  const std::uint32_t expected_;
  std::uint32_t received_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t first_ = 0;
  std::promise<std::uint64_t> finished_;
};

double layerRate(const Job& job) {
  const auto client = clientFor(job);
  const auto delegate = std::make_shared<CountingDelegate>(job.count);
  client->setDelegate(delegate);
  client->setStarted(true);
  const double rate = delegate->rate();
  client->setStarted(false);
  return rate;
}

double bareRate(const RouterProcess& router, const Job& job) {
  const int socket = router.connectBare(job);
  std::vector<std::uint8_t> buffer(64 * 1024);
  const std::uint64_t expected = std::uint64_t{job.count} * kReportFrameBytes;
  std::uint64_t received = 0;
  std::uint64_t first = 0;
  while (received < expected) {
    const ssize_t got = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (got <= 0) throw std::runtime_error("the bare stream ended early");
    if (received == 0) first = monotonicNanoseconds();
    received += static_cast<std::uint64_t>(got);
  }
  const double seconds = static_cast<double>(monotonicNanoseconds() - first) / 1e9;
  ::close(socket);
  return (job.count - 1) / seconds;
}

struct Side {
  std::vector<double> rates;
  std::vector<double> processorMicroseconds;  // of both processes, a report

  template <class Run>
  void measure(const RouterProcess& router, std::uint32_t count, Run run) {
    const double before = ownProcessorSeconds() + router.processorSeconds();
    rates.push_back(run());
    waitForConnectionsToEnd();
    const double spent = ownProcessorSeconds() + router.processorSeconds() - before;
    processorMicroseconds.push_back(spent * 1e6 / count);
  }
};

struct Sides {
  Side layer;
  Side bare;
};

Sides measureBoth(const RouterProcess& router, const Job& job) {
  Sides sides;
  for (int i = 0; i < kRepetitions; ++i) {
    sides.bare.measure(router, job.count, [&] { return bareRate(router, job); });
    sides.layer.measure(router, job.count, [&] { return layerRate(job); });
  }
  return sides;
}

void addRatio(Report& report, const std::string& group, double target, const Sides& sides) {
  const double measured = median(sides.layer.rates);
  const double baseline = median(sides.bare.rates);
  report.add({group,
              "ratio",
              measured / baseline,
              target,
              /*atLeast=*/true,
              {"reports_per_s", measured},
              {"bare_frames_per_s", baseline}});
}

}  // namespace

double median(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void measureDelivery(Report& report) {
  const RouterProcess router;
  const BenchPlatform platform(router.endpoint());
  addRatio(report, "delivery.single", 0.9, measureBoth(router, {Kind::Stream, 1, kSingleReports}));
  const Sides batched = measureBoth(router, {Kind::Stream, kBatch, kBatchedReports});
  addRatio(report, "delivery.batch32", 0.7, batched);
  // Processor time of both processes together beyond what the bare sockets took: encoding, framing,
  // decoding, the report's own allocation, the client and the call of the delegate.
  const double measured = median(batched.layer.processorMicroseconds);
  const double baseline = median(batched.bare.processorMicroseconds);
  report.add({"delivery",
              "own_us",
              measured - baseline,
              0.15,
              /*atLeast=*/false,
              {"own.layer_us", measured},
              {"own.bare_us", baseline}});
}

}  // namespace bench
