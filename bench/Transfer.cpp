// SPDX-License-Identifier: Apache-2.0

#include "bench/Transfer.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <future>
#include <span>
#include <stdexcept>

namespace bench {
namespace {

constexpr auto kPatience = std::chrono::seconds(120);
constexpr std::size_t kReadBytes = std::size_t{64} << 10;

class CountingDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  explicit CountingDelegate(std::uint32_t expected, std::size_t bytesEach = kReportBytes)
      : expected_(expected), bytesEach_(bytesEach) {}

  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t) override {
    if (received_ == expected_) return;  // a device goes on until it is stopped
    if (received_ == 0) first_ = monotonicNanoseconds();
    bytes_ += data->length();
    if (++received_ == expected_) finished_.set_value(monotonicNanoseconds() - first_);
  }

  void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>&,
      const std::shared_ptr<platform::NSArray>& values) override {
    values_ += values->count();
  }

  /// Values of elements so far. Read it after rate().
  [[nodiscard]] std::uint64_t values() const { return values_; }
  /// Reports per second.
  double rate() {
    auto result = finished_.get_future();
    if (result.wait_for(kPatience) != std::future_status::ready)
      throw std::runtime_error("reports are missing");
    const double seconds = static_cast<double>(result.get()) / 1e9;
    if (bytes_ != std::uint64_t{expected_} * bytesEach_)
      throw std::runtime_error("reports are truncated");
    return (expected_ - 1) / seconds;
  }

 private:
  const std::uint32_t expected_;
  const std::size_t bytesEach_;
  std::uint32_t received_ = 0;
  std::atomic<std::uint64_t> values_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t first_ = 0;
  std::promise<std::uint64_t> finished_;
};

/// Passes on what arrives on a bare socket, however the kernel splits it, until `expected` bytes
/// have arrived. `take` returns how much it has used. Returns the seconds from the first byte to
/// the last.
template <class Take>
double receiveAll(int socket, std::uint64_t expected, Take take) {
  std::vector<std::uint8_t> buffer(kReadBytes);
  std::size_t kept = 0;
  std::uint64_t first = 0;
  for (std::uint64_t received = 0; received < expected;) {
    const ssize_t got = ::recv(socket, buffer.data() + kept, buffer.size() - kept, 0);
    if (got <= 0) throw std::runtime_error("the bare stream ended early");
    if (received == 0) first = monotonicNanoseconds();
    received += static_cast<std::uint64_t>(got);
    const std::size_t present = kept + static_cast<std::size_t>(got);
    const std::size_t used = take(std::span<const std::uint8_t>(buffer.data(), present));
    kept = present - used;
    if (kept > 0) std::memmove(buffer.data(), buffer.data() + used, kept);
  }
  return static_cast<double>(monotonicNanoseconds() - first) / 1e9;
}

template <class Take>
double rateOf(const RouterProcess& router, const Job& job, Take take) {
  const int socket = router.connectBare(job);
  const double seconds =
      receiveAll(socket, std::uint64_t{job.count} * kReportFrameBytes, std::move(take));
  ::close(socket);
  return (job.count - 1) / seconds;
}

using ReportBytes = std::array<std::uint8_t, kReportBytes>;

class ReportReader {
 public:
  virtual ~ReportReader() = default;
  virtual void receive(std::shared_ptr<const ReportBytes> report) = 0;
};

class CountingReader final : public ReportReader {
 public:
  void receive(std::shared_ptr<const ReportBytes> report) override {
    ++count_;
    if (report->front() != kReportFiller) throw std::runtime_error("reports are corrupted");
  }
  [[nodiscard]] std::uint32_t count() const { return count_; }

 private:
  std::uint32_t count_ = 0;
};

/// Returns how many bytes the complete frames took.
std::size_t readFrames(std::span<const std::uint8_t> bytes, ReportReader& reader) {
  std::size_t used = 0;
  for (std::uint32_t length = 0; bytes.size() - used >= sizeof length; used += length) {
    std::memcpy(&length, bytes.data() + used, sizeof length);
    if (length < kReportFrameBytes) throw std::runtime_error("a bare frame is truncated");
    if (bytes.size() - used < length) break;
    auto report = std::make_shared<ReportBytes>();
    std::memcpy(report->data(), bytes.data() + used + kReportOffset, report->size());
    reader.receive(std::move(report));
  }
  return used;
}

}  // namespace

double layerRate(const Job& job) {
  const auto client = clientFor(job);
  const auto delegate = std::make_shared<CountingDelegate>(job.count);
  client->setDelegate(delegate);
  client->setStarted(true);
  const double rate = delegate->rate();
  client->setStarted(false);
  return rate;
}

double deviceRate(const DeviceRouterProcess& router, std::uint32_t count) {
  const auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          router.registryEntryID(), 0, nullptr, nullptr);
  const auto delegate = std::make_shared<CountingDelegate>(count, kMouseReportBytes);
  client->setDelegate(delegate);
  client->setStarted(true);
  const double rate = delegate->rate();
  client->setStarted(false);
  if (delegate->values() < count) throw std::runtime_error("values are missing");
  return rate;
}

double bareRate(const RouterProcess& router, const Job& job) {
  return rateOf(router, job, [](std::span<const std::uint8_t> bytes) { return bytes.size(); });
}

double referenceRate(const RouterProcess& router, const Job& job) {
  const auto reader = std::make_unique<CountingReader>();
  ReportReader& receiver = *reader;
  const double rate = rateOf(router, job, [&receiver](std::span<const std::uint8_t> bytes) {
    return readFrames(bytes, receiver);
  });
  if (reader->count() != job.count) throw std::runtime_error("reports are missing");
  return rate;
}

double Side::processorSeconds(const RoleProcess& router) {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime) + router.processorSeconds();
}

}  // namespace bench
