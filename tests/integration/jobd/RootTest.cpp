// SPDX-License-Identifier: Apache-2.0

// The daemon and its root: who starts it, which roots it serves, and what it does with damaged
// ones.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <set>

#include "platform/services/JobFile.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/integration/jobd/SuiteFixture.h"
#include "tests/support/OtherUser.h"

namespace {

using namespace jobdtest;
using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;
using testing::HasSubstr;
using Outcome = platform::ServiceConnectResult::Outcome;
namespace fs = std::filesystem;

class Root : public JobdSuite {
 protected:
  /// The error thrown by ensureRunning.
  [[nodiscard]] ServiceError refusal() const {
    try {
      daemon().ensureRunning();
    } catch (const ServiceError& error) {
      return error;
    }
    return {ServiceErrorCode::None, "it was started"};
  }
};

TEST_F(Root, ManyWhoStartItAtOnceGetOneDaemon) {
  std::array<int, 2> results{};
  ASSERT_EQ(::pipe(results.data()), 0);
  constexpr int count = 12;
  for (int i = 0; i < count; ++i) {
    if (::fork() != 0) continue;
    std::int64_t identifier = -1;
    try {
      daemon().ensureRunning();
      const auto status = daemon().status();
      if (status) identifier = status->daemonProcessIdentifier;
    } catch (const std::exception& error) {
      ::dprintf(2, "cannot start it: %s\n", error.what());
    }
    ::_exit(::write(results[1], &identifier, sizeof identifier) == sizeof identifier ? 0 : 1);
  }
  std::set<std::int64_t> identifiers;
  for (int i = 0; i < count; ++i) {
    std::int64_t identifier = 0;
    ASSERT_EQ(::read(results[0], &identifier, sizeof identifier),
              static_cast<ssize_t>(sizeof identifier));
    identifiers.insert(identifier);
  }
  while (::wait(nullptr) > 0) {
  }
  ::close(results[0]);
  ::close(results[1]);
  EXPECT_EQ(identifiers.size(), 1U);
  EXPECT_GT(*identifiers.begin(), 0);
}

TEST_F(Root, AProgramThatIsMissingIsNamed) {
  ::setenv("WLHID_JOBD", "/nowhere/wlhid-jobd", 1);
  const auto error = refusal();
  EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
  EXPECT_STREQ(error.what(), "cannot start /nowhere/wlhid-jobd: No such file or directory");
}

TEST_F(Root, AProgramThatIsNoDaemonIsNoticed) {
  ::setenv("WLHID_JOBD", BARE_DAEMON, 1);
  EXPECT_THAT(refusal().what(), HasSubstr("it exited before it was ready"));
}

TEST_F(Root, TheDaemonsOwnReasonReachesTheApplication) {
  testsupport::writeFile(root.path(), "a file where the root should be");
  EXPECT_EQ(refusal().code(), ServiceErrorCode::FileSystem);
  fs::remove(root.path());
  fs::create_directories(root.path() / "Library");
  ::chmod((root.path() / "Library").c_str(), 0777);
  const auto error = refusal();
  EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
  EXPECT_THAT(error.what(), HasSubstr("did not start: Library can be written by others"));
}

TEST_F(Root, ARootOfSomebodyElseIsNotServed) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a directory away";
  fs::create_directories(root.path());
  ASSERT_EQ(::chown(root.path().c_str(), 12345, 12345), 0);
  EXPECT_THAT(refusal().what(), HasSubstr("belongs to user 12345, and this is root"));
}

TEST_F(Root, ASuperusersRootInAUsersHomeIsRefusedBeforeAnythingIsMade) {
  if (::geteuid() != 0) GTEST_SKIP() << "applies to the superuser only";
  const fs::path home = temporary.path() / "home";
  fs::create_directories(home);
  ASSERT_EQ(::chown(home.c_str(), 12345, 12345), 0);
  const platform::JobDaemon inHome(platform::SystemRoot(home / ".local/state/wlhid/root"));
  try {
    inHome.ensureRunning();
    ADD_FAILURE() << "served";
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::NotPermitted);
    EXPECT_THAT(error.what(), HasSubstr("the directory " + home.string() + " above"));
    EXPECT_THAT(error.what(), HasSubstr("run this as user 12345"));
  }
  EXPECT_TRUE(fs::is_empty(home));
}

