// SPDX-License-Identifier: Apache-2.0

// A job from installation to removal, with real processes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/fanotify.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "platform/foundation/NSArray.h"
#include "platform/services/UnixSocket.h"
#include "tests/integration/jobd/SuiteFixture.h"

namespace {

using namespace jobdtest;
using platform::ServiceErrorCode;
using testing::HasSubstr;
using Outcome = platform::ServiceConnectResult::Outcome;
namespace fs = std::filesystem;

class JobLife : public JobdSuite {};

platform::AuthorizationRef authorization() {
  const platform::AuthorizationItem item{"com.apple.ServiceManagement.blesshelper", 0, nullptr, 0};
  const platform::AuthorizationRights rights{1, &item};
  platform::AuthorizationRef reference = nullptr;
  EXPECT_EQ(platform::AuthorizationCreate(&rights, nullptr, 19, &reference), 0);
  return reference;
}

TEST_F(JobLife, BlessConnectRemoveAsAnApplicationDoes) {
  const auto label = platform::str(kEchoLabel);
  EXPECT_EQ(platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, label), nullptr);
  std::shared_ptr<platform::NSError> error;
  ASSERT_TRUE(
      platform::SMJobBless(platform::kSMDomainSystemLaunchd, label, authorization(), &error))
      << platform::descriptionOf(error);
  EXPECT_EQ(error, nullptr);

  const auto job = platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, label);
  ASSERT_TRUE(job);
  const auto arguments =
      platform::objectCast<platform::NSArray>(job->objectForKey("ProgramArguments"));
  ASSERT_TRUE(arguments);
  EXPECT_EQ(arguments->objectAtIndex(0)->description(), root.helperTool(kEchoLabel).string());
  EXPECT_EQ(this->job().processIdentifier, 0) << "nothing is started before the first connection";

  Client client = connect();
  EXPECT_EQ(client.ask("echo hello"), "hello");
  const Process helper = client.process();
  ASSERT_TRUE(
      platform::SMJobRemove(platform::kSMDomainSystemLaunchd, label, authorization(), true, &error))
      << platform::descriptionOf(error);
  EXPECT_FALSE(helper.isThere()) << "the reply came before the process had ended";
  EXPECT_EQ(client.receive(), "bye");
  EXPECT_EQ(client.receive(), "end of stream");
  EXPECT_EQ(platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, label), nullptr);
  EXPECT_FALSE(fs::exists(root.helperTool(kEchoLabel)));
  EXPECT_FALSE(fs::exists(root.endpoint(kEchoLabel)));
  EXPECT_EQ(connectResult().outcome, Outcome::UnknownName);

  EXPECT_FALSE(platform::SMJobRemove(platform::kSMDomainSystemLaunchd, label, authorization(), true,
                                     &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NoSuchJob));
}

TEST_F(JobLife, OneAuthorizationChangesOneJob) {
  for (const std::string label : {"com.one", "com.two", "com.three"})
    ASSERT_TRUE(bless(image({label, "1.0", ECHO_HELPER, {}}), label).succeeded());
  const auto reference = authorization();
  std::shared_ptr<platform::NSError> error;
  const auto removes = [&](std::string_view label) {
    return platform::SMJobRemove(platform::kSMDomainSystemLaunchd, platform::str(label), reference,
                                 true, &error);
  };
  EXPECT_TRUE(removes("com.one")) << platform::descriptionOf(error);
  for (const char* label : {"com.two", "com.three", "com.one"}) {
    EXPECT_FALSE(removes(label));
    ASSERT_TRUE(error);
    EXPECT_NE(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NoSuchJob));
  }
  EXPECT_TRUE(fs::exists(root.helperTool("com.two")));
  EXPECT_TRUE(fs::exists(root.helperTool("com.three")));
}

