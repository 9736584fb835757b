// SPDX-License-Identifier: Apache-2.0

// What polkit and logind say about this process, on a bus of the test's own.
#include "tool/findings/Authorities.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <future>

#include "tests/support/MockLogind.h"
#include "tests/support/MockPolkit.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using platform::system::SessionLookup;
using testsupport::MockLogind;
using testsupport::MockPolkit;

class AuthoritiesTest : public testing::Test {
 protected:
  AuthoritiesTest() {
    const std::string path = bus_.address().substr(bus_.address().find('/'));
    fs::create_directories(socket_.parent_path());
    fs::create_symlink(path.substr(0, path.find(',')), socket_);
  }
  [[nodiscard]] AuthorityFindings asked(const std::optional<std::string>& session) const {
    SessionLookup lookup;
    lookup.sessionOfProcess = [session](pid_t process) {
      EXPECT_EQ(process, ::getpid());
      return session;
    };
    lookup.ownerOfProcess = [](pid_t) { return std::nullopt; };
    lookup.displayOfUser = [](uid_t) { return std::nullopt; };
    return askAuthorities(platform::SystemRoot(root_.path()), lookup);
  }
  [[nodiscard]] std::string polkitProblemIf(MockPolkit::Says says) const {
    MockPolkit polkit(bus_.address());
    auto found = std::async(std::launch::async, [this] { return asked(std::nullopt); });
    const auto question = polkit.next();
    EXPECT_EQ(question.processID, static_cast<std::uint32_t>(::getpid()));
    EXPECT_EQ(question.action, "com.quillmar.hideventrouter.route");
    EXPECT_TRUE(question.details.empty()) << "only the router may pass any";
    EXPECT_EQ(question.flags, 0U) << "nobody is to be asked";
    polkit.answer(question, says);
    std::string problem = found.get().polkitProblem;
    EXPECT_EQ(polkit.complaints(), std::vector<std::string>());
    return problem;
  }

  const testsupport::TemporaryDirectory root_;
  const fs::path socket_ = root_.path() / "run/dbus/system_bus_socket";
  testsupport::PrivateBus bus_;
};

TEST_F(AuthoritiesTest, APolkitThatSaysYesOrNoDecides) {
  EXPECT_EQ(polkitProblemIf(MockPolkit::Says::Yes), "");
  EXPECT_EQ(polkitProblemIf(MockPolkit::Says::No), "");
  EXPECT_EQ(polkitProblemIf(MockPolkit::Says::NeedsPerson), "");
}

TEST_F(AuthoritiesTest, APolkitThatFailsOrIsNotThereSaysWhy) {
  EXPECT_NE(polkitProblemIf(MockPolkit::Says::Error), "");
  const AuthorityFindings none = asked(std::nullopt);
  EXPECT_NE(none.polkitProblem, "");
  EXPECT_EQ(none.busProblem, "") << "the bus is there";
}

TEST_F(AuthoritiesTest, TheSessionIsAsLogindSeesIt) {
  MockLogind logind(bus_.address());
  MockLogind::Session session;
  session.isLocked = true;
  logind.set("c1", session);
  const AuthorityFindings found = asked("c1");
  ASSERT_TRUE(found.session);
  EXPECT_EQ(found.session->session, "c1");
  EXPECT_TRUE(found.session->isActive);
  EXPECT_TRUE(found.session->isLocked);
  EXPECT_FALSE(found.session->hasEnded);
  EXPECT_EQ(found.sessionProblem, "");
}

TEST_F(AuthoritiesTest, ASessionThatLogindDoesNotKnowHasEndedAndNoneIsNoProblem) {
  const MockLogind logind(bus_.address());
  const AuthorityFindings unknown = asked("c2");
  ASSERT_TRUE(unknown.session);
  EXPECT_TRUE(unknown.session->hasEnded);
  const AuthorityFindings none = asked(std::nullopt);
  EXPECT_FALSE(none.session);
  EXPECT_EQ(none.sessionProblem, "");
}

TEST_F(AuthoritiesTest, WithoutABusNobodyCanBeAsked) {
  fs::remove(socket_);
  const AuthorityFindings found = asked("c1");
  EXPECT_EQ(found.busProblem, socket_.string() + ": No such file or directory");
  EXPECT_FALSE(found.session);
}

}  // namespace
}  // namespace tool
