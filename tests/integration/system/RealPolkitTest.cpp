// SPDX-License-Identifier: Apache-2.0

// The client against this machine's polkit, on a bus of the test's own: what no mock can prove,
// that polkit understands the questions and shows the message as it is. The actions are those of
// the distribution; the person is an agent of the test's.
#include <gmock/gmock.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/system/PolkitClient.h"
#include "platform/system/PromptText.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Inbox.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/OtherUser.h"
#include "tests/support/PrivateBus.h"

namespace {

using platform::system::PeerProcess;
using platform::system::PolkitAnswer;
using platform::system::PolkitClient;
using platform::system::PolkitQuestion;
using platform::system::SystemBus;
using testsupport::Inbox;
using testsupport::kOtherUser;
using testsupport::OtherProcess;
using testsupport::PrivateBus;
using Kind = PolkitAnswer::Kind;

constexpr const char* kDaemon = "/usr/lib/polkit-1/polkitd";
constexpr const char* kAuthority = "org.freedesktop.PolicyKit1.Authority";
constexpr const char* kAuthorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* kName = "org.freedesktop.PolicyKit1";
constexpr const char* kAdministratorsAction = "org.freedesktop.policykit.exec";
constexpr const char* kEverybodysAction = "org.freedesktop.login1.inhibit-delay-shutdown";

/// Asks polkit to do something, and waits. The message's parameters are appended by `append`.
bool call(sd_bus* connection, const char* method,
          const std::function<void(sd_bus_message*)>& append) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(connection, &message, kName, kAuthorityPath, kAuthority, method);
  append(message);
  const int result = sd_bus_call(connection, message, 0, nullptr, nullptr);
  sd_bus_message_unref(message);
  return result >= 0;
}

/// polkit's daemon on that bus.
class Daemon {
 public:
  explicit Daemon(const std::string& address)
      : process_([&] { become("DBUS_SYSTEM_BUS_ADDRESS=" + address); }) {}

 private:
  static void become(const std::string& variable) {
    const std::array<const char*, 3> arguments{kDaemon, "--no-debug", nullptr};
    const std::array<const char*, 2> environment{variable.c_str(), nullptr};
    ::execve(kDaemon, const_cast<char* const*>(arguments.data()),
             const_cast<char* const*>(environment.data()));
    ::_exit(127);
  }

  const testsupport::ChildProcess process_;
};

/// The authentication agent of a process: what stands between polkit and a person.
class Agent {
 public:
  struct Shown {
    std::string action;
    std::string message;
    std::map<std::string, std::string> details{};
  };
  enum class Does { Nothing, Dismiss, Refuse, Authenticate };

  Agent(const std::string& address, const PeerProcess& process, Does does)
      : does_(does), bus_({.address = address}) {
    bus_.run([&] {
      sd_bus_add_object(bus_.connection(), nullptr, "/agent", &Agent::receive, this);
      isRegistered_ = call(bus_.connection(), "RegisterAuthenticationAgent", [&](auto* message) {
        sd_bus_message_append(message, "(sa{sv})ss", "unix-process", 3, "pid", "u",
                              static_cast<std::uint32_t>(process.processID()), "start-time", "t",
                              process.startTime(), "uid", "i",
                              static_cast<std::int32_t>(process.user()), "C", "/agent");
      });
    });
  }
  [[nodiscard]] bool isRegistered() const { return isRegistered_; }
  Shown next() { return shown_.next(); }
  void waitForCancellation() { canceled_.next(); }

 private:
  static int receive(sd_bus_message* message, void* agent, sd_bus_error* /*unused*/) noexcept {
    auto& self = *static_cast<Agent*>(agent);
    constexpr const char* interface = "org.freedesktop.PolicyKit1.AuthenticationAgent";
    if (sd_bus_message_is_method_call(message, interface, "CancelAuthentication") > 0) {
      self.canceled_.put(true);
      return sd_bus_reply_method_return(message, nullptr);
    }
    if (sd_bus_message_is_method_call(message, interface, "BeginAuthentication") <= 0) return 0;
    return self.show(message);
  }

