// SPDX-License-Identifier: Apache-2.0

// What a child process does with the connections that it inherited through fork(): each case is an
// application of its own (forking_application.cpp), since some children return from main.
#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/ScopedVariable.h"
#include "tests/support/XPCPeers.h"

namespace {

class Fork : public ::testing::TestWithParam<const char*> {};

std::string nameOf(const ::testing::TestParamInfo<const char*>& info) {
  return info.param;
}

/// The threads whose stacks refer to what looks leaked do not exist in a child.
std::string withoutLeakCheck() {
  const char* const options = std::getenv("ASAN_OPTIONS");
  return (options == nullptr ? std::string() : options + std::string(":")) + "detect_leaks=0";
}

}  // namespace

TEST_P(Fork, OfAChildsDoingsTheParentsConnectionsHearNothing) {
#ifdef __SANITIZE_THREAD__
  const std::string child = GetParam();
  if (child == "handles" || child == "accepts")
    GTEST_SKIP() << "ThreadSanitizer itself crashes if a thread that forked ends in the child";
#endif
  const testsupport::ScopedVariable options("ASAN_OPTIONS", withoutLeakCheck().c_str());
  const std::string command = std::string(XPC_FORKING_APPLICATION) + " " + GetParam();
  EXPECT_EQ(std::system(command.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Children, Fork,
                         ::testing::Values("returns", "exits", "ends", "executes", "releases",
                                           "invalidates", "sends", "resumes", "batches", "handles",
                                           "accepts", "hurries"),
                         nameOf);
