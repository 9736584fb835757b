// SPDX-License-Identifier: Apache-2.0

// Processor time per report at the rates of real devices, of both processes together: the router
// with a mouse, and a client that takes reports and values; against a bare socket and a reader that
// does not look at what it reads.
#include "bench/Bench.h"
#include "bench/Transfer.h"

namespace bench {
namespace {

constexpr int kRepetitions = 5;
constexpr std::uint32_t kSeconds = 2;

void addRatio(Report& report, const RouterProcess& bareRouter, const std::string& group,
              std::uint16_t perSecond) {
  const Job job{Kind::Paced, 1, perSecond * kSeconds, perSecond};
  const DeviceRouterProcess router(perSecond);
  const BenchPlatform platform(router.endpoint());
  Side whole;
  Side bare;
  for (int i = 0; i < kRepetitions; ++i) {
    bare.measure(bareRouter, job.count, [&] { return bareRate(bareRouter, job); });
    whole.measure(router, job.count, [&] { return deviceRate(router, job.count); });
  }
  const double measured = median(whole.processorMicroseconds);
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
  const RouterProcess bareRouter;
  addRatio(report, bareRouter, "cpu.paced1k", 1000);
  addRatio(report, bareRouter, "cpu.paced8k", 8000);
}

}  // namespace bench
