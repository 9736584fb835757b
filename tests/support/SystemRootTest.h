// SPDX-License-Identifier: Apache-2.0

// A test with a system root of its own: a temporary directory, with the job daemon's socket bound.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/SystemRoot.h"
#include "tests/support/TemporaryDirectory.h"

namespace testsupport {

class SystemRootTest : public testing::Test {
 protected:
  SystemRootTest() : root_(temporary_.path() / "root") {
    std::filesystem::create_directories(root_.path() / "run/wlhid");
    for (const auto& path : {temporary_.path(), root_.path()}) ::chmod(path.c_str(), 0755);
    platform::SystemRoot::setSystemForTests(root_.path());
    listening_.reset(platform::listenUnixSocket(root_.controlEndpoint().string(),
                                                SOCK_STREAM | SOCK_NONBLOCK, 64, 0666));
  }
  ~SystemRootTest() override { platform::SystemRoot::setSystemForTests({}); }

  testsupport::TemporaryDirectory temporary_;
  platform::SystemRoot root_;
  platform::FileDescriptor listening_;
};

}  // namespace testsupport