TEST_F(Root, ALinkInItsPlaceGetsNothingInstalledBelowItsTarget) {
  const fs::path target = temporary.path() / "target";
  fs::create_directories(target);
  fs::create_directory_symlink(target, root.path());
  EXPECT_THAT(refusal().what(), HasSubstr("is a symbolic link"));
  EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(Root, TheDaemonItselfRefusesALinkHoweverItIsStarted) {
  const fs::path target = temporary.path() / "target";
  fs::create_directories(target);
  fs::create_directory_symlink(target, root.path());
  const std::string command = std::string(WLHID_JOBD_PROGRAM) + " --foreground --root " +
                              root.path().string() + " >" + (temporary.path() / "said").string() +
                              " 2>&1";
  EXPECT_NE(std::system(command.c_str()), 0);  // NOLINT(concurrency-mt-unsafe): one thread
  EXPECT_THAT(testsupport::readFile(temporary.path() / "said"), HasSubstr("is a symbolic link"));
  EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(Root, WhatIsPutInItsPlaceLaterGetsNothing) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  EXPECT_EQ(client.ask("echo it runs"), "it runs");
  const fs::path planted = temporary.path() / "planted";
  const fs::path away = temporary.path() / "away";
  fs::create_directories(planted);
  fs::rename(root.path(), away);
  fs::create_directory_symlink(planted, root.path());
  EXPECT_EQ(client.ask("log written after the swap"), "ok");
  EXPECT_TRUE(eventually([&] {
    return testsupport::readFile(away / "var/log/system.log").find("after the swap") !=
           std::string::npos;
  }));
  EXPECT_EQ(connectResult().outcome, Outcome::Refused) << "a link is not a root";
  EXPECT_TRUE(fs::is_empty(planted));
  fs::remove(root.path());
  fs::rename(away, root.path());
}

TEST_F(Root, ARootThatOthersCanWriteIsRefusedBeforeADaemonIsStarted) {
  fs::create_directories(root.path());
  ::chmod(root.path().c_str(), 0777);
  EXPECT_EQ(refusal().code(), ServiceErrorCode::NotPermitted);
  EXPECT_TRUE(fs::is_empty(root.path()));
  EXPECT_EQ(connectResult().outcome, Outcome::Refused);
}

TEST_F(Root, AServicesEndpointIsForItsOwnerAlone) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  for (const auto& endpoint : {root.endpoint(kEchoLabel), root.controlEndpoint()}) {
    struct stat status {};
    ASSERT_EQ(::lstat(endpoint.c_str(), &status), 0) << endpoint;
    EXPECT_TRUE(S_ISSOCK(status.st_mode)) << endpoint;
    EXPECT_EQ(status.st_mode & 07777U, 0600U) << endpoint;
    EXPECT_EQ(status.st_uid, ::geteuid()) << endpoint;
  }
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser can act as another user";
  ::chmod(temporary.path().c_str(), 0755);
  EXPECT_EQ(testsupport::asUser(testsupport::kOtherUser,
                                [&] {
                                  const auto result = connectResult();
                                  return std::to_string(static_cast<int>(result.outcome)) + " " +
                                         result.reason;
                                }),
            std::to_string(static_cast<int>(Outcome::Refused)) +
                " the endpoint cannot be used: Permission denied");
}

TEST_F(Root, NoDaemonIsStartedForTheSystemsOwn) {
  std::filesystem::create_directories(root.path());
  platform::SystemRoot::setSystemForTests(root.path());
  try {
    platform::JobDaemon(root).ensureRunning();
    ADD_FAILURE() << "served";
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), ServiceErrorCode::DaemonUnavailable);
  }
  platform::SystemRoot::setSystemForTests({});
}

