// SPDX-License-Identifier: Apache-2.0

#include "platform/services/UserNamespace.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/services/RootFiles.h"

namespace {

using platform::userOutside;

constexpr uid_t kOverflow = 65534;
constexpr int kTrusted = 1, kNotTrusted = 2, kNotAllowed = 3;

TEST(UserNamespace, ASandboxShowsEverybodyOutsideAsOneUser) {
  EXPECT_EQ(userOutside(kOverflow, "      1000       1000          1\n"), kOverflow);
  EXPECT_EQ(userOutside(kOverflow, "0 1000 1\n1 100000 65533\n"), kOverflow);
}

TEST(UserNamespace, AUserInsideWithThatNumberIsNobodyOutside) {
  EXPECT_EQ(userOutside(kOverflow, "         0          0 4294967295\n"), std::nullopt);
  EXPECT_EQ(userOutside(kOverflow, "0 1000 1\n1 100000 65536\n"), std::nullopt);
  EXPECT_EQ(userOutside(kOverflow, "65534 65534 1\n"), std::nullopt);
}

TEST(UserNamespace, WhatCannotBeReadMakesNobodyTrusted) {
  for (const char* const map : {"", "0", "0 1000", "0 1000 1\nx", "-"})
    EXPECT_EQ(userOutside(kOverflow, map), std::nullopt) << map;
}

/// In a process of its own with a user namespace in which only its own user exists.
int trustInASandbox() {
  const uid_t own = ::geteuid();
  if (::unshare(CLONE_NEWUSER) != 0) return kNotAllowed;
  std::ofstream map("/proc/self/uid_map");
  map << "1000 " << own << " 1" << std::flush;
  if (!map) return kNotAllowed;
  return platform::isTrustedUser(kOverflow) ? kTrusted : kNotTrusted;
}

TEST(UserNamespace, TheSystemsFilesAreTrustedInASandboxAndNobodysOutside) {
  EXPECT_FALSE(platform::isTrustedUser(kOverflow));
  const pid_t child = ::fork();
  if (child == 0) ::_exit(trustInASandbox());
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNotAllowed) GTEST_SKIP() << "user namespaces are not allowed here";
  EXPECT_EQ(WEXITSTATUS(status), kTrusted);
}

}  // namespace
