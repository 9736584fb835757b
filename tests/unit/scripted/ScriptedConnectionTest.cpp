// SPDX-License-Identifier: Apache-2.0

// A single scripted connection: its states, what each of them lets through, and what is recorded.
#include "platform/scripted/ScriptedConnection.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/foundation/NSURL.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace {

using namespace platform;
using Lines = std::vector<std::string>;
using Timing = ScriptedConnection::Timing;

std::shared_ptr<NSError> error(std::int64_t code) {
  return NSError::errorWithDomain_code_userInfo(str("D"), code, nullptr);
}

/// Records the callbacks, in order.
struct Client final : WLHIDEventRouterClientProtocol {
  explicit Client(Lines& into) : lines(into) {}
  void receivedData_forReportID(const std::shared_ptr<NSData>& data,
                                std::uint32_t reportID) override {
    lines.push_back("report " + std::to_string(reportID) + " of " + std::to_string(data->length()));
  }
  void receivedElementValues(const std::shared_ptr<NSArray>&) override {
    lines.emplace_back("values");
  }
  Lines& lines;
};

class AScriptedConnection : public testing::Test {
 protected:
  AScriptedConnection() { made_->setRemoteObjectInterface(router()); }

  static std::shared_ptr<NSXPCInterface> router() {
    return NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  }
  void exportClient() {
    made_->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
    made_->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  }
  void setHandlers() {
    made_->setInterruptionHandler([this] { calls_.emplace_back("interrupted"); });
    made_->setInvalidationHandler([this] { calls_.emplace_back("invalidated"); });
  }
  std::shared_ptr<WLHIDEventRouterProtocol> proxy(const std::string& name = "error") {
    return made_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [this, name](const std::shared_ptr<NSError>& why) {
          calls_.push_back(name + " " + descriptionOf(why->domain()) + " " +
                           std::to_string(why->code()));
        });
  }
  void request(const std::string& name = "reply") {
    proxy(name + " error")
        ->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
            1, 2, nullptr, nullptr, [this, name](const std::shared_ptr<NSError>& why) {
              calls_.push_back(name + (why ? " " + std::to_string(why->code()) : " null"));
            });
  }
  bool sendReport(Timing timing = Timing::InOrder) {
    XPCValues values;
    values.append(std::shared_ptr<NSObject>(NSData::dataWithBytes(std::array<std::uint8_t, 2>{})));
    values.append(std::uint32_t{3});
    return script_->deliverMessage("receivedData:forReportID:", values, timing);
  }
  [[nodiscard]] Lines calls() { return std::exchange(calls_, {}); }

  ScriptedPlatform platform_;
  Lines calls_;
  std::shared_ptr<Client> client_ = std::make_shared<Client>(calls_);
  std::shared_ptr<NSXPCConnection> made_ =
      NSXPCConnection::initWithMachServiceName_options(str("service"), 0);
  std::shared_ptr<ScriptedConnection> script_ = platform_.connection(1);
};

TEST_F(AScriptedConnection, WritesDownAllThatIsDoneToIt) {
  platform_.trace().take();
  exportClient();
  made_->setExportedInterface(nullptr);
  made_->setExportedObject<WLHIDEventRouterClientProtocol>(nullptr);
  setHandlers();
  made_->resume();
  proxy()->stopRoutingService();
  request();
  made_->invalidate();
  made_.reset();
  const auto events = platform_.trace().events(TraceKind::Message);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].object, "connection 1");
  EXPECT_EQ(events[0].name, "stopRoutingService");
  EXPECT_EQ(events[1].arguments, (Lines{"1", "2", "nil", "nil"}));
  EXPECT_EQ(
      platform_.trace().take(),
      (Lines{
          "interfaceWithProtocol:WLHIDEventRouterClientProtocol",
          "connection 1 setExportedInterface:WLHIDEventRouterClientProtocol",
          "connection 1 setExportedObject:WLHIDEventRouterClientProtocol",
          "connection 1 setExportedInterface:nil", "connection 1 setExportedObject:nil",
          "connection 1 setInterruptionHandler:", "connection 1 setInvalidationHandler:",
          "connection 1 resume", "connection 1 remoteObjectProxyWithErrorHandler:",
          "connection 1 send stopRoutingService", "connection 1 remoteObjectProxyWithErrorHandler:",
          "connection 1 send "
          "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply: 1 2 nil "
          "nil",
          "connection 1 invalidate", "connection 1 released"}));
}