TEST_F(JobLife, OneAuthorizationIsEnoughToReplaceAJobButNotTwice) {
  const auto label = platform::str(kEchoLabel);
  std::shared_ptr<platform::NSError> error;
  const auto reference = authorization();
  const auto blesses = [&] {
    return platform::SMJobBless(platform::kSMDomainSystemLaunchd, label, reference, &error);
  };
  EXPECT_FALSE(
      platform::SMJobRemove(platform::kSMDomainSystemLaunchd, label, reference, true, &error));
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NoSuchJob));
  EXPECT_TRUE(blesses()) << "a removal that failed does not prevent the bless after it";
  EXPECT_FALSE(blesses());
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::NotPermitted));
  EXPECT_EQ(connect().ask("echo in place"), "in place");
}

TEST_F(JobLife, AuthorizationsThatAreNotUsedUpHoldNoConnections) {
  const auto label = platform::str(kEchoLabel);
  const auto count = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = count();
  for (int i = 0; i < 30; ++i)
    EXPECT_FALSE(platform::SMJobRemove(platform::kSMDomainSystemLaunchd, label, authorization(),
                                       true, nullptr));
  EXPECT_LE(count(), before + 4);
}

TEST_F(JobLife, AnAuthorizationWhoseDaemonHungUpHoldsNoConnection) {
  const auto count = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  static_cast<void>(authorization());
  const auto before = count();
  EXPECT_FALSE(platform::SMJobRemove(platform::kSMDomainSystemLaunchd, platform::str(kEchoLabel),
                                     authorization(), true, nullptr));
  EXPECT_EQ(count(), before + 1) << "for the bless that may follow";
  {
    const Process process = daemonProcess();
    process.signal(SIGTERM);
    ASSERT_TRUE(process.hasGone());
  }
  static_cast<void>(authorization());
  EXPECT_EQ(count(), before);
}

TEST_F(JobLife, WrongArgumentsAreAnsweredWithoutAskingAnybody) {
  std::shared_ptr<platform::NSError> error;
  EXPECT_FALSE(platform::SMJobBless("kSMDomainUserLaunchd", platform::str(kEchoLabel),
                                    authorization(), &error));
  EXPECT_EQ(error->code(), static_cast<std::int64_t>(ServiceErrorCode::InvalidArgument));
  EXPECT_FALSE(
      platform::SMJobBless(platform::kSMDomainSystemLaunchd, nullptr, authorization(), &error));
  EXPECT_FALSE(platform::SMJobBless(platform::kSMDomainSystemLaunchd, platform::str("../x"),
                                    authorization(), &error));
  EXPECT_FALSE(platform::SMJobBless(platform::kSMDomainSystemLaunchd,
                                    platform::str("com.not.in.bundle"), authorization(), &error));
  EXPECT_THAT(error->description(), HasSubstr("Contents/Library/LaunchServices/com.not.in.bundle"));
  EXPECT_EQ(platform::SMJobCopyDictionary("elsewhere", platform::str(kEchoLabel)), nullptr);
  EXPECT_EQ(platform::SMJobCopyDictionary(platform::kSMDomainSystemLaunchd, nullptr), nullptr);
  EXPECT_FALSE(daemon().status()) << "a daemon was started needlessly";
}