TEST_F(Root, DamagedJobFilesAreLeftOutAndNoted) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process first = daemonProcess();
  first.signal(SIGTERM);
  ASSERT_TRUE(first.hasGone());
  const auto good = testsupport::readFile(root.jobFile(kEchoLabel));
  testsupport::writeFile(root.jobFile("com.garbage"), "garbage");
  testsupport::writeFile(root.jobFile("com.empty"), "");
  testsupport::writeFile(root.jobFile("com.renamed"), good);
  testsupport::writeFile(root.jobFile("com.large"),
                         std::string(platform::kMaximumControlBytes, ' '));
  fs::create_symlink(root.jobFile(kEchoLabel), root.jobFile("com.link"));
  ASSERT_EQ(::mkfifo(root.jobFile("com.pipe").c_str(), 0600), 0);
  fs::create_directories(root.jobFile("com.directory"));
  testsupport::writeFile(root.jobFile("com.quillmar.echo").parent_path() / "bad name.plist", good);
  const auto thief = platform::encodeJobFile({"com.thief", {"/x"}, {kEchoLabel}});
  testsupport::writeFile(root.jobFile("com.thief"),
                         {reinterpret_cast<const char*>(thief.data()), thief.size()});

  EXPECT_EQ(connect().ask("echo served"), "served");
  const auto status = daemon().status();
  ASSERT_TRUE(status);
  for (const char* label : {"com.garbage", "com.empty", "com.renamed", "com.large", "com.link",
                            "com.pipe", "com.directory"}) {
    EXPECT_THAT(log(), HasSubstr(std::string("skipping the job ") + label + ": "));
    EXPECT_EQ(platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, platform::str(label)),
              nullptr)
        << label;
  }
  EXPECT_THAT(log(), HasSubstr("skipping the job com.thief: its job file cannot be used: the "
                               "service com.quillmar.echo is not its own"));
  EXPECT_TRUE(remove("com.garbage").succeeded()) << "an unusable job can still be removed";
  EXPECT_FALSE(fs::exists(root.jobFile("com.garbage")));
}

TEST_F(Root, ANameBelongsToTheJobThatIsCalledSoWhateverIsLoadedFirst) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process first = daemonProcess();
  first.signal(SIGTERM);
  ASSERT_TRUE(first.hasGone());
  const auto early =
      platform::encodeJobFile({"com.quillmar", {"/x"}, {"com.quillmar", kEchoLabel}});
  testsupport::writeFile(root.jobFile("com.quillmar"),
                         {reinterpret_cast<const char*>(early.data()), early.size()});
  EXPECT_EQ(connect().ask("echo mine"), "mine");
  EXPECT_THAT(log(), HasSubstr("skipping the job com.quillmar: the service com.quillmar.echo "
                               "belongs to the job com.quillmar.echo"));
  EXPECT_EQ(job("com.quillmar").label, "");
}

TEST_F(Root, AJobOfAnUnservedServiceIsUnknown) {
  // A job file put there by hand while the daemon runs: no process listens for it.
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const auto file = platform::encodeJobFile({"com.byhand", {"/x"}, {"com.byhand"}});
  testsupport::writeFile(root.jobFile("com.byhand"),
                         {reinterpret_cast<const char*>(file.data()), file.size()});
  const auto result = connectResult("com.byhand");
  EXPECT_EQ(result.outcome, Outcome::UnknownName);
  EXPECT_THAT(result.reason, HasSubstr("is not listening for it"));
}

TEST_F(Root, AJobThatNamesAnotherProgramThanIsRunIsNoJob) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process first = daemonProcess();
  first.signal(SIGTERM);
  ASSERT_TRUE(first.hasGone());
  const fs::path other = temporary.path() / "other";
  fs::copy_file(root.helperTool(kEchoLabel), other);
  for (const fs::path& named : {other, fs::path("/nowhere/at/all")}) {
    const auto file = platform::encodeJobFile({kEchoLabel, {named.string()}, {kEchoLabel}});
    testsupport::writeFile(root.jobFile(kEchoLabel),
                           {reinterpret_cast<const char*>(file.data()), file.size()});
    EXPECT_EQ(
        platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, platform::str(kEchoLabel)),
        nullptr)
        << named;
    EXPECT_EQ(connectResult().outcome, Outcome::UnknownName) << named;
    EXPECT_THAT(log(), HasSubstr("skipping the job com.quillmar.echo: it names the "
                                 "program " +
                                 named.string() + ", which is not the helper that is run for it"));
    const Process daemon = daemonProcess();
    daemon.signal(SIGTERM);
    ASSERT_TRUE(daemon.hasGone());
  }
  ASSERT_TRUE(bless(echoImage()).succeeded()) << "installing it again repairs it";
  EXPECT_EQ(connect().ask("echo x"), "x");
}

