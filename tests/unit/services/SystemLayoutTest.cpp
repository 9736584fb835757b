// SPDX-License-Identifier: Apache-2.0

// The system's own root: two layers of jobs, endpoints in /run, and directories that are trusted
// only if they are the superuser's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSString.h"
#include "platform/services/InstalledJob.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/services/FakeDaemon.h"

namespace {

using namespace platform;
using testing::HasSubstr;
using testsupport::writeFile;
namespace fs = std::filesystem;

const std::string kLabel(kSystemJobLabel);

class SystemLayout : public testing::Test {
 protected:
  SystemLayout() {
    ::chmod(directory_.c_str(), 0755);
    SystemRoot::setSystemForTests(directory_);
    SystemRoot::setCurrent(root_);
  }
  ~SystemLayout() override {
    SystemRoot::resetCurrent();
    SystemRoot::setSystemForTests({});
  }

  [[nodiscard]] fs::path packaged() const { return directory_ / "usr/lib/wlhid"; }
  [[nodiscard]] fs::path blessed() const { return directory_ / "var/lib/wlhid"; }

  /// A job and its helper in a layer.
  static void put(const fs::path& layer) {
    const fs::path helper = layer / "helpers" / kLabel;
    writeFile(helper, "a helper");
    writeFile(layer / "jobs" / (kLabel + ".plist"),
              "<plist version=\"1.0\"><dict><key>Label</key><string>" + kLabel +
                  "</string><key>ProgramArguments</key><array><string>" + helper.string() +
                  "</string></array><key>MachServices</key><dict><key>" + kLabel +
                  "</key><true/></dict></dict></plist>");
  }
  /// The program of the installed job, or why there is none.
  [[nodiscard]] std::string program() const try {
    std::string reason;
    const auto job = installedJob(root_, kLabel, &reason);
    if (!job) return reason;
    const auto arguments = objectCast<NSArray>(job->objectForKey("ProgramArguments"));
    return objectCast<NSString>(arguments->objectAtIndex(0))->UTF8String();
  } catch (const ServiceError& error) {
    return error.what();
  }
  [[nodiscard]] static ServiceConnectResult connect() {
    return serviceEndpoints().load()->connectToService(kLabel);
  }

  testsupport::TemporaryDirectory temporary_;
  fs::path directory_ = temporary_.path();
  SystemRoot root_{temporary_.path()};
};

TEST_F(SystemLayout, AnApplicationsJobGoesBeforeThePackages) {
  EXPECT_THAT(program(), HasSubstr("there is no job file "));
  put(packaged());
  EXPECT_EQ(program(), packaged() / "helpers" / kLabel);
  put(blessed());
  EXPECT_EQ(program(), blessed() / "helpers" / kLabel);
  fs::remove_all(blessed());
  EXPECT_EQ(program(), packaged() / "helpers" / kLabel);
}

TEST_F(SystemLayout, AnInvalidJobIsNotReplacedByThePackages) {
  put(packaged());
  put(blessed());
  writeFile(blessed() / "jobs" / (kLabel + ".plist"), "garbage");
  EXPECT_EQ(program(), (blessed() / "jobs" / (kLabel + ".plist")).string() +
                           ": it is not a property list with a dictionary");
  put(blessed());
  fs::remove(blessed() / "helpers" / kLabel);
  writeFile(blessed() / "jobs" / (kLabel + ".plist"),
            testsupport::readFile(packaged() / "jobs" / (kLabel + ".plist")));
  EXPECT_THAT(program(), HasSubstr("(var/lib/wlhid/helpers/" + kLabel + " of the root)"));
}

TEST_F(SystemLayout, ALayerIsReachedThroughNoLink) {
  put(packaged());
  fs::rename(packaged(), directory_ / "elsewhere");
  fs::create_directory_symlink(directory_ / "elsewhere", packaged());
  EXPECT_THAT(program(), HasSubstr("cannot open the directory wlhid"));
}

TEST_F(SystemLayout, ADirectoryThatOthersMayWriteIsNotTrusted) {
  put(packaged());
  for (const auto* const place : {"usr", "usr/lib", "usr/lib/wlhid", "usr/lib/wlhid/jobs"}) {
    ASSERT_EQ(::chmod((directory_ / place).c_str(), 0775), 0);
    EXPECT_THAT(program(), HasSubstr("/" + std::string(place) + " can be written by others"));
    ASSERT_EQ(::chmod((directory_ / place).c_str(), 0755), 0);
  }
  ASSERT_EQ(::chmod((packaged() / "helpers").c_str(), 0757), 0);
  EXPECT_THAT(program(), HasSubstr("/usr/lib/wlhid/helpers can be written by others"));
}

TEST_F(SystemLayout, ADirectoryOfAnotherUserIsNotTrusted) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  put(packaged());
  ASSERT_EQ(::chown((packaged() / "jobs").c_str(), testsupport::kOtherUser, 0), 0);
  EXPECT_THAT(program(), HasSubstr("/usr/lib/wlhid/jobs belongs to user 12345"));
}

TEST_F(SystemLayout, OnAUsersRootOnlyLinksAreRefused) {
  SystemRoot::setSystemForTests({});
  const fs::path jobs = directory_ / "Library/LaunchDaemons";
  fs::create_directories(jobs);
  ASSERT_EQ(::chmod(jobs.c_str(), 0777), 0);
  EXPECT_TRUE(openPlace(openRoot(root_).get(), "Library/LaunchDaemons"));
}

TEST_F(SystemLayout, EndpointsAreInRun) {
  const fs::path run = directory_ / "run/wlhid";
  fs::create_directories(run);
  const FileDescriptor endpoint(
      listenUnixSocket((run / (kLabel + ".sock")).string(), SOCK_STREAM, 8, 0666));
  const auto result = connect();
  EXPECT_EQ(result.outcome, ServiceConnectResult::Outcome::Connected) << result.reason;
  const FileDescriptor connected(result.descriptor);
  ASSERT_EQ(::chmod(run.c_str(), 0777), 0);
  EXPECT_EQ(connect().outcome, ServiceConnectResult::Outcome::Refused);
}

TEST_F(SystemLayout, NoDaemonIsStartedForAnEndpoint) {
  EXPECT_EQ(connect().reason, "no job offers it");
  put(packaged());
  const auto result = connect();
  EXPECT_EQ(result.outcome, ServiceConnectResult::Outcome::UnknownName);
  EXPECT_EQ(result.reason, "its job is installed, but nobody listens at " +
                               (directory_ / "run/wlhid" / (kLabel + ".sock")).string() +
                               ": start it with systemctl start wlhid-router.socket");
}

TEST_F(SystemLayout, TheDaemonIsReachedOverItsSocketAndNeverStarted) {
  try {
    JobDaemon(root_).ensureRunning();
    ADD_FAILURE() << "there is no daemon";
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
    EXPECT_EQ(std::string(error.what()),
              "the system's job daemon is not there: nobody listens at " +
                  (directory_ / "run/wlhid/jobd.sock").string() +
                  ". Install the package wlhid-router, or, if it is installed, start the socket "
                  "with systemctl start wlhid-jobd.socket");
  }
  const servicestest::FakeDaemon daemon(root_);
  JobDaemon(root_).ensureRunning();
  EXPECT_TRUE(JobDaemon(root_).ask({}, -1).succeeded());
}

}  // namespace
