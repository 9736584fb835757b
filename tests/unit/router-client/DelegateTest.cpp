// SPDX-License-Identifier: Apache-2.0

// Delegates as C++ developers write them: which of their methods are called, whatever pointer they
// are set by, and what happens to calls that they don't handle.
#include <gmock/gmock.h>

#include <latch>
#include <thread>

#include "tests/unit/router-client/ClientFixture.h"

namespace test {
namespace {

using ::testing::_;
using ::testing::NiceMock;
using ::testing::StrictMock;

using DelegateBase = WLHIDEventRouterClientDelegate;
using ClientPointer = std::shared_ptr<WLHIDEventRouterClient>;
using ErrorPointer = std::shared_ptr<platform::NSError>;
using DataPointer = std::shared_ptr<platform::NSData>;
using ArrayPointer = std::shared_ptr<platform::NSArray>;

class TakesErrors : public DelegateBase {
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

class TakesReports final : public DelegateBase {
 public:
  void hidEventRouterClient_receivedReportData_reportID(const ClientPointer&, const DataPointer&,
                                                        std::uint32_t) override {
    ++reports;
  }
  int reports = 0;
};
class TakesElementValues final : public DelegateBase {
 public:
  void hidEventRouterClient_receivedElementValues(const ClientPointer&,
                                                  const ArrayPointer&) override {
    ++arrays;
  }
  int arrays = 0;
};
class TakesNothing final : public DelegateBase {};

class Mock : public DelegateBase {
 public:
  MOCK_METHOD(void, hidEventRouterClient_clientStatusChangedTo,
              (const ClientPointer&, WLHIDEventRouterClientStatus), (override));
  MOCK_METHOD(void, hidEventRouterClient_handleError, (const ClientPointer&, const ErrorPointer&),
              (override));
  MOCK_METHOD(void, hidEventRouterClient_receivedElementValues,
              (const ClientPointer&, const ArrayPointer&), (override));
  MOCK_METHOD(void, hidEventRouterClient_receivedReportData_reportID,
              (const ClientPointer&, const DataPointer&, std::uint32_t), (override));
};

/// Forwards everything to `target`, or to the base class without one.
class Forwarding final : public DelegateBase {
 public:
  void hidEventRouterClient_clientStatusChangedTo(const ClientPointer& client,
                                                  WLHIDEventRouterClientStatus status) override {
    if (target) return target->hidEventRouterClient_clientStatusChangedTo(client, status);
    DelegateBase::hidEventRouterClient_clientStatusChangedTo(client, status);
  }
  void hidEventRouterClient_handleError(const ClientPointer& client,
                                        const ErrorPointer& error) override {
    if (target) return target->hidEventRouterClient_handleError(client, error);
    DelegateBase::hidEventRouterClient_handleError(client, error);
  }
  void hidEventRouterClient_receivedElementValues(const ClientPointer& client,
                                                  const ArrayPointer& values) override {
    if (target) return target->hidEventRouterClient_receivedElementValues(client, values);
    DelegateBase::hidEventRouterClient_receivedElementValues(client, values);
  }
  void hidEventRouterClient_receivedReportData_reportID(const ClientPointer& client,
                                                        const DataPointer& data,
                                                        std::uint32_t reportID) override {
    if (target)
      return target->hidEventRouterClient_receivedReportData_reportID(client, data, reportID);
    DelegateBase::hidEventRouterClient_receivedReportData_reportID(client, data, reportID);
  }
  std::shared_ptr<DelegateBase> target;
};

class Delegates : public ClientTest {
 protected:
  void failStart() {
    client_->setStarted(true);
    connection1().deliverReply(routerError(-1));
  }
  void sendReport(std::uint32_t reportID = 1) {
    inside(*client_).receivedData_forReportID(platform::NSData::dataWithBytes({}), reportID);
  }
  void sendElementValue() {
    inside(*client_).receivedElementValues(
        platform::NSArray::arrayWithObjects({platform::str("none")}));
  }
  static std::string reportLine(std::uint32_t reportID = 1) {
    return logLine(
        0, "receivedData:forReportID:]", 314,
        "Received for reportID " + std::to_string(reportID) + ": {length = 0, bytes = 0x}");
  }
  static std::string elementLine() {
    return logLine(0, "receivedElementValues:]", 328,
                   "Received HID report 0: usage=0, usagePage=0, cookie=0, integerValue=0, "
                   "bytes=(null)");
  }
};

// ---- Which methods are called

TEST_F(Delegates, AnOverrideInABaseClassCounts) {
  makeClient();
  const auto delegate = std::make_shared<TakesErrorsBySubclassing>();
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->errors, 1);
}

TEST_F(Delegates, ANoexceptOverrideCounts) {
  makeClient();
  const auto delegate = std::make_shared<TakesStatusToo>();
  client_->setDelegate(delegate);
  failStart();
  EXPECT_EQ(delegate->statuses, 2);
  EXPECT_EQ(delegate->errors, 1);
}

TEST_F(Delegates, AnyPointerToTheObjectWillDo) {
  makeClient();
  const auto delegate = std::make_shared<TakesStatusToo>();
  client_->setDelegate(std::shared_ptr<TakesErrors>(delegate));
  failStart();
  client_->setDelegate(std::shared_ptr<DelegateBase>(delegate));
  client_->setClientStatus(WLHIDEventRouterClientStatusIdle);
  EXPECT_EQ(delegate->statuses, 3);
  EXPECT_EQ(delegate->errors, 1);
  EXPECT_EQ(client_->delegate(), delegate);
}

TEST_F(Delegates, OneThatTakesNothingLeavesAllInputToTheLog) {
  makeClient();
  const auto delegate = std::make_shared<TakesNothing>();
  client_->setDelegate(delegate);
  failStart();
  taken();
  sendReport();
  sendElementValue();
  EXPECT_TRUE(sameTrace({reportLine(), elementLine()}, taken()));
  platform_.setLogLevel(1);
  sendReport();
  sendElementValue();
  EXPECT_TRUE(sameTrace({}, taken()));
}

TEST_F(Delegates, TheNewDelegatesMethodsReplaceTheOldOnes) {
  makeClient();
  const auto delegate = std::make_shared<TakesErrors>();
  client_->setDelegate(delegate);
  sendReport();
  EXPECT_TRUE(sameTrace({reportLine()}, taken()));
}

// ---- Mocks

TEST_F(Delegates, ANiceMockMayComeByAPointerToTheMock) {
  makeClient();
  const std::shared_ptr<Mock> mock = std::make_shared<NiceMock<Mock>>();
  client_->setDelegate(mock);
  EXPECT_CALL(*mock, hidEventRouterClient_receivedReportData_reportID(client_, _, 7));
  sendReport(7);
  sendElementValue();  // unexpected, which a nice mock allows, but handled
  EXPECT_TRUE(sameTrace({}, taken()));
}

TEST_F(Delegates, AStrictMockHearsWhatItExpectsAndNothingElse) {
  makeClient();
  const auto mock = std::make_shared<StrictMock<Mock>>();
  client_->setDelegate(mock);
  const ::testing::InSequence inThisOrder;
  EXPECT_CALL(*mock, hidEventRouterClient_clientStatusChangedTo(
                         client_, WLHIDEventRouterClientStatusOpening));
  EXPECT_CALL(*mock, hidEventRouterClient_clientStatusChangedTo(
                         client_, WLHIDEventRouterClientStatusFailed));
  EXPECT_CALL(*mock, hidEventRouterClient_handleError(client_, _));
  failStart();
}

// ---- Calls that are forwarded or declined

TEST_F(Delegates, OneThatForwardsTakesWhatItsTargetTakesAtTheMoment) {
  makeClient();
  const auto delegate = std::make_shared<Forwarding>();
  const auto reports = std::make_shared<TakesReports>();
  client_->setDelegate(delegate);
  sendReport();
  EXPECT_TRUE(sameTrace({reportLine()}, taken()));
  delegate->target = reports;
  sendReport();
  sendElementValue();
  EXPECT_TRUE(sameTrace({elementLine()}, taken()));
  delegate->target = std::make_shared<TakesElementValues>();
  sendReport();
  sendElementValue();
  EXPECT_TRUE(sameTrace({reportLine()}, taken()));
  EXPECT_EQ(reports->reports, 1);
}

TEST_F(Delegates, WhatIsHandedOnBehalfOfNoClientIsDropped) {
  makeClient();
  TakesNothing delegate;
  delegate.hidEventRouterClient_receivedReportData_reportID(nullptr, nullptr, 1);
  delegate.hidEventRouterClient_receivedElementValues(nullptr, nullptr);
  EXPECT_TRUE(sameTrace({}, taken()));
}

/// Takes reports with an even number and declines the others.
class TakesEvenReports : public DelegateBase {
 public:
  void hidEventRouterClient_receivedReportData_reportID(const ClientPointer& client,
                                                        const DataPointer& data,
                                                        std::uint32_t reportID) override {
    if (reportID % 2 != 0)
      DelegateBase::hidEventRouterClient_receivedReportData_reportID(client, data, reportID);
  }
};

TEST_F(Delegates, ACallThatIsHandedBackIsNotTakenOnWhicheverThread) {
  makeClient();
  const auto delegate = std::make_shared<TakesEvenReports>();
  client_->setDelegate(delegate);
  std::latch bothAreThere(2);
  const auto send = [&](std::uint32_t first) {
    bothAreThere.arrive_and_wait();
    for (std::uint32_t i = 0; i < 200; ++i) sendReport(first + i);
  };
  std::thread other(send, 1000);
  send(0);
  other.join();
  Lines expected;
  for (std::uint32_t i = 1; i < 200; i += 2) expected.push_back(reportLine(i));
  EXPECT_TRUE(sameTrace(expected, platform_.trace().linesOfThread(std::this_thread::get_id())));
  EXPECT_EQ(platform_.trace().lines().size(), 200U);
}

TEST_F(Delegates, ACallThatIsHandedBackInsideAnotherIsTheOnlyOneThatIsNotTaken) {
  makeClient();
  const auto other = newClient();
  class Nesting final : public TakesEvenReports {
   public:
    explicit Nesting(ClientPointer other) : other_(std::move(other)) {}
    void hidEventRouterClient_receivedReportData_reportID(const ClientPointer& client,
                                                          const DataPointer& data,
                                                          std::uint32_t reportID) override {
      if (client != other_) inside(*other_).receivedData_forReportID(data, 1);
      TakesEvenReports::hidEventRouterClient_receivedReportData_reportID(client, data, reportID);
    }

   private:
    const ClientPointer other_;
  };
  const auto delegate = std::make_shared<Nesting>(other);
  client_->setDelegate(delegate);
  other->setDelegate(delegate);
  taken();
  sendReport(2);
  EXPECT_TRUE(sameTrace({reportLine(1)}, taken()));
}

// ---- The reference itself

TEST_F(Delegates, WhicheverOfTwoThreadsStoredLastItsDelegateIsTheOneThatIsAsked) {
  makeClient();
  platform_.setLogLevel(4);
  const auto reports = std::make_shared<TakesReports>();
  const auto values = std::make_shared<TakesElementValues>();
  for (int round = 0; round < 200; ++round) {
    std::latch bothAreThere(2);
    std::thread other([&] {
      bothAreThere.arrive_and_wait();
      client_->setDelegate(values);
    });
    bothAreThere.arrive_and_wait();
    client_->setDelegate(reports);
    other.join();
    const int before = reports->reports;
    sendReport();
    EXPECT_EQ(reports->reports - before, client_->delegate() == reports ? 1 : 0);
  }
}

TEST_F(Delegates, EachClientHasItsOwn) {
  makeClient();
  EXPECT_EQ(client_->delegate(), delegate_);
  const auto other = newClient();
  EXPECT_EQ(other->delegate(), nullptr);
  EXPECT_EQ(client_->delegate(), delegate_);
}

/// Counts what is allocated and not yet freed.
template <class T>
struct CountingAllocator {
  using value_type = T;
  explicit CountingAllocator(int& count) : live(&count) {}
  template <class U>
  CountingAllocator(const CountingAllocator<U>& other) : live(other.live) {}
  T* allocate(std::size_t n) {
    ++*live;
    return std::allocator<T>().allocate(n);
  }
  void deallocate(T* place, std::size_t n) {
    --*live;
    std::allocator<T>().deallocate(place, n);
  }
  bool operator==(const CountingAllocator&) const = default;
  int* live;
};

TEST_F(Delegates, ADeadDelegatesMemoryIsFreedWithTheClientsReference) {
  makeClient();
  int live = 0;
  client_->setDelegate(std::allocate_shared<TakesReports>(CountingAllocator<TakesReports>(live)));
  EXPECT_EQ(client_->delegate(), nullptr);
  sendReport();
  EXPECT_EQ(live, 1);
  client_->setDelegate(nullptr);
  EXPECT_EQ(live, 0);
}

}  // namespace
}  // namespace test
