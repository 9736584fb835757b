// SPDX-License-Identifier: Apache-2.0

// Unprivileged processes that race links, renames and writes against the job daemon of the system's
// own root: against the name by which an application opens its helper, against that file's content
// while it is copied, and against every name in the daemon's own directories.
//
// Threading: one thread, which starts and stops them; they are processes.
// Ownership: the processes end with the object.
// Errors: std::runtime_error if one cannot be started.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace stress {

/// What the racers race for.
struct RacePlan {
  uid_t user = 0;
  std::filesystem::path playground;  ///< the racers' own directory; the helper is "in/helper" there
  std::filesystem::path honest;      ///< an image that may be installed
  std::filesystem::path other;       ///< another one
  std::vector<std::filesystem::path> foreign;    ///< files and directories that are not theirs
  std::vector<std::filesystem::path> forbidden;  ///< the daemon's directories
  std::vector<std::string> names;                ///< what the daemon makes there
};

class LinkRacers {
 public:
  struct Counts {
    std::atomic<std::uint64_t> moves{0};       ///< of the name
    std::atomic<std::uint64_t> writes{0};      ///< of the content
    std::atomic<std::uint64_t> trespasses{0};  ///< tried in the daemon's directories
    std::atomic<std::uint64_t> successes{0};   ///< of those
  };

  explicit LinkRacers(const RacePlan& plan);
  LinkRacers(const LinkRacers&) = delete;
  LinkRacers& operator=(const LinkRacers&) = delete;
  ~LinkRacers();

  [[nodiscard]] const Counts& counts() const { return *counts_; }

 private:
  using Race = void (*)(const RacePlan& plan, Counts& counts);
  void start(const RacePlan& plan, Race race);

  Counts* counts_;  ///< shared with the processes
  std::vector<testsupport::ChildProcess> processes_;
};

/// Makes this process the user's for good. False if it may not.
[[nodiscard]] bool becomeUser(uid_t user);

}  // namespace stress