TEST_F(AScriptedConnection, HasNoPeer) {
  EXPECT_EQ(made_->effectiveUserIdentifier(), static_cast<uid_t>(-1));
  EXPECT_EQ(made_->processIdentifier(), -1);
}

TEST_F(AScriptedConnection, SaysInWhichStateItIs) {
  EXPECT_FALSE(script_->isResumed());
  EXPECT_TRUE(script_->isHeld());
  made_->resume();
  EXPECT_TRUE(script_->isResumed());
  EXPECT_FALSE(script_->isInvalidated());
  made_->invalidate();
  EXPECT_TRUE(script_->isInvalidated());
  EXPECT_TRUE(script_->isHeld());
  made_.reset();
  EXPECT_FALSE(script_->isHeld());
}

TEST_F(AScriptedConnection, MakesNoProxyOfAnotherProtocolThanItsInterface) {
  EXPECT_NE(proxy(), nullptr);
  EXPECT_EQ(made_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>({}), nullptr);
  made_->setRemoteObjectInterface(nullptr);
  EXPECT_EQ(proxy(), nullptr);
}

// ---- Requests

TEST_F(AScriptedConnection, AnswersRequestsInTheOrderInWhichTheyWereSent) {
  made_->resume();
  request("first");
  request("second");
  proxy()->stopRoutingService();
  EXPECT_EQ(script_->pendingRequests(), 2U);
  EXPECT_TRUE(script_->deliverReply(nullptr));
  EXPECT_EQ(script_->pendingRequests(), 1U);
  EXPECT_TRUE(script_->deliverReply(error(5)));
  EXPECT_EQ(calls(), (Lines{"first null", "second 5"}));
}

TEST_F(AScriptedConnection, AnswersNothingThatNobodyAsked) {
  made_->resume();
  for (const auto& deliver : std::vector<std::function<void()>>{
           [&] { script_->deliverReply(nullptr); }, [&] { script_->deliverError(error(1)); }}) {
    try {
      deliver();
      FAIL() << "there is no request";
    } catch (const std::out_of_range& none) {
      EXPECT_STREQ(none.what(), "connection 1 has no pending request");
    }
  }
}

TEST_F(AScriptedConnection, AnAnswerComesThroughOnlyWhileItIsLiveUnlessItIsLate) {
  request();
  EXPECT_FALSE(script_->deliverReply(nullptr)) << "not resumed";
  made_->resume();
  made_->invalidate();
  EXPECT_FALSE(script_->deliverReply(nullptr)) << "invalidated";
  EXPECT_EQ(calls(), Lines{});
  EXPECT_TRUE(script_->deliverReply(nullptr, Timing::Late));
  EXPECT_EQ(calls(), Lines{"reply null"});
}

TEST_F(AScriptedConnection, AnAnswerThatCannotBeSentOrIsNotAdmittedIsAnError) {
  made_->resume();
  for (const std::shared_ptr<NSObject>& answer : std::vector<std::shared_ptr<NSObject>>{
           std::make_shared<NSObject>(), NSURL::URLWithString(str("a:"))}) {
    request();
    XPCValues values;
    values.append(answer);
    EXPECT_FALSE(script_->deliverReply(values));
    EXPECT_EQ(calls(), Lines{"reply error NSCocoaErrorDomain 4101"});
    EXPECT_EQ(script_->pendingRequests(), 0U);
  }
}

TEST_F(AScriptedConnection, AnErrorMeetsTheHandlerOfTheOldestRequest) {
  request("first");
  request("second");
  script_->deliverError(error(7));
  EXPECT_EQ(calls(), Lines{"first error D 7"});
  EXPECT_EQ(script_->pendingRequests(), 1U);
}

TEST_F(AScriptedConnection, AOneWayErrorMeetsTheHandlerOfTheLastMessageOnce) {
  proxy("first")->stopRoutingService();
  proxy("second")->stopRoutingService();
  request();
  script_->deliverOneWayError(error(7));
  EXPECT_EQ(calls(), Lines{"second D 7"});
  EXPECT_EQ(script_->pendingRequests(), 1U);
  try {
    script_->deliverOneWayError(error(7));
    FAIL() << "it has run";
  } catch (const std::out_of_range& none) {
    EXPECT_STREQ(none.what(), "connection 1 has sent no one-way message");
  }
}