TEST_F(JobLife, TheHelperGetsItsSocketsAndNothingElse) {
  // What the application has open, even without close-on-exec, must not reach the daemon or the
  // helper.
  const platform::FileDescriptor secret(::open("/etc/passwd", O_RDONLY));
  ::setenv("WLHID_TEST_SECRET", "1", 1);
  ASSERT_TRUE(
      bless(image({kEchoLabel, "1.0", ECHO_HELPER, {kEchoLabel, "com.quillmar.echo.second"}}))
          .succeeded());
  Client client = connect();
  EXPECT_THAT(
      client.ask("fds"),
      testing::MatchesRegex("0=/dev/null 1=pipe:.[0-9]+. 2=pipe:.[0-9]+. 3=socket:.[0-9]+. "
                            "4=socket:.[0-9]+. 5=" +
                            root.path().string() + " 6=anon_inode:.signalfd. 7=socket:.[0-9]+."));
  EXPECT_THAT(client.ask("env"),
              testing::MatchesRegex("PATH=[^|]*.LISTEN_FDS=3.LISTEN_FDNAMES=com.quillmar.echo:com."
                                    "quillmar.echo.second:.root.LISTEN_PID=[0-9]+.?"));
  EXPECT_THAT(client.ask("exe"), testing::StartsWith("/memfd:com.quillmar.echo"));
  const std::string itself = "/proc/" + std::to_string(client.process().identifier());
  EXPECT_EQ(testsupport::readFile(itself + "/cmdline"),
            root.helperTool(kEchoLabel).string() + std::string(1, '\0'));
  Client second = connect("com.quillmar.echo.second");
  EXPECT_EQ(second.ask("service"), "com.quillmar.echo.second");
  EXPECT_EQ(client.ask("service"), kEchoLabel);
  EXPECT_EQ(second.process().identifier(), client.process().identifier());

  const fs::path open = "/proc/" + std::to_string(daemonProcess().identifier()) + "/fd";
  for (const auto& entry : fs::directory_iterator(open)) {
    std::error_code ignored;
    EXPECT_NE(fs::read_symlink(entry.path(), ignored), "/etc/passwd");
  }
  ::unsetenv("WLHID_TEST_SECRET");
}

TEST_F(JobLife, TheHelperLeavesNoCoreAndGainsNoRights) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  EXPECT_EQ(connect().ask("limits"), "core 0 of 0, no_new_privs 1");
}

TEST_F(JobLife, ASparseHelperCostsTheDaemonNoMemory) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const auto peakKilobytes = [&] {
    const auto status =
        testsupport::readFile("/proc/" + std::to_string(daemonProcess().identifier()) + "/status");
    const auto peak = status.find("VmHWM:");
    return peak == std::string::npos ? 0UL : std::stoul(status.substr(peak + 6));
  };
  const auto before = peakKilobytes();
  ASSERT_GT(before, 0U);
  const auto image = echoImage("2.0");
  fs::resize_file(image, 60U << 20);  // a sparse file: all but its beginning is a hole
  ASSERT_TRUE(bless(image).succeeded());
  EXPECT_EQ(connect().ask("echo runs"), "runs");
  EXPECT_LT(peakKilobytes(), before + 20U * 1024);
  fs::resize_file(image, 65U << 20);
  const auto tooLarge = bless(image);
  EXPECT_EQ(tooLarge.code, ServiceErrorCode::FileSystem);
  EXPECT_EQ(tooLarge.message, "the helper is larger than 67108864 bytes");
}

TEST_F(JobLife, AHelperWhoseReadIsNeverAnsweredHoldsUpNobody) {
  // A guard that answers no read of the image, like an unresponsive file system; only the superuser
  // may set one up.
  const auto image = echoImage("6.6");
  const platform::FileDescriptor guard(
      ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_LARGEFILE));
  ASSERT_TRUE(bless(echoImage()).succeeded());
  if (!guard ||
      ::fanotify_mark(guard.get(), FAN_MARK_ADD, FAN_ACCESS_PERM, AT_FDCWD, image.c_str()) != 0)
    GTEST_SKIP() << "needs the superuser";
  std::thread hung([&] { EXPECT_FALSE(bless(image).succeeded()); });
  pollfd asked{guard.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&asked, 1, kTimeoutMilliseconds), 1);
  EXPECT_EQ(connect().ask("echo served"), "served");
  EXPECT_TRUE(daemon().status());
  const std::string other = "com.quillmar.other";
  EXPECT_TRUE(bless(this->image({other, "1.0", ECHO_HELPER, {}}), other).succeeded());
  const Process process = daemonProcess();
  process.signal(SIGTERM);
  EXPECT_TRUE(process.hasGone());
  hung.join();
}

