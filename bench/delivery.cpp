// SPDX-License-Identifier: Apache-2.0

// Delivery from the router's process to the delegate, against a bare stream socket that carries
// frames of the same size and a reader that takes 64 KiB at a time. The two ends have a processor
// each, the runs alternate, and the median of each kind counts.
#include <algorithm>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Processors.h"
#include "bench/Transfer.h"

namespace bench {
namespace {

constexpr std::uint32_t kSingleReports = 600'000;
constexpr std::uint32_t kBatchedReports = 6'400'000;
constexpr std::uint8_t kBatch = 32;
constexpr int kRepetitions = 5;

struct Sides {
  Side layer;
  Side bare;
  Side reference;
};

Sides measureAll(const RouterProcess& router, const Job& job) {
  Sides sides;
  for (int i = 0; i < kRepetitions; ++i) {
    sides.bare.measure(router, job.count, [&] { return bareRate(router, job); });
    sides.layer.measure(router, job.count, [&] { return layerRate(job); });
    sides.reference.measure(router, job.count, [&] { return referenceRate(router, job); });
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

/// Two figures that do not measure the same. own_us is what a report costs both processes beyond
/// what the bare sockets cost: encoding, framing, decoding, the report's own allocation, the client
/// and the call of the delegate. own.ratio divides whole costs, those of the socket included, by
/// the whole costs of the reference: what that costs beyond the bare sockets is a few nanoseconds,
/// and a quotient of two such differences is noise.
void addOwnCost(Report& report, const Sides& sides) {
  const double bare = median(sides.bare.processorMicroseconds);
  const double layer = median(sides.layer.processorMicroseconds);
  const double least = median(sides.reference.processorMicroseconds);
  report.add({"delivery",
              "own_us",
              layer - bare,
              0.15,
              /*atLeast=*/false,
              {"own.layer_us", layer},
              {"own.bare_us", bare}});
  report.add({"delivery.own",
              "ratio",
              layer / least,
              1.5,
              /*atLeast=*/false,
              {"us", layer},
              {"reference_us", least}});
}

}  // namespace

double median(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void measureDelivery(Report& report) {
  const TwoProcessors processors;
  processors.useSecond();
  const RouterProcess router;
  processors.useFirst();
  const BenchPlatform platform(router.endpoint());
  addRatio(report, "delivery.single", 0.9, measureAll(router, {Kind::Stream, 1, kSingleReports}));
  const Sides batched = measureAll(router, {Kind::Stream, kBatch, kBatchedReports});
  addRatio(report, "delivery.batch32", 0.5, batched);
  addOwnCost(report, batched);
}

}  // namespace bench
