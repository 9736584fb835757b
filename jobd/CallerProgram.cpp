// SPDX-License-Identifier: Apache-2.0

#include "jobd/CallerProgram.h"

#include <filesystem>
#include <fstream>

namespace jobd {

std::string programOf(pid_t process) {
  const std::string directory = "/proc/" + std::to_string(process);
  std::error_code error;
  const auto program = std::filesystem::read_symlink(directory + "/exe", error);
  if (!error) return program.string();
  std::string name;
  std::getline(std::ifstream(directory + "/comm"), name);
  return name.empty() ? "unknown" : name;
}

}  // namespace jobd