TEST_F(JobLife, InstallationsOfOneJobTakeTurns) {
  const auto one = echoImage("1.0");
  const auto two = echoImage("2.0");
  std::vector<std::thread> installers;
  for (int i = 0; i < 4; ++i) {
    installers.emplace_back([&, i] {
      const auto reply = bless(i % 2 == 0 ? one : two);
      EXPECT_TRUE(reply.succeeded()) << reply.message;
    });
  }
  for (auto& each : installers) each.join();
  EXPECT_EQ(connect().ask("echo whole"), "whole");
}

TEST_F(JobLife, NoChildStaysWithTheApplication) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(JobLife, WhatEndsIsStartedAgainByTheNextConnection) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client first = connect();
  const Process before = first.process();
  first.send("abort");
  EXPECT_EQ(first.receive(), "end of stream");
  EXPECT_TRUE(before.hasGone());
  Client second = connect();
  EXPECT_EQ(second.ask("echo again"), "again");
  EXPECT_NE(second.process().identifier(), before.identifier());
  EXPECT_EQ(job().starts, 2);
  EXPECT_EQ(job().lastEnd, "ended by signal 9");
}

TEST_F(JobLife, AJobThatKeepsCrashingIsHeldBackAndItsClientsWait) {
  ASSERT_TRUE(bless(image({kEchoLabel, "1.0", CRASH_HELPER, {}})).succeeded());
  Client waiting = connect();
  waiting.send("echo at last");
  ASSERT_TRUE(eventually([&] { return job().starts >= 3 && job().heldBackMilliseconds > 0; }));
  const auto held = job();
  if (held.starts <= 25) {
    EXPECT_LE(held.heldBackMilliseconds, 40);
  }
  EXPECT_EQ(held.lastEnd, "exited with status 3");
  EXPECT_THAT(log(), HasSubstr("]: no device, giving up\n"));

  // A better version serves the client that has been waiting all the time.
  ASSERT_TRUE(bless(echoImage("1.1")).succeeded());
  EXPECT_EQ(waiting.receive(), "at last");
}

TEST_F(JobLife, AReplacedJobIsTreatedLenientlyAgain) {
  ASSERT_TRUE(bless(image({kEchoLabel, "1.0", CRASH_HELPER, {}})).succeeded());
  const Client waiting = connect();
  ASSERT_TRUE(eventually([&] { return job().heldBackMilliseconds > 100; }));
  ASSERT_TRUE(bless(image({kEchoLabel, "1.1", CRASH_HELPER, {}})).succeeded());
  const auto starts = job().starts;
  std::int64_t longest = 0;
  ASSERT_TRUE(eventually([&] {
    const auto now = job();
    if (now.starts <= starts + 20) longest = std::max(longest, now.heldBackMilliseconds);
    return now.starts >= starts + 3;
  }));
  EXPECT_LE(longest, 40);  // the lenient delay, or what was left of it
}

TEST_F(JobLife, AnExecutableThatWentMissingIsACrashToo) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  fs::remove(root.helperTool(kEchoLabel));
  const Client waiting = connect();
  ASSERT_TRUE(eventually([&] { return job().starts >= 2; }));
  EXPECT_THAT(log(), HasSubstr("cannot start com.quillmar.echo: its executable is missing\n"));
  testsupport::writeFile(root.helperTool(kEchoLabel), "no image");
  ASSERT_TRUE(
      eventually([&] { return log().find("no section __ELF,__program") != std::string::npos; }));
  ASSERT_TRUE(bless(echoImage()).succeeded());
  // Not the waiting client: a start in progress may have met the new program and then ended with
  // the old job.
  Client next = connect();
  EXPECT_EQ(next.ask("echo here"), "here");
}

