// SPDX-License-Identifier: Apache-2.0

// Helper images made by the project's own tool while a test runs.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace testsupport {

/// Runs a program and returns its exit status, or -1.
inline int runProgram(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t child = -1;
  if (::posix_spawn(&child, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0)
    return -1;
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

struct ImagePlan {
  std::string label = "com.quillmar.echo";
  std::string version = "1.0";
  std::string program = "/proc/self/exe";
  std::vector<std::string> services;
};

/// Makes `output` with the tool at `mkimage`.
inline std::filesystem::path makeImage(const std::string& mkimage, const ImagePlan& plan,
                                       const std::filesystem::path& output) {
  std::vector<std::string> arguments{mkimage,      "--label",    plan.label,
                                     "--version",  plan.version, "--program",
                                     plan.program, "--output",   output.string()};
  for (const auto& service : plan.services) {
    arguments.emplace_back("--service");
    arguments.push_back(service);
  }
  EXPECT_EQ(runProgram(arguments), 0);
  return output;
}

}  // namespace testsupport
