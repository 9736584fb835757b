// SPDX-License-Identifier: Apache-2.0

#include "bench/Roles.h"

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace bench {
namespace {

std::string ownProgram() {
  std::array<char, 4096> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
  if (length <= 0) throw std::runtime_error("cannot find this program's executable");
  return path.data();
}

}  // namespace

std::vector<double> runRole(const std::string& name, const std::string& argument,
                            std::size_t count) {
  const std::string command = "'" + ownProgram() + "' '--role=" + name + "' '" + argument + "'";
  FILE* const pipe = ::popen(command.c_str(), "re");
  if (pipe == nullptr) throw std::runtime_error("cannot start the " + name + " process");
  std::vector<double> figures;
  for (double figure = 0; std::fscanf(pipe, "%lf", &figure) == 1;) figures.push_back(figure);
  if (::pclose(pipe) != 0 || figures.size() != count)
    throw std::runtime_error("the " + name + " process failed");
  return figures;
}

}  // namespace bench