TEST_F(JobLife, ANewVersionReplacesTheRunningOne) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  Client old = connect();
  const Process oldProcess = old.process();
  const auto newImage =
      image({kEchoLabel, "2.0", ECHO_HELPER, {"com.quillmar.echo.second", kEchoLabel}});
  ASSERT_TRUE(bless(newImage).succeeded());
  EXPECT_FALSE(oldProcess.isThere());
  EXPECT_EQ(old.receive(), "bye");
  EXPECT_EQ(testsupport::readFile(root.helperTool(kEchoLabel)), testsupport::readFile(newImage));
  EXPECT_EQ(connect().ask("echo new"), "new");
  EXPECT_EQ(connect("com.quillmar.echo.second").ask("service"), "com.quillmar.echo.second");

  ASSERT_TRUE(bless(echoImage("3.0")).succeeded());
  EXPECT_FALSE(fs::exists(root.endpoint("com.quillmar.echo.second")))
      << "an endpoint that is no longer offered";
  EXPECT_EQ(connectResult("com.quillmar.echo.second").outcome, Outcome::UnknownName);
}

TEST_F(JobLife, AHelperThatDoesNotListenToReasonIsKilled) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  const Process helper = client.process();
  client.ask("deaf");
  ASSERT_TRUE(remove().succeeded());
  EXPECT_FALSE(helper.isThere());
  EXPECT_EQ(client.receive(), "end of stream") << "killed without a farewell";
}

TEST_F(JobLife, RemovalNeedNotWait) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  const Process helper = client.process();
  client.ask("deaf");
  ASSERT_TRUE(remove(kEchoLabel, false).succeeded());
  EXPECT_TRUE(helper.isThere());
  const auto busy = bless(echoImage());
  EXPECT_EQ(busy.code, ServiceErrorCode::Busy) << "two of them would run at once";
  EXPECT_EQ(busy.message, "com.quillmar.echo is being removed; try again");
  EXPECT_THAT(log(), HasSubstr("]: removed com.quillmar.echo\n"));
  EXPECT_TRUE(helper.hasGone());
  ASSERT_TRUE(eventually([&] { return bless(echoImage()).succeeded(); }));
}

TEST_F(JobLife, FilesThatAreNotHelpersAreRefusedAndChangeNothing) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  Client client = connect();
  const std::string installed = testsupport::readFile(root.helperTool(kEchoLabel));
  EXPECT_EQ(bless(ECHO_HELPER).code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(bless("/dev/null").code, ServiceErrorCode::FileSystem);
  EXPECT_EQ(bless(temporary.path()).code, ServiceErrorCode::FileSystem);
  EXPECT_EQ(bless(image({"com.other", "1.0", ECHO_HELPER, {}})).code,
            ServiceErrorCode::InvalidImage);
  EXPECT_EQ(testsupport::readFile(root.helperTool(kEchoLabel)), installed);
  EXPECT_EQ(client.ask("echo undisturbed"), "undisturbed");
  EXPECT_FALSE(fs::exists(root.jobFile("com.other")));
}