TEST_F(AScriptedConnection, WithoutHandlersNothingIsCalled) {
  const auto silent = made_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(nullptr);
  const auto ask = [&] {
    silent->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        1, 2, nullptr, nullptr, nullptr);
  };
  made_->resume();
  ask();
  EXPECT_NO_THROW(script_->deliverError(error(1)));
  ask();
  XPCValues values;
  values.append(std::shared_ptr<NSObject>(std::make_shared<NSObject>()));
  EXPECT_FALSE(script_->deliverReply(values));
  silent->stopRoutingService();
  EXPECT_NO_THROW(script_->deliverOneWayError(error(1)));
  EXPECT_FALSE(script_->deliverInterruption());
  EXPECT_FALSE(script_->deliverInvalidation());
}

// ---- Messages

TEST_F(AScriptedConnection, AMessageReachesTheExportedObject) {
  exportClient();
  EXPECT_FALSE(sendReport()) << "not resumed";
  made_->resume();
  EXPECT_TRUE(sendReport());
  EXPECT_EQ(calls(), Lines{"report 3 of 2"});
  made_->invalidate();
  EXPECT_FALSE(sendReport());
  EXPECT_TRUE(sendReport(Timing::Late));
  EXPECT_EQ(calls(), Lines{"report 3 of 2"});
}

TEST_F(AScriptedConnection, AMessageNeedsAnObjectAndItsInterface) {
  made_->resume();
  EXPECT_FALSE(sendReport()) << "nothing is exported";
  made_->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  EXPECT_FALSE(sendReport()) << "there is no interface";
  made_->setExportedInterface(router());
  EXPECT_FALSE(sendReport()) << "the interface is another one";
  exportClient();
  EXPECT_TRUE(sendReport());
  client_.reset();
  EXPECT_FALSE(sendReport()) << "the object is gone";
}

TEST_F(AScriptedConnection, AMessageThatIsNotAdmittedDoesNotArrive) {
  exportClient();
  made_->resume();
  XPCValues values;
  values.append(std::shared_ptr<NSObject>(str("no data")));
  values.append(std::uint32_t{3});
  EXPECT_FALSE(script_->deliverMessage("receivedData:forReportID:", values));
  EXPECT_EQ(calls(), Lines{});
  EXPECT_THROW((void)script_->deliverMessage("unknown:", values), std::invalid_argument);
}

// ---- Ends

TEST_F(AScriptedConnection, AnInterruptionFailsWhatIsPendingAndMayComeAgain) {
  setHandlers();
  request("first");
  request("second");
  EXPECT_FALSE(script_->deliverInterruption()) << "not resumed";
  EXPECT_EQ(script_->pendingRequests(), 2U);
  made_->resume();
  EXPECT_TRUE(script_->deliverInterruption());
  EXPECT_TRUE(script_->deliverInterruption());
  EXPECT_EQ(calls(), (Lines{"first error NSCocoaErrorDomain 4097",
                            "second error NSCocoaErrorDomain 4097", "interrupted", "interrupted"}));
  made_->invalidate();
  EXPECT_FALSE(script_->deliverInterruption());
  EXPECT_TRUE(script_->deliverInterruption(Timing::Late));
  EXPECT_EQ(calls(), Lines{"interrupted"});
}