TEST_F(Root, AJobWhoseProgramBecameAnotherIsNotStarted) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const fs::path away = temporary.path() / "away";
  fs::rename(root.path(), away);
  testsupport::writeFile(root.helperTool(kEchoLabel), "what an application would read");
  const platform::SystemRoot moved(away);
  const FileDescriptor client(
      platform::connectUnixSocket(moved.endpoint(kEchoLabel).string(), SOCK_STREAM));
  ASSERT_TRUE(client);
  const platform::JobDaemon daemon(moved);
  std::string end;
  EXPECT_TRUE(eventually([&] {
    const auto status = daemon.status();
    if (status && !status->jobs.empty()) end = status->jobs.front().lastEnd;
    return !end.empty();
  }));
  EXPECT_THAT(end, HasSubstr("could not be started: it names the program " +
                             root.helperTool(kEchoLabel).string()));
  EXPECT_THAT(testsupport::readFile(moved.systemLog()),
              HasSubstr("cannot start com.quillmar.echo: it names the program"));
  fs::remove_all(root.path());
  fs::rename(away, root.path());
}

TEST_F(Root, DirectoriesThatAreLinksAreNotUsed) {
  fs::create_directories(temporary.path() / "elsewhere");
  fs::create_directories(root.path() / "Library");
  fs::create_symlink(temporary.path() / "elsewhere", root.path() / "Library/PrivilegedHelperTools");
  EXPECT_THAT(refusal().what(), HasSubstr("PrivilegedHelperTools"));
  EXPECT_TRUE(fs::is_empty(temporary.path() / "elsewhere"));
}

TEST_F(Root, ADeletedRootEndsItsDaemonAndItsJobs) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  const Process helper = client.process();
  const Process process = daemonProcess();
  // The daemon may still write to its log while that is being deleted, so one attempt may not be
  // enough.
  ASSERT_TRUE(eventually([&] {
    std::error_code ignored;
    fs::remove_all(root.path(), ignored);
    return !fs::exists(root.path());
  }));
  EXPECT_TRUE(process.hasGone());
  EXPECT_TRUE(helper.hasGone());
}

TEST_F(Root, StagingFilesOfACrashAreCleared) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process first = daemonProcess();
  first.signal(SIGKILL);
  ASSERT_TRUE(first.hasGone());
  const auto stray =
      root.helperTool(kEchoLabel).parent_path() / (std::string(".staging.") + kEchoLabel);
  testsupport::writeFile(stray, "half");
  EXPECT_EQ(connect().ask("echo x"), "x");
  EXPECT_FALSE(fs::exists(stray));
}

TEST_F(Root, AnEndpointOfSomebodyElseIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can act as two users";
  fs::create_directories(root.path() / "var/run");
  ::chmod(temporary.path().c_str(), 0755);
  ::chmod((root.path() / "var/run").c_str(), 0777);
  std::array<int, 2> ready{};
  ASSERT_EQ(::pipe(ready.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(12345) != 0) ::_exit(1);
    const FileDescriptor listener(
        platform::listenUnixSocket(root.endpoint(kEchoLabel).string(), SOCK_STREAM, 8, 0666));
    const char said = listener ? 'y' : 'n';
    if (::write(ready[1], &said, 1) != 1) ::_exit(2);
    ::pause();
  }
  char said = 0;
  ASSERT_EQ(::read(ready[0], &said, 1), 1);
  EXPECT_EQ(said, 'y');
  EXPECT_EQ(connectResult().outcome, Outcome::Refused);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
}

}  // namespace