TEST_F(JobLife, AForeignHelperGetsNeitherNameNorSocketOfAnother) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  Client client = connect();
  const auto other = bless(image({"com.other", "1.0", ECHO_HELPER, {kEchoLabel}}), "com.other");
  EXPECT_EQ(other.code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(other.message,
            "the helper's job cannot be used: the service com.quillmar.echo is not its own: it may "
            "offer com.other and names below that");
  // A label that is a prefix of the other's may offer its name, but that is held already.
  const auto above = bless(
      image({"com.quillmar", "1.0", ECHO_HELPER, {"com.quillmar", kEchoLabel}}), "com.quillmar");
  EXPECT_EQ(above.code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(above.message, "the service com.quillmar.echo belongs to the job com.quillmar.echo");
  EXPECT_FALSE(fs::exists(root.jobFile("com.other")));
  EXPECT_FALSE(fs::exists(root.jobFile("com.quillmar")));
  EXPECT_EQ(client.ask("echo undisturbed"), "undisturbed");
  EXPECT_EQ(connect().ask("pid"), client.ask("pid"));
}

TEST_F(JobLife, ANameThatAnotherJobOffersIsNoLabel) {
  const std::string below = "com.quillmar.echo.below";
  ASSERT_TRUE(bless(image({kEchoLabel, "1.0", ECHO_HELPER, {kEchoLabel, below}})).succeeded());
  Client client = connect(below);
  const auto refused = bless(image({below, "1.0", ECHO_HELPER, {below + ".further"}}), below);
  EXPECT_EQ(refused.code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(refused.message,
            "the service com.quillmar.echo.below belongs to the job "
            "com.quillmar.echo");
  EXPECT_EQ(client.ask("service"), below);
  // Once it is no longer offered, it is free.
  ASSERT_TRUE(bless(echoImage("1.1")).succeeded());
  EXPECT_TRUE(bless(image({below, "1.0", ECHO_HELPER, {}}), below).succeeded());
  const auto back = bless(image({kEchoLabel, "1.2", ECHO_HELPER, {kEchoLabel, below}}));
  EXPECT_EQ(back.code, ServiceErrorCode::InvalidImage) << "its old name now belongs to another";
}

TEST_F(JobLife, ASocketThatSomebodyListensOnIsNotReplaced) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  const std::string taken = "com.quillmar.echo.taken";
  const std::string installed = testsupport::readFile(root.helperTool(kEchoLabel));
  platform::FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint(taken).string(), SOCK_STREAM, 8, 0600));
  ASSERT_TRUE(listener);
  Client client = connect();
  const auto image2 = image({kEchoLabel, "2.0", ECHO_HELPER, {kEchoLabel, taken}});
  const auto refused = bless(image2);
  EXPECT_EQ(refused.code, ServiceErrorCode::Busy);
  EXPECT_EQ(refused.message, "process " + std::to_string(::getpid()) +
                                 " listens on the service com.quillmar.echo.taken; end it first");
  EXPECT_EQ(testsupport::readFile(root.helperTool(kEchoLabel)), installed);
  EXPECT_EQ(client.ask("echo undisturbed"), "undisturbed");
  listener.reset();
  EXPECT_TRUE(bless(image2).succeeded()) << "a dead socket is replaced";
  EXPECT_EQ(connect(taken).ask("service"), taken);
}

TEST_F(JobLife, AnUpdateThatCannotListenLeavesTheOldEndpointsOpen) {
  ASSERT_TRUE(bless(echoImage("1.0")).succeeded());
  const std::string blocked = "com.quillmar.echo.blocked";
  fs::create_directories(root.endpoint(blocked) / "not empty");
  EXPECT_FALSE(bless(image({kEchoLabel, "2.0", ECHO_HELPER, {blocked, kEchoLabel}})).succeeded());
  EXPECT_EQ(connect().ask("echo still there"), "still there");
}

TEST_F(JobLife, WhatTheHelperWritesIsLoggedOneLineAnEntry) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  EXPECT_EQ(client.ask("log plain words"), "ok");
  EXPECT_EQ(client.ask("log \x1b[2Jred\rherring \xFF"), "ok");
  const std::string pid = client.ask("pid");
  client.send("abort");
  ASSERT_TRUE(eventually([&] { return log().find("ended by signal 9") != std::string::npos; }));
  std::istringstream lines(log());
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, testing::MatchesRegex(
                          "[A-Z][a-z][a-z] [ 0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] [^ ]+ "
                          "(com\\.quillmar\\.echo|wlhid-jobd)\\[[0-9]+\\]: .*"));
  }
  EXPECT_THAT(log(), HasSubstr(" com.quillmar.echo[" + pid + "]: plain words\n"));
  EXPECT_THAT(log(), HasSubstr(" com.quillmar.echo[" + pid + "]: \\x1b[2Jred\\x0dherring \\xff\n"));
  EXPECT_THAT(log(), HasSubstr("]: com.quillmar.echo[" + pid + "] ended by signal 9\n"));
}

