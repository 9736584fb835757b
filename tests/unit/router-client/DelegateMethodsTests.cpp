// Which methods a delegate class implements, found at compile time, and delegates that answer at
// run time.
#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

using Method = WLHIDEventRouterClientDelegateMethod;
using ClientPointer = std::shared_ptr<WLHIDEventRouterClient>;
using ErrorPointer = std::shared_ptr<platform::NSError>;

class TakesErrors : public WLHIDEventRouterClientDelegate {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) override {
    ++errors;
  }
  int errors = 0;
};
class TakesErrorsBySubclassing final : public TakesErrors {};
class TakesStatusToo final : public TakesErrors {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const ClientPointer&,
                                                  WLHIDEventRouterClientStatus) noexcept override {
    ++statuses;
  }
  int statuses = 0;
};

/// Takes whatever `wanted` names at the moment.
class Forwarding : public WLHIDEventRouterClientDelegate {
 public:
  bool respondsToSelector(Method method) const override {
    asked.push_back(method);
    return wanted.contains(method);
  }
  wlhid::DelegateMethods wanted;
  mutable std::vector<Method> asked;
};
class ForwardingErrors final : public Forwarding {
 public:
  void hidEventRouterClient_handleError(const ClientPointer&, const ErrorPointer&) override {
    ++errors;
  }
  int errors = 0;
};

static_assert(wlhid::delegateMethodsOf<TakesErrors>().contains(Method::handleError));
static_assert(!wlhid::delegateMethodsOf<TakesErrors>().contains(Method::clientStatusChangedTo));
static_assert(!wlhid::delegateMethodsOf<TakesErrors>().contains(Method::receivedElementValues));
static_assert(
    !wlhid::delegateMethodsOf<TakesErrors>().contains(Method::receivedReportData_reportID));
static_assert(!wlhid::delegateMethodsOf<TakesErrors>().answersItself());
static_assert(wlhid::delegateMethodsOf<TakesErrorsBySubclassing>().contains(Method::handleError));
static_assert(wlhid::delegateMethodsOf<TakesStatusToo>().contains(Method::clientStatusChangedTo));
static_assert(
    wlhid::delegateMethodsOf<RecordingDelegate>().contains(Method::receivedElementValues));
static_assert(
    wlhid::delegateMethodsOf<RecordingDelegate>().contains(Method::receivedReportData_reportID));
static_assert(wlhid::delegateMethodsOf<Forwarding>().answersItself());
static_assert(wlhid::delegateMethodsOf<WLHIDEventRouterClientDelegate>().empty());

class DelegateMethods : public ClientTest {
 protected:
  void failStart() {
    client_->setStarted(true);
    connection1().deliverReply(routerError(-1));
  }
};

TEST_F(DelegateMethods, AnOverrideInABaseClassCounts) {
  makeClient();
  const auto delegate = std::make_shared<TakesErrorsBySubclassing>();
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->errors, 1);
}

TEST_F(DelegateMethods, ANoexceptOverrideCounts) {
  makeClient();
  const auto delegate = std::make_shared<TakesStatusToo>();
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->statuses, 2);
  EXPECT_EQ(delegate->errors, 1);
}

TEST_F(DelegateMethods, APointerToABaseClassIsRefusedLoudlyAndStoresNothing) {
  makeClient();
  const std::shared_ptr<TakesErrors> asBase = std::make_shared<TakesStatusToo>();
  EXPECT_THROW(client_->setDelegate(asBase), std::invalid_argument);
  EXPECT_EQ(client_->delegate(), delegate_);
}

TEST_F(DelegateMethods, ADelegateThatAnswersItselfMayComeByAnyPointer) {
  makeClient();
  const auto delegate = std::make_shared<ForwardingErrors>();
  delegate->wanted.add(Method::handleError);
  client_->setDelegate(std::shared_ptr<Forwarding>(delegate));
  failStart();
  EXPECT_EQ(delegate->errors, 1);
  EXPECT_EQ(delegate->asked,
            (std::vector<Method>{Method::clientStatusChangedTo, Method::clientStatusChangedTo,
                                 Method::handleError}));
}

TEST_F(DelegateMethods, ADelegateThatAnswersItselfIsAskedBeforeEachCall) {
  makeClient();
  const auto delegate = std::make_shared<ForwardingErrors>();
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->errors, 0);
  const auto data = platform::NSData::dataWithBytes({});
  taken();
  client_->receivedData_forReportID(data, 1);
  EXPECT_EQ(taken().size(), 1U);  // not taken: logged
  delegate->wanted.add(Method::receivedReportData_reportID);
  client_->receivedData_forReportID(data, 1);
  EXPECT_EQ(taken().size(), 0U);  // taken, by the base's empty body
}

TEST_F(DelegateMethods, WhatADelegateTakesWithoutABodyOfItsOwnIsTakenByTheEmptyOne) {
  makeClient();
  const auto delegate = std::make_shared<Forwarding>();
  for (const Method method : {Method::clientStatusChangedTo, Method::handleError,
                              Method::receivedElementValues, Method::receivedReportData_reportID})
    delegate->wanted.add(method);
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->asked,
            (std::vector<Method>{Method::clientStatusChangedTo, Method::clientStatusChangedTo,
                                 Method::handleError}));
  taken();
  client_->receivedData_forReportID(platform::NSData::dataWithBytes({}), 1);
  client_->receivedElementValues(platform::NSArray::arrayWithObjects({}));
  EXPECT_EQ(taken(), std::vector<std::string>{});
}

TEST_F(DelegateMethods, TheNewDelegatesMethodsReplaceTheOldOnes) {
  makeClient();
  const auto delegate = std::make_shared<TakesErrors>();
  client_->setDelegate(delegate);
  client_->receivedData_forReportID(platform::NSData::dataWithBytes({}), 1);
  EXPECT_EQ(taken().size(), 1U);
}

}  // namespace
}  // namespace test
