// SPDX-License-Identifier: Apache-2.0

// The system's own job daemon: whom it asks, what it refuses whatever the answer, and what it does
// to the router that is running.
#include "jobd/SystemDaemon.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <filesystem>
#include <optional>
#include <thread>

#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/HelperImages.h"
#include "tests/support/OtherUser.h"
#include "tests/support/SystemRootTest.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using jobd::Decision;
using jobd::Question;
using jobd::Right;
using platform::ChangePurpose;
using platform::ControlReply;
using platform::ControlRequest;
using platform::FileDescriptor;
using platform::ServiceError;
using platform::ServiceErrorCode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Operation = ControlRequest::Operation;
namespace fs = std::filesystem;

const std::string kLabel(platform::kSystemJobLabel);
constexpr std::chrono::milliseconds kLong{600'000};
constexpr std::chrono::milliseconds kLater{50};  // many times the shortest idle time of these tests

class SystemDaemonTest : public testsupport::SystemRootTest {
 protected:
  ~SystemDaemonTest() override { end(); }

  /// Runs a daemon until end() or until it has been idle for so long.
  void serve(std::chrono::milliseconds idleTime = kLong) {
    thread_ = std::thread([this, idleTime] {
      jobd::EventLoop loop;
      const auto stop = loop.watch(stop_.get(), EPOLLIN, [&] { loop.stop(); });
      jobd::EventLoop::Token later;
      const auto asked = loop.watch(askedLater_.get(), EPOLLIN, [&] {
        eventfd_t count = 0;
        ::eventfd_read(askedLater_.get(), &count);
        later = loop.after(kLater, [&] { ::eventfd_write(runsLater_.get(), 1); });
      });
      const jobd::SystemDaemon daemon(loop, root_, jobd::RootDirectories::openSystem(root_),
                                      FileDescriptor(::dup(listening_.get())), seams(), idleTime);
      loop.run();
    });
  }
  /// Whether the daemon has not ended by itself a good while from now, by its own clock.
  [[nodiscard]] bool runsLater() const {
    ::eventfd_write(askedLater_.get(), 1);
    pollfd event{runsLater_.get(), POLLIN, 0};
    return ::poll(&event, 1, 10'000) == 1;
  }
  void end() {
    ::eventfd_write(stop_.get(), 1);
    if (thread_.joinable()) thread_.join();
  }

  jobd::SystemSeams seams() {
    jobd::SystemSeams seams;
    seams.authority = [this](const Question& question, const jobd::Decided& decided) {
      static constexpr std::array names{"install", "remove", "replace-newer", "grant"};
      asked_.push_back(names.at(static_cast<std::size_t>(question.right)) +
                       (question.prompt.empty() ? "" : ": " + question.prompt));
      if (meanwhile_) meanwhile_();
      decided({question.right == denied_ ? Decision::Kind::No : Decision::Kind::Yes, {}});
    };
    if (hasNoAuthority_) seams.authority = nullptr;
    seams.stopRouter = [this](const jobd::SystemSeams::Stopped& stopped) {
      ++stops_;
      stopped(stopProblem_);
    };
    if (router_) seams.askRouter = [this](const jobd::SystemSeams::Told& told) { told(*router_); };
    seams.trust = [this](std::span<const std::uint8_t>) {
      if (!isTrusted_) throw ServiceError(ServiceErrorCode::InvalidImage, "not signed");
    };
    return seams;
  }

  fs::path image(const testsupport::ImagePlan& plan) {
    return testsupport::makeImage(WLHID_MKIMAGE, plan,
                                  temporary_.path() / ("image" + std::to_string(images_++)));
  }
  fs::path router(const std::string& version) { return image({kLabel, version, "/bin/true", {}}); }
  /// A packaged router.
  void package(const std::string& version) {
    const fs::path layer = root_.path() / "usr/lib/wlhid";
    fs::create_directories(layer / "helpers");
    fs::copy_file(router(version), layer / "helpers" / kLabel);
    testsupport::writeFile(layer / "jobs" / (kLabel + ".plist"), "a job");
  }

  /// Asks for permission and then for the change; the first refusal counts.
  ControlReply change(ControlRequest request, int helper = -1, const std::string& prompt = "") try {
    ControlRequest authorize{Operation::Authorize, request.label};
    if (request.operation == Operation::Remove) authorize.purpose = ChangePurpose::Remove;
    authorize.prompt = prompt;
    return platform::JobDaemon(root_).authorize(authorize).ask(request, helper);
  } catch (const ServiceError& error) {
    return jobd::controlReply(error.code(), error.what());
  }
  ControlReply bless(const fs::path& path, const std::string& label = kLabel,
                     const std::string& prompt = "") {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return change({Operation::Bless, label}, file.get(), prompt);
  }
  ControlReply remove() { return change({Operation::Remove, kLabel}); }

  [[nodiscard]] platform::ControlConnection connection() const {
    return platform::ControlConnection(
        FileDescriptor(platform::connectUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM)),
        std::chrono::seconds(10));
  }
  [[nodiscard]] std::string blessed() const {
    return testsupport::readFile(root_.path() / "var/lib/wlhid/helpers" / kLabel);
  }
  [[nodiscard]] std::vector<platform::DeviceGrant> grants() const {
    return platform::readDeviceGrants(platform::openRoot(root_).get());
  }
  [[nodiscard]] bool isStagingEmpty() const {
    return fs::is_empty(root_.path() / "var/lib/wlhid/staging");
  }

  FileDescriptor stop_{::eventfd(0, EFD_CLOEXEC)};
  FileDescriptor askedLater_{::eventfd(0, EFD_CLOEXEC)};
  FileDescriptor runsLater_{::eventfd(0, EFD_CLOEXEC)};
  std::thread thread_;
  // Set before serve() and read after end().
  bool hasNoAuthority_ = false;
  bool isTrusted_ = true;
  std::optional<Right> denied_;
  std::function<void()> meanwhile_;  ///< while each question is open
  std::string stopProblem_;
  std::optional<jobd::RouterReport> router_;
  std::vector<std::string> asked_;
  int stops_ = 0;
  int images_ = 0;
};

TEST_F(SystemDaemonTest, InstallsAndRemovesWhatAnApplicationBrings) {
  serve();
  const auto path = router("1.0");
  const auto reply = bless(path, kLabel, "please");
  EXPECT_TRUE(reply.succeeded()) << reply.message;
  EXPECT_EQ(blessed(), testsupport::readFile(path));
  EXPECT_TRUE(isStagingEmpty());
  EXPECT_TRUE(remove().succeeded());
  EXPECT_EQ(blessed(), "");
  end();
  EXPECT_THAT(asked_, ElementsAre("install: please", "remove"));
  EXPECT_EQ(stops_, 2) << "what ran was ended";
}

TEST_F(SystemDaemonTest, TheRouterMayOfferItsControlServiceToo) {
  serve();
  const auto reply = bless(image({kLabel, "1.0", "/bin/true", {kLabel, kLabel + ".control"}}));
  EXPECT_TRUE(reply.succeeded()) << reply.message;
  EXPECT_EQ(bless(image({kLabel, "1.0", "/bin/true", {kLabel + ".control"}})).code,
            ServiceErrorCode::InvalidImage);
}

TEST_F(SystemDaemonTest, KeepsAnAdministratorsGrants) {
  const platform::DeviceGrant pedal{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
  ControlRequest request{Operation::Grant};
  request.grant = pedal;
  serve();
  EXPECT_TRUE(platform::JobDaemon(root_).ask(request, -1).succeeded());
  EXPECT_THAT(grants(), ElementsAre(pedal));
  request.operation = Operation::Revoke;
  EXPECT_TRUE(platform::JobDaemon(root_).ask(request, -1).succeeded());
  EXPECT_THAT(grants(), IsEmpty());
  const auto reply = platform::JobDaemon(root_).ask(request, -1);
  EXPECT_EQ(reply.code, ServiceErrorCode::InvalidArgument);
  EXPECT_EQ(reply.message, "there is no such grant any more");
  end();
  EXPECT_THAT(asked_, ElementsAre("grant", "grant", "grant"));
}

TEST_F(SystemDaemonTest, AGrantThatIsNotAllowedIsNotKept) {
  denied_ = Right::Grant;
  ControlRequest request{Operation::Grant};
  request.grant = platform::DeviceGrant{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
  serve();
  const auto reply = platform::JobDaemon(root_).ask(request, -1);
  EXPECT_EQ(reply.code, ServiceErrorCode::NotPermitted);
  EXPECT_EQ(reply.message, "the caller may not change what is granted");
  EXPECT_THAT(grants(), IsEmpty());
}

TEST_F(SystemDaemonTest, AYesToACallerThatHasGoneIsNone) {
  FileDescriptor caller(platform::connectUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM));
  meanwhile_ = [&] { caller.reset(); };
  ControlRequest request{Operation::Grant};
  request.grant = platform::DeviceGrant{1000, {3, 0x5f3, 0xff, "A1"}, "Pedal"};
  ASSERT_TRUE(platform::sendFrame(caller.get(), encode(request), -1));
  serve();
  EXPECT_TRUE(platform::JobDaemon(root_).ask({}, -1).succeeded()) << "after the one before";
  end();
  EXPECT_THAT(asked_, ElementsAre("grant"));
  EXPECT_THAT(grants(), IsEmpty());
}

TEST_F(SystemDaemonTest, WithoutAnAuthorityNothingIsAllowed) {
  hasNoAuthority_ = true;
  serve();
  const auto reply = bless(router("1.0"));
  EXPECT_EQ(reply.code, ServiceErrorCode::NotPermitted);
  EXPECT_THAT(reply.message, HasSubstr("there is no authority to decide"));
  EXPECT_EQ(blessed(), "");
}

TEST_F(SystemDaemonTest, ADenialChangesNothing) {
  denied_ = Right::Install;
  serve();
  EXPECT_EQ(bless(router("1.0")).code, ServiceErrorCode::NotPermitted);
  EXPECT_EQ(blessed(), "");
  end();
  EXPECT_EQ(stops_, 0);
}

TEST_F(SystemDaemonTest, WithoutPermissionNothingIsChanged) {
  serve();
  const FileDescriptor file(::open(router("1.0").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(platform::JobDaemon(root_).ask({Operation::Bless, kLabel}, file.get()).code,
            ServiceErrorCode::NotPermitted);
  EXPECT_EQ(platform::JobDaemon(root_).ask({Operation::Remove, kLabel}, -1).code,
            ServiceErrorCode::NotPermitted);
  EXPECT_EQ(blessed(), "");
}

TEST_F(SystemDaemonTest, AnotherLabelIsRefusedAndNobodyIsAsked) {
  serve();
  const auto reply =
      bless(image({"com.quillmar.echo", "1.0", "/bin/true", {}}), "com.quillmar.echo");
  EXPECT_EQ(reply.code, ServiceErrorCode::NotPermitted);
  EXPECT_THAT(reply.message,
              HasSubstr("only " + kLabel + " can be installed for all users of this system"));
  end();
  EXPECT_THAT(asked_, IsEmpty());
}

TEST_F(SystemDaemonTest, AnImageOfAnotherLabelOrWithAnotherServiceIsRefused) {
  serve();
  EXPECT_EQ(bless(image({"com.quillmar.echo", "1.0", "/bin/true", {}})).code,
            ServiceErrorCode::InvalidImage);
  const auto both = bless(image({kLabel, "1.0", "/bin/true", {kLabel, kLabel + ".second"}}));
  EXPECT_EQ(both.code, ServiceErrorCode::InvalidImage);
  EXPECT_THAT(both.message, HasSubstr("and no other"));
  EXPECT_EQ(bless(image({kLabel, "1.0", "/bin/true", {kLabel + ".second"}})).code,
            ServiceErrorCode::InvalidImage);
  EXPECT_EQ(blessed(), "");
  EXPECT_TRUE(isStagingEmpty());
}

TEST_F(SystemDaemonTest, AnImageThatIsNotTrustedIsRefused) {
  isTrusted_ = false;
  serve();
  const auto reply = bless(router("1.0"));
  EXPECT_EQ(reply.code, ServiceErrorCode::InvalidImage);
  EXPECT_EQ(reply.message, "not signed");
  EXPECT_EQ(blessed(), "");
  EXPECT_TRUE(isStagingEmpty());
}

TEST_F(SystemDaemonTest, GoingBackToAnOlderVersionNeedsItsOwnRight) {
  package("2.0");
  serve();
  EXPECT_TRUE(bless(router("2.0")).succeeded()) << "the same";
  EXPECT_TRUE(bless(router("2.1")).succeeded()) << "newer";
  EXPECT_TRUE(bless(router("2.0.5")).succeeded()) << "older than what an application installed";
  EXPECT_TRUE(bless(router("1.0")).succeeded()) << "older than the package's";
  EXPECT_TRUE(bless(router("beta")).succeeded()) << "cannot be compared";
  end();
  EXPECT_THAT(asked_, ElementsAre("install", "install", "install", "replace-newer", "install",
                                  "replace-newer", "install", "replace-newer"));
}

TEST_F(SystemDaemonTest, WithoutThatRightTheNewerVersionStays) {
  package("2.0");
  denied_ = Right::ReplaceNewer;
  serve();
  const auto reply = bless(router("1.9"));
  EXPECT_EQ(reply.code, ServiceErrorCode::NotPermitted);
  EXPECT_EQ(reply.message,
            "version 2.0 is there, and the caller may not replace it with the older version 1.9");
  EXPECT_EQ(blessed(), "");
  EXPECT_TRUE(isStagingEmpty());
}

TEST_F(SystemDaemonTest, ThePackagesRouterIsNotRemoved) {
  package("1.0");
  serve();
  const auto reply = remove();
  EXPECT_EQ(reply.code, ServiceErrorCode::NoSuchJob);
  EXPECT_THAT(reply.message, HasSubstr("what a package brought goes with the package"));
  EXPECT_TRUE(fs::exists(root_.path() / "usr/lib/wlhid/helpers" / kLabel));
}

TEST_F(SystemDaemonTest, ARouterThatCannotBeStoppedIsNamed) {
  stopProblem_ = "no bus";
  serve();
  const auto reply = bless(router("1.0"));
  EXPECT_EQ(reply.code, ServiceErrorCode::Busy);
  EXPECT_EQ(reply.message,
            kLabel +
                " was installed, but the router that is running could not be stopped "
                "(no bus): restart it with systemctl restart wlhid-router.service");
  EXPECT_NE(blessed(), "");
}

TEST_F(SystemDaemonTest, ACallerOfAnyUserIsHeard) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  serve();
  const std::string heard = testsupport::asUser(testsupport::kOtherUser, [&] {
    platform::ControlConnection connection(
        FileDescriptor(platform::connectUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM)));
    const auto reply = connection.tryAsk({Operation::Remove, kLabel}, -1);
    return reply ? reply->message : "no reply";
  });
  EXPECT_THAT(heard, HasSubstr("this change is not authorized"));
}

TEST_F(SystemDaemonTest, SaysWhatIsInstalled) {
  serve();
  EXPECT_THAT(platform::JobDaemon(root_).ask({}, -1).jobs, IsEmpty());
  package("1.0");
  const auto jobs = platform::JobDaemon(root_).ask({}, -1).jobs;
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs.front().label, kLabel);
}

TEST_F(SystemDaemonTest, SaysHowTheRouterFares) {
  package("1.0");
  router_.emplace();
  router_->status.processIdentifier = 42;
  router_->status.starts = 7;
  router_->status.lastEnd = "exited with status 1";
  router_->problem = "nothing starts it";
  serve();
  const auto reply = platform::JobDaemon(root_).ask({}, -1);
  EXPECT_TRUE(reply.succeeded());
  EXPECT_EQ(reply.message, "nothing starts it");
  const auto& jobs = reply.jobs;
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs.front().label, kLabel);
  EXPECT_THAT(jobs.front().services, ElementsAre(kLabel));
  EXPECT_EQ(jobs.front().processIdentifier, 42);
  EXPECT_EQ(jobs.front().starts, 7);
  EXPECT_EQ(jobs.front().lastEnd, "exited with status 1");
}

TEST_F(SystemDaemonTest, EndsWhenNobodyHasCalledForAWhile) {
  serve(std::chrono::milliseconds(1));
  thread_.join();
  const FileDescriptor waits(
      platform::connectUnixSocket(root_.controlEndpoint().string(), SOCK_STREAM));
  EXPECT_TRUE(waits) << "systemd still listens";
}

TEST_F(SystemDaemonTest, DoesNotEndAsLongAsARefusalCounts) {
  denied_ = Right::Remove;
  auto visitor = std::make_optional(connection());  // else it might end before anybody asks
  serve(std::chrono::milliseconds(1));
  const auto refuse = [this] {
    const auto reply =
        connection().tryAsk({Operation::Authorize, kLabel, true, ChangePurpose::Remove}, -1);
    return std::string(reply && !reply->succeeded() ? "refused" : "not refused");
  };
  const std::string said =
      testsupport::isSuperuser() ? testsupport::asUser(testsupport::kOtherUser, refuse) : refuse();
  EXPECT_EQ(said, "refused");
  visitor.reset();
  EXPECT_TRUE(runsLater());
}

}  // namespace