TEST_F(JobLife, AFloodOfOutputPushesNothingOutOfTheLog) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  EXPECT_EQ(client.ask("flood 200000"), "ok");
  ASSERT_TRUE(eventually([&] {
    return log().find(" lines of com.quillmar.echo were left out: ") != std::string::npos;
  }));
  EXPECT_LT(log().size(), 1U << 20);
  EXPECT_FALSE(fs::exists(root.systemLog().string() + ".0"));
  EXPECT_THAT(log(), HasSubstr("]: installed com.quillmar.echo\n"));
  EXPECT_THAT(log(), HasSubstr("line 0 of a flood\n"));
}

TEST_F(JobLife, AKilledDaemonTakesItsJobsAlongAndIsReplaced) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  const Process helper = client.process();
  const Process first = daemonProcess();
  first.signal(SIGKILL);
  EXPECT_TRUE(first.hasGone());
  EXPECT_TRUE(helper.hasGone());
  EXPECT_EQ(client.receive(), "end of stream");
  // The endpoint's file still exists, but no process listens on it.
  EXPECT_TRUE(fs::exists(root.endpoint(kEchoLabel)));
  Client again = connect();
  EXPECT_EQ(again.ask("echo back"), "back");
  EXPECT_NE(daemonProcess().identifier(), first.identifier());
}

TEST_F(JobLife, ADaemonThatIsToldToEndsItsJobsInGoodOrder) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  Client client = connect();
  const Process helper = client.process();
  const Process process = daemonProcess();
  process.signal(SIGTERM);
  EXPECT_EQ(client.receive(), "bye");
  EXPECT_TRUE(process.hasGone());
  EXPECT_FALSE(helper.isThere());
  EXPECT_FALSE(daemon().status());
  EXPECT_EQ(connect().ask("echo still installed"), "still installed");
}

TEST_F(JobLife, WithoutJobsTheDaemonEndsByItself) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  const Process process = daemonProcess();
  ASSERT_TRUE(remove().succeeded());
  EXPECT_TRUE(process.hasGone());
  EXPECT_FALSE(fs::exists(root.controlEndpoint()));
  ASSERT_TRUE(bless(echoImage()).succeeded()) << "another daemon is started when it is needed";
}

TEST_F(JobLife, ManyClientsAreServedByOneProcess) {
  ASSERT_TRUE(bless(echoImage()).succeeded());
  std::vector<Client> clients;
  for (int i = 0; i < 50; ++i) clients.push_back(connect());
  for (std::size_t i = 0; i < clients.size(); ++i)
    EXPECT_EQ(clients[i].ask("echo " + std::to_string(i)), std::to_string(i));
  EXPECT_EQ(job().starts, 1);
}

class DeepRoot : public JobdSuite {
 protected:
  DeepRoot() : JobdSuite(deepPath()) {}
  static std::string deepPath() {
    std::string path;
    for (int i = 0; i < 12; ++i) path += "a-directory-with-quite-a-long-name/";
    return path + "root";
  }
};

TEST_F(DeepRoot, NoPathIsTooLongForASocket) {
  ASSERT_GT(root.endpoint(kEchoLabel).string().size(), 107U);
  ASSERT_TRUE(bless(echoImage()).succeeded());
  EXPECT_EQ(connect().ask("echo deep"), "deep");
  const std::string longLabel = "com." + std::string(190, 'x');
  ASSERT_TRUE(bless(image({longLabel, "1.0", ECHO_HELPER, {}}), longLabel).succeeded());
  EXPECT_EQ(connect(longLabel).ask("service"), longLabel);
  ASSERT_TRUE(remove(longLabel).succeeded());
  ASSERT_TRUE(remove().succeeded());
}

}  // namespace