TEST_F(AScriptedConnection, AnInvalidationFailsWhatIsPendingAndComesOnce) {
  setHandlers();
  made_->resume();
  request();
  EXPECT_TRUE(script_->deliverInvalidation());
  EXPECT_EQ(calls(), (Lines{"reply error NSCocoaErrorDomain 4099", "invalidated"}));
  setHandlers();
  EXPECT_FALSE(script_->deliverInvalidation());
  EXPECT_FALSE(script_->deliverInvalidation(Timing::Late));
  EXPECT_FALSE(script_->deliverInterruption());
  EXPECT_FALSE(script_->deliverInterruption(Timing::Late)) << "a handler that came too late";
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(AScriptedConnection, IsReportedInvalidThoughItWasNeverResumed) {
  setHandlers();
  EXPECT_TRUE(script_->deliverInvalidation());
  EXPECT_EQ(calls(), Lines{"invalidated"});
}

TEST_F(AScriptedConnection, IsReportedInvalidAfterInvalidateThoughItWasDropped) {
  setHandlers();
  made_->invalidate();
  made_.reset();
  EXPECT_TRUE(script_->deliverInvalidation());
  EXPECT_EQ(calls(), Lines{"invalidated"});
}

TEST_F(AScriptedConnection, DroppedWithoutInvalidateItCallsNobodyAndKeepsNothing) {
  const auto captured = std::make_shared<int>(1);
  made_->setInterruptionHandler([captured] {});
  made_->setInvalidationHandler([captured] {});
  made_->resume();
  EXPECT_EQ(captured.use_count(), 3);
  made_.reset();
  EXPECT_EQ(captured.use_count(), 1);
  EXPECT_FALSE(script_->deliverInvalidation());
  EXPECT_FALSE(script_->deliverInvalidation(Timing::Late));
  EXPECT_FALSE(script_->deliverInterruption());
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(AScriptedConnection, LetsGoOfItsHandlersWhenItIsOver) {
  const auto captured = std::make_shared<int>(1);
  made_->setInterruptionHandler([captured] {});
  made_->setInvalidationHandler([captured] {});
  made_->resume();
  EXPECT_TRUE(script_->deliverInvalidation());
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(AScriptedConnection, DiscardedItForgetsEverythingAndTakesNothingMore) {
  const auto captured = std::make_shared<int>(1);
  const auto silent = made_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
      [captured](const auto&) {});
  const auto ask = [&] {
    silent->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        1, 2, nullptr, nullptr, [captured](const auto&) {});
  };
  made_->setInterruptionHandler([captured] {});
  made_->setInvalidationHandler([captured] {});
  made_->resume();
  ask();
  silent->stopRoutingService();
  const auto held = captured.use_count();
  script_->discard();
  EXPECT_EQ(script_->pendingRequests(), 0U);
  EXPECT_EQ(captured.use_count(), held - 3) << "the handlers and the request";
  ask();
  EXPECT_EQ(script_->pendingRequests(), 0U);
  made_->setInvalidationHandler([captured] {});
  EXPECT_FALSE(script_->deliverInvalidation(Timing::Late));
  EXPECT_FALSE(script_->deliverInterruption());
  EXPECT_THROW(script_->deliverOneWayError(error(1)), std::out_of_range);
}

// ---- Several connections of one object

TEST_F(AScriptedConnection, ItsEndIsNotReportedOnceItsObjectHasResumedAnotherSince) {
  exportClient();
  setHandlers();
  made_->resume();
  made_->invalidate();
  made_->invalidate();
  const auto next = NSXPCConnection::initWithMachServiceName_options(str("service"), 0);
  next->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  next->resume();
  EXPECT_FALSE(script_->deliverInvalidation());
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(AScriptedConnection, ItsEndIsReportedWhereTheOtherOneIsGoneAgain) {
  exportClient();
  setHandlers();
  made_->resume();
  made_->invalidate();
  auto next = NSXPCConnection::initWithMachServiceName_options(str("service"), 0);
  next->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  next->resume();
  next.reset();
  EXPECT_TRUE(script_->deliverInvalidation());
  EXPECT_EQ(calls(), Lines{"invalidated"});
}

TEST_F(AScriptedConnection, ItsEndIsReportedWhereTheOtherOneIsOver) {
  exportClient();
  setHandlers();
  made_->resume();
  made_->invalidate();
  const auto next = NSXPCConnection::initWithMachServiceName_options(str("service"), 0);
  next->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  next->resume();
  EXPECT_FALSE(platform_.connection(2)->deliverInvalidation()) << "it has no handler";
  EXPECT_TRUE(script_->deliverInvalidation());
}

TEST_F(AScriptedConnection, ItsEndIsReportedWhereTheOtherOneWasDiscarded) {
  exportClient();
  setHandlers();
  made_->resume();
  made_->invalidate();
  const auto next = NSXPCConnection::initWithMachServiceName_options(str("service"), 0);
  next->setExportedObject<WLHIDEventRouterClientProtocol>(client_);
  next->resume();
  platform_.connection(2)->discard();
  EXPECT_TRUE(script_->deliverInvalidation());
}

}  // namespace