  int show(sd_bus_message* message) {
    const char* action = nullptr;
    const char* text = nullptr;
    const char* key = nullptr;
    const char* value = nullptr;
    sd_bus_message_read(message, "sss", &action, &text, nullptr);
    Shown shown{.action = action, .message = text};
    sd_bus_message_enter_container(message, 'a', "{ss}");
    while (sd_bus_message_read(message, "{ss}", &key, &value) > 0) shown.details[key] = value;
    sd_bus_message_exit_container(message);
    const char* cookie = nullptr;
    sd_bus_message_read(message, "s", &cookie);
    shown_.put(std::move(shown));
    return react(message, cookie);
  }

  int react(sd_bus_message* message, const char* cookie) {
    if (does_ == Does::Nothing) return 1;
    if (does_ == Does::Dismiss)
      return sd_bus_reply_method_errorf(message, "org.freedesktop.PolicyKit1.Error.Cancelled",
                                        "dismissed");
    if (does_ == Does::Authenticate)
      call(bus_.connection(), "AuthenticationAgentResponse2", [&](auto* response) {
        sd_bus_message_append(response, "us(sa{sv})", 0U, cookie, "unix-user", 1, "uid", "u", 0U);
      });
    return sd_bus_reply_method_return(message, nullptr);
  }

  const Does does_;
  bool isRegistered_ = false;
  Inbox<Shown> shown_;
  Inbox<bool> canceled_;
  SystemBus bus_;
};

class RealPolkit : public testing::Test {
 protected:
  void SetUp() override {
    if (!testsupport::isSuperuser()) GTEST_SKIP() << "only the superuser may pass details";
    if (::access(kDaemon, X_OK) != 0) GTEST_SKIP() << kDaemon << " is not installed";
    daemon_ = std::make_unique<Daemon>(bus_.address());
    waitForDaemon();
    caller_ = std::make_unique<OtherProcess>(kOtherUser);
    std::string whyNot;
    process_ = PeerProcess::ofSocket(caller_->socket(), whyNot);
    ASSERT_TRUE(process_) << whyNot;
  }

  void waitForDaemon() {
    connection_.run([&] {
      sd_bus_add_match(
          connection_.connection(), nullptr,
          "type='signal',member='NameOwnerChanged',arg0='org.freedesktop.PolicyKit1'",
          [](sd_bus_message*, void* inbox, sd_bus_error*) {
            static_cast<Inbox<bool>*>(inbox)->put(true);
            return 0;
          },
          &appeared_);
      if (sd_bus_get_name_creds(connection_.connection(), kName, 0, nullptr) >= 0)
        appeared_.put(true);
    });
    appeared_.next();
  }

  PolkitQuestion question(const char* action) { return {.process = *process_, .action = action}; }
  PolkitQuestion toPerson() {
    PolkitQuestion made = question(kAdministratorsAction);
    made.mayAskPerson = true;
    return made;
  }
  PolkitClient::QuestionID begin(const PolkitQuestion& question) {
    return client_.ask(question, [this](const PolkitAnswer& answer) { answers_.put(answer); });
  }
  PolkitAnswer ask(const PolkitQuestion& question) {
    begin(question);
    return answers_.next();
  }

  Inbox<PolkitAnswer> answers_;  // outlives whoever reports to it
  Inbox<bool> appeared_;
  PrivateBus bus_;
  SystemBus connection_{{.address = bus_.address()}};
  std::unique_ptr<Daemon> daemon_;
  std::unique_ptr<OtherProcess> caller_;
  std::optional<PeerProcess> process_;
  PolkitClient client_{connection_};
};

TEST_F(RealPolkit, AllowsWhatEverybodyMay) {
  const PolkitAnswer answer = ask(question(kEverybodysAction));
  EXPECT_TRUE(answer.isYes()) << answer.reason;
}

TEST_F(RealPolkit, WantsAPersonForWhatAnAdministratorMay) {
  const PolkitAnswer answer = ask(question(kAdministratorsAction));
  EXPECT_EQ(answer.kind, Kind::No) << answer.reason;
  EXPECT_TRUE(answer.needsPerson);
}

TEST_F(RealPolkit, KnowsNoActionThatIsNotInstalled) {
  const PolkitAnswer answer = ask(question("com.example.not-installed"));
  EXPECT_EQ(answer.kind, Kind::Failed);
  EXPECT_THAT(answer.reason, testing::HasSubstr("com.example.not-installed is not registered"));
}

