// SPDX-License-Identifier: Apache-2.0

// Processor time per report at the rates of real devices, router and client together, against a
// bare socket and a reader that does not look at what it reads.
#include "bench/Bench.h"
#include "bench/Transfer.h"

namespace bench {
namespace {

constexpr int kRepetitions = 5;
constexpr std::uint32_t kSeconds = 2;

void addRatio(Report& report, const RouterProcess& router, const std::string& group,
              std::uint16_t perSecond) {
  const Job job{Kind::Paced, 1, perSecond * kSeconds, perSecond};
  Side layer;
  Side bare;
  for (int i = 0; i < kRepetitions; ++i) {
    bare.measure(router, job.count, [&] { return bareRate(router, job); });
    layer.measure(router, job.count, [&] { return layerRate(job); });
  }
  const double measured = median(layer.processorMicroseconds);
  const double baseline = median(bare.processorMicroseconds);
  report.add({group,
              "ratio",
              measured / baseline,
              1.3,
              /*atLeast=*/false,
              {"us", measured},
              {"bare_us", baseline}});
}

}  // namespace

void measureProcessorTime(Report& report) {
  const RouterProcess router;
  const BenchPlatform platform(router.endpoint());
  addRatio(report, router, "cpu.paced1k", 1000);
  addRatio(report, router, "cpu.paced8k", 8000);
}

}  // namespace bench
