// SPDX-License-Identifier: Apache-2.0

// The figures that a benchmark section reports: each a ratio against a bare baseline of the same
// run.
//
// Threading: sections run one after another on the main thread.
// Errors: a section that cannot measure throws std::runtime_error; the program then says so and
//   exits with status 1.
// Order: figures are printed in the order in which they are added.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

struct Absolute {
  std::string name;  ///< follows the figure's group: "reports_per_s"
  double value = 0;
};

struct Figure {
  std::string group;  ///< "delivery.single"
  std::string name;   ///< "ratio"
  double value = 0;
  double target = 0;
  bool atLeast = false;  ///< whether the target is a minimum; otherwise it is a maximum
  Absolute measured;
  Absolute baseline;

  [[nodiscard]] std::string key() const { return group + "." + name; }
  [[nodiscard]] bool met() const { return atLeast ? value >= target : value <= target; }
};

class Report {
 public:
  void add(Figure figure) { figures_.push_back(std::move(figure)); }
  [[nodiscard]] const std::vector<Figure>& figures() const { return figures_; }

 private:
  std::vector<Figure> figures_;
};

/// The median of the values, which must not be empty.
[[nodiscard]] double median(std::vector<double> values);

void measureDelivery(Report& report);
void measureLatency(Report& report);
void measurePresence(Report& report);
void measureProcessorTime(Report& report);
void measureClients(Report& report);
void measureRecordings(Report& report);
void measureLog(Report& report);

}  // namespace bench
