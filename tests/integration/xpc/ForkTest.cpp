// What a child of a process does with the connections that it came by through fork(): each case is
// an application of its own (forking_application.cpp), for some children return from main.
#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/ScopedVariable.h"
#include "tests/support/XPCPeers.h"

namespace {

class Fork : public ::testing::TestWithParam<const char*> {};

std::string nameOf(const ::testing::TestParamInfo<const char*>& info) {
  return info.param;
}

/// A child lacks the threads whose stacks hold what looks leaked in it.
std::string withoutLeakCheck() {
  const char* const options = std::getenv("ASAN_OPTIONS");
  return (options == nullptr ? std::string() : options + std::string(":")) + "detect_leaks=0";
}

}  // namespace

TEST_P(Fork, OfAChildsDoingsTheParentsConnectionsHearNothing) {
  const testsupport::ScopedVariable options("ASAN_OPTIONS", withoutLeakCheck().c_str());
  const std::string command = std::string(XPC_FORKING_APPLICATION) + " " + GetParam();
  EXPECT_EQ(std::system(command.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Children, Fork,
                         ::testing::Values("returns", "exits", "ends", "executes", "releases",
                                           "invalidates", "sends", "resumes", "batches", "handles",
                                           "accepts", "hurries"),
                         nameOf);
