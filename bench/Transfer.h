// SPDX-License-Identifier: Apache-2.0

// Transfers reports from the router's process to this one: through the layer to a delegate, and
// over a bare stream socket.
//
// Threading: one thread.
// Ownership: each function ends what it starts.
// Errors: std::runtime_error if reports are missing or truncated.
#pragma once

#include <cstdint>
#include <vector>

#include "bench/Client.h"
#include "bench/DeviceRouter.h"
#include "bench/Router.h"

namespace bench {

/// Each returns reports per second.
[[nodiscard]] double layerRate(const Job& job);
/// Of a device's input: its reports, and the values in them. Stops after `count` reports.
[[nodiscard]] double deviceRate(const DeviceRouterProcess& router, std::uint32_t count);
/// Reads 64 KiB at a time without looking at them.
[[nodiscard]] double bareRate(const RouterProcess& router, const Job& job);
/// Like bareRate, but does the minimum that a reader of reports must do: takes each frame out of
/// what has arrived without reading beyond it, puts its bytes into an object of their own, and
/// passes that to a virtual function.
[[nodiscard]] double referenceRate(const RouterProcess& router, const Job& job);

/// Repeated runs of one kind of transfer.
struct Side {
  std::vector<double> rates;
  std::vector<double> processorMicroseconds;  ///< of both processes, per report

  /// `run` returns a rate.
  template <class Run>
  void measure(const RoleProcess& router, std::uint32_t count, Run run) {
    const double before = processorSeconds(router);
    rates.push_back(run());
    waitForConnectionsToEnd();
    processorMicroseconds.push_back((processorSeconds(router) - before) * 1e6 / count);
  }

 private:
  static double processorSeconds(const RoleProcess& router);
};

}  // namespace bench
