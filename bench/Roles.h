// SPDX-License-Identifier: Apache-2.0

// Separate processes for what is measured in memory, so that earlier measurements do not count. The
// program starts itself again with --role=NAME ARGUMENT.
//
// Errors: a role exits with status 1 and a line on standard error; roleFigures then throws
//   std::runtime_error.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// Prints the resident KiB before, after half of and after all clients, and exits.
int runClientsRole(const char* endpoint);
/// Prints the resident KiB before and the peak while all recordings are played.
int runRecordingsRole(const char* root);

/// Runs a role and returns the numbers that it printed, of which there must be `count`.
[[nodiscard]] std::vector<double> runRole(const std::string& name, const std::string& argument,
                                          std::size_t count);

template <std::size_t Count>
[[nodiscard]] std::array<double, Count> roleFigures(const std::string& name,
                                                    const std::string& argument) {
  const std::vector<double> figures = runRole(name, argument, Count);
  std::array<double, Count> result{};
  for (std::size_t i = 0; i < Count; ++i) result.at(i) = figures.at(i);
  return result;
}

}  // namespace bench