TEST_F(RealPolkit, WithoutAnAgentAPersonCannotBeAsked) {
  const PolkitAnswer answer = ask(toPerson());
  EXPECT_EQ(answer.kind, Kind::No) << answer.reason;
  EXPECT_TRUE(answer.needsPerson);
  EXPECT_THAT(answer.reason, testing::HasSubstr("no authentication agent"));
}

TEST_F(RealPolkit, ShowsTheMessageAsItIs) {
  Agent agent(bus_.address(), *process_, Agent::Does::Refuse);
  ASSERT_TRUE(agent.isRegistered());
  PolkitQuestion asked = toPerson();
  asked.details = {{"name", "$(vendor) <b>"}, {"vendor", "0x1234"}};
  asked.message = "Allow " + platform::system::quotedPromptText("$(name) $(") + " to read it?";
  const PolkitAnswer answer = ask(asked);
  EXPECT_EQ(answer.kind, Kind::No) << answer.reason;
  EXPECT_FALSE(answer.needsPerson);
  const Agent::Shown shown = agent.next();
  EXPECT_EQ(shown.action, kAdministratorsAction);
  EXPECT_EQ(shown.message, "Allow “$ (name) $ (” to read it?");
  EXPECT_EQ(shown.details.count("name"), 0U) << "details are for rules; a person sees the message";
}

TEST_F(RealPolkit, APersonMayDismissTheQuestion) {
  Agent agent(bus_.address(), *process_, Agent::Does::Dismiss);
  EXPECT_EQ(ask(toPerson()).kind, Kind::Dismissed);
}

TEST_F(RealPolkit, APersonMayAllowIt) {
  Agent agent(bus_.address(), *process_, Agent::Does::Authenticate);
  const PolkitAnswer answer = ask(toPerson());
  EXPECT_TRUE(answer.isYes()) << answer.reason;
}

TEST_F(RealPolkit, AWithdrawnQuestionLeavesTheScreen) {
  Agent agent(bus_.address(), *process_, Agent::Does::Nothing);
  const auto id = begin(toPerson());
  agent.next();
  client_.withdraw(id);
  EXPECT_EQ(answers_.next().kind, Kind::Withdrawn);
  agent.waitForCancellation();
}

TEST_F(RealPolkit, ALateQuestionLeavesTheScreen) {
  Agent agent(bus_.address(), *process_, Agent::Does::Nothing);
  PolkitQuestion asked = toPerson();
  asked.limit = std::chrono::seconds(1);
  begin(asked);
  agent.next();
  EXPECT_EQ(answers_.next().kind, Kind::Failed);
  agent.waitForCancellation();
}

TEST_F(RealPolkit, ThatDiesDecidesNothing) {
  Agent agent(bus_.address(), *process_, Agent::Does::Nothing);
  begin(toPerson());
  agent.next();
  daemon_.reset();
  EXPECT_EQ(answers_.next().kind, Kind::Failed);
}

/// Why the types matter: as "u" the user is overlooked, and polkit looks for one itself.
TEST_F(RealPolkit, OverlooksAUserOfAnotherType) {
  const auto isAllowed = [&](const char* type) {
    int isAuthorized = -1;
    connection_.run([&] {
      sd_bus_message* reply = nullptr;
      sd_bus_call_method(connection_.connection(), kName, kAuthorityPath, kAuthority,
                         "CheckAuthorization", nullptr, &reply, "(sa{sv})sa{ss}us", "unix-process",
                         3, "pid", "u", static_cast<std::uint32_t>(process_->processID()),
                         "start-time", "t", process_->startTime(), "uid", type, 0,
                         kAdministratorsAction, 0, 0U, "");
      sd_bus_message_enter_container(reply, 'r', "bba{ss}");
      sd_bus_message_read(reply, "b", &isAuthorized);
      sd_bus_message_unref(reply);
    });
    return isAuthorized;
  };
  EXPECT_EQ(isAllowed("i"), 1) << "the question named the superuser";
  EXPECT_EQ(isAllowed("u"), 0) << "the process is another user's";
}

}  // namespace
