// SPDX-License-Identifier: Apache-2.0

// System calls that fail on demand.
//
// FaultyCalls.cpp is linked into a program together with --wrap=… for each of its calls (see
// CMakeLists.txt), so that the program's calls, and those of the project's libraries in it, go
// through here. Which call fails is stored in a file, "faults", which every process of a system
// maps: it is in a directory above the system's root, and the job daemon and its jobs have the root
// in their arguments. A program that finds no such file makes its calls as usual.
//
// Calls are counted by kind of fault: the n-th call that could fail in that way does. Each program
// has a role, and only the chosen role counts and fails.
//
// Threading: any thread of any of the processes.
// Ownership: FaultPlan owns the file.
// Errors: std::runtime_error if the file cannot be created.
// Order: calls count in the order in which they are made.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace stress {

enum class Role : std::uint32_t { None, Application, Daemon, Router };

enum class Fault : std::uint32_t {
  Interrupted,    ///< EINTR
  WouldBlock,     ///< EAGAIN
  Short,          ///< half of the requested bytes
  OneByte,        ///< one of them
  BrokenPipe,     ///< EPIPE
  Reset,          ///< ECONNRESET
  NoDescriptors,  ///< EMFILE
  NoSpace,        ///< ENOSPC
};
inline constexpr std::array<std::string_view, 8> kFaultNames{
    "EINTR", "EAGAIN", "short", "one byte", "EPIPE", "ECONNRESET", "EMFILE", "ENOSPC"};
inline constexpr std::array<std::string_view, 4> kRoleNames{"none", "application", "daemon",
                                                            "router"};

/// The contents of the file.
struct FaultBoard {
  std::atomic<std::uint32_t> role{0};
  std::atomic<std::uint32_t> fault{0};
  std::atomic<std::uint64_t> failing{0};  ///< the number of the call that fails
  std::atomic<std::uint64_t> calls{0};    ///< that could have failed in that way
  std::atomic<std::uint64_t> hits{0};
  std::array<std::atomic<char>, 32> name{};  ///< of the call that failed
};

class FaultPlan {
 public:
  /// Creates the file in `directory` and maps it.
  explicit FaultPlan(const std::filesystem::path& directory);
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;
  ~FaultPlan();

  void arm(Role role, Fault fault, std::uint64_t failing);
  void disarm();
  [[nodiscard]] std::uint64_t calls() const { return board_->calls; }
  [[nodiscard]] bool wasHit() const { return board_->hits > 0; }
  [[nodiscard]] std::string nameOfHit() const;

 private:
  FaultBoard* board_ = nullptr;
};

}  // namespace stress
