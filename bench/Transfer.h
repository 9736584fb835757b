// Carrying reports from the router's process to this one: through the layer to a delegate, and over
// a bare stream socket.
//
// Threading: one thread.
// Ownership: each function ends what it began.
// Errors: std::runtime_error where reports are missing or cut.
#pragma once

#include <vector>

#include "bench/Client.h"

namespace bench {

/// Each returns reports a second.
[[nodiscard]] double layerRate(const Job& job);
/// Takes 64 KiB at a time, and does not look at them.
[[nodiscard]] double bareRate(const RouterProcess& router, const Job& job);
/// As bareRate, and does the least that a reader of reports can do: takes each frame out of what
/// has arrived without reading beyond it, puts its bytes into an object of their own, and hands
/// that to a virtual function.
[[nodiscard]] double referenceRate(const RouterProcess& router, const Job& job);

/// Repeated runs of one way.
struct Side {
  std::vector<double> rates;
  std::vector<double> processorMicroseconds;  ///< of both processes, a report

  /// `run` returns a rate.
  template <class Run>
  void measure(const RouterProcess& router, std::uint32_t count, Run run) {
    const double before = processorSeconds(router);
    rates.push_back(run());
    waitForConnectionsToEnd();
    processorMicroseconds.push_back((processorSeconds(router) - before) * 1e6 / count);
  }

 private:
  static double processorSeconds(const RouterProcess& router);
};

}  // namespace bench
