// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/foundation/NSNotificationCenter.h"

namespace platform {
namespace {

using Trace = std::vector<std::string>;

class Listener {
 public:
  Listener(Trace& trace, std::string name) : trace_(trace), name_(std::move(name)) {}
  void heard(const std::shared_ptr<NSNotification>& note) {
    trace_.push_back(name_ + " " + note->name()->UTF8String());
    const auto action = then;  // which may replace `then`
    if (action) action();
  }
  std::function<void()> then;

 private:
  Trace& trace_;
  const std::string name_;
};

class NotificationCenterTest : public testing::Test {
 protected:
  std::shared_ptr<Listener> listener(std::string name) {
    return std::make_shared<Listener>(trace_, std::move(name));
  }

  void add(const std::shared_ptr<Listener>& listener, const char* name,
           const std::shared_ptr<NSObject>& object = nullptr) {
    center_->addObserver_selector_name_object(
        notificationObserver(listener, "heard:", &Listener::heard),
        NSString::stringWithUTF8String(name), object);
  }
  void remove(const void* identity, const char* name,
              const std::shared_ptr<NSObject>& object = nullptr) {
    center_->removeObserver_name_object(identity, NSString::stringWithUTF8String(name), object);
  }
  void post(const char* name, const std::shared_ptr<NSObject>& object = nullptr) {
    center_->postNotificationName_object(NSString::stringWithUTF8String(name), object);
  }

  const std::shared_ptr<NSNotificationCenter> center_ = NSNotificationCenter::center();
  Trace trace_;
};

TEST_F(NotificationCenterTest, CallsTheObserversOfANameInOrderOfAddition) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto c = listener("c");
  add(b, "N");
  add(a, "N");
  add(c, "M");
  post("N");
  EXPECT_EQ(trace_, (Trace{"b N", "a N"}));
}

TEST_F(NotificationCenterTest, NullMeansAnyNameAndAnyObject) {
  const auto any = listener("any");
  const auto sender = listener("sender");
  const auto one = std::make_shared<NSObject>();
  const auto two = std::make_shared<NSObject>();
  add(any, nullptr);
  add(sender, "N", one);
  post("N", one);
  post("N", two);
  post("N");
  EXPECT_EQ(trace_, (Trace{"any N", "sender N", "any N", "any N"}));
}

TEST_F(NotificationCenterTest, AnObserverAddedTwiceIsCalledTwice) {
  const auto a = listener("a");
  add(a, "N");
  add(a, "N");
  post("N");
  EXPECT_EQ(trace_, (Trace{"a N", "a N"}));
}

TEST_F(NotificationCenterTest, RemovesByIdentityNameAndObject) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto object = std::make_shared<NSObject>();
  add(a, "N");
  add(a, "M");
  add(a, "M", object);
  add(b, "N");
  remove(a.get(), "N");
  remove(a.get(), "M", object);
  post("N");
  post("M", object);
  EXPECT_EQ(trace_, (Trace{"b N", "a M"}));
  remove(a.get(), nullptr);
  post("M", object);
  EXPECT_EQ(trace_.size(), 2U);
}

TEST_F(NotificationCenterTest, OneRemovedBeforeItsTurnIsNotCalled) {
  const auto a = listener("a");
  const auto b = listener("b");
  a->then = [&] { remove(b.get(), "N"); };
  add(a, "N");
  add(b, "N");
  post("N");
  EXPECT_EQ(trace_, Trace{"a N"});
}

TEST_F(NotificationCenterTest, OneDestroyedBeforeItsTurnIsNotCalled) {
  const auto a = listener("a");
  auto b = listener("b");
  a->then = [&] { b.reset(); };
  add(a, "N");
  add(b, "N");
  post("N");
  EXPECT_EQ(trace_, Trace{"a N"});
}

TEST_F(NotificationCenterTest, OneAddedDuringThePostIsCalledByTheNext) {
  const auto a = listener("a");
  const auto b = listener("b");
  a->then = [&] {
    a->then = nullptr;
    add(b, "N");
  };
  add(a, "N");
  post("N");
  EXPECT_EQ(trace_, Trace{"a N"});
  post("N");
  EXPECT_EQ(trace_, (Trace{"a N", "a N", "b N"}));
}

TEST_F(NotificationCenterTest, APostWithinAPostRunsToItsEndFirst) {
  const auto a = listener("a");
  const auto b = listener("b");
  a->then = [&] {
    a->then = nullptr;
    post("M");
  };
  add(a, "N");
  add(b, nullptr);
  post("N");
  EXPECT_EQ(trace_, (Trace{"a N", "b M", "b N"}));
}

TEST_F(NotificationCenterTest, HoldsObserversWeaklyButStronglyWhileTheyAreNotified) {
  auto a = listener("a");
  const std::weak_ptr<Listener> watched = a;
  bool alive = false;
  a->then = [&] {
    a.reset();
    alive = !watched.expired();
  };
  add(a, "N");
  post("N");
  EXPECT_TRUE(alive);
  EXPECT_TRUE(watched.expired());
  post("N");
  EXPECT_EQ(trace_, Trace{"a N"});
}

TEST_F(NotificationCenterTest, LetsGoOfWhatADeadObserverWaitedForAtTheNextAddition) {
  auto dead = listener("dead");
  auto sender = std::make_shared<NSObject>();
  const std::weak_ptr<NSObject> watched = sender;
  add(dead, "N", sender);
  const auto alive = listener("alive");
  add(alive, "N");
  sender.reset();
  EXPECT_FALSE(watched.expired());
  dead.reset();
  add(alive, "M");
  EXPECT_TRUE(watched.expired());
  post("N");
  post("M");
  EXPECT_EQ(trace_, (Trace{"alive N", "alive M"}));
}

TEST_F(NotificationCenterTest, ANotificationCarriesItsNameAndItsObject) {
  struct Hearer {
    std::shared_ptr<NSNotification> note;
    void heard(const std::shared_ptr<NSNotification>& heard) { note = heard; }
  };
  const auto hearer = std::make_shared<Hearer>();
  const auto registration = notificationObserver(hearer, "heard:", &Hearer::heard);
  EXPECT_EQ(registration.selector, "heard:");
  center_->addObserver_selector_name_object(registration, nullptr, nullptr);
  const auto sender = std::make_shared<NSObject>();
  post("N", sender);
  ASSERT_NE(hearer->note, nullptr);
  EXPECT_EQ(hearer->note->name()->UTF8String(), "N");
  EXPECT_EQ(hearer->note->object(), sender);
}

TEST_F(NotificationCenterTest, RemovingLeavesOtherNamesObjectsAndObservers) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto one = std::make_shared<NSObject>();
  const auto two = std::make_shared<NSObject>();
  add(a, nullptr);
  add(a, "N", one);
  add(b, "N", one);
  remove(a.get(), "M");
  remove(a.get(), nullptr, two);
  remove(a.get(), "N", two);
  post("N", one);
  EXPECT_EQ(trace_, (Trace{"a N", "a N", "b N"}));
  remove(a.get(), nullptr, one);
  post("N", one);
  EXPECT_EQ(trace_, (Trace{"a N", "a N", "b N", "a N", "b N"}));
}

TEST_F(NotificationCenterTest, AnExceptionLeavesThePostAndTheCenterWhole) {
  const auto a = listener("a");
  const auto b = listener("b");
  a->then = [] { throw std::runtime_error("no"); };
  add(a, "N");
  add(b, "N");
  EXPECT_THROW(post("N"), std::runtime_error);
  EXPECT_EQ(trace_, Trace{"a N"});
  a->then = nullptr;
  post("N");
  EXPECT_EQ(trace_, (Trace{"a N", "a N", "b N"}));
}

TEST_F(NotificationCenterTest, ANullNameAndAnEmptyCallDoNothing) {
  const auto a = listener("a");
  add(a, nullptr);
  center_->postNotificationName_object(nullptr, nullptr);
  center_->addObserver_selector_name_object({a.get(), a, "none", nullptr}, nullptr, nullptr);
  post("N");
  EXPECT_EQ(trace_, Trace{"a N"});
}

TEST_F(NotificationCenterTest, MayBeCalledFromADestructorOfACapture) {
  struct AtEnd {
    explicit AtEnd(std::shared_ptr<NSNotificationCenter> posted) : center(std::move(posted)) {}
    const std::shared_ptr<NSNotificationCenter> center;
    ~AtEnd() { center->postNotificationName_object(str("end"), nullptr); }
  };
  const auto a = listener("a");
  add(a, "end");
  const auto b = listener("b");
  center_->addObserver_selector_name_object(
      {b.get(), b, "heard:", [end = std::make_shared<AtEnd>(center_)](const auto&) {}}, str("N"),
      nullptr);
  EXPECT_EQ(trace_, Trace{});
  remove(b.get(), "N");
  EXPECT_EQ(trace_, Trace{"a end"});
}

TEST_F(NotificationCenterTest, StandsSeveralThreads) {
  struct Counter {
    std::atomic<int> count{0};
    void heard(const std::shared_ptr<NSNotification>&) { ++count; }
  };
  const auto steady = std::make_shared<Counter>();
  const auto addTo = [&](const std::shared_ptr<Counter>& counter) {
    center_->addObserver_selector_name_object(
        notificationObserver(counter, "heard:", &Counter::heard), str("N"), nullptr);
  };
  addTo(steady);
  const auto work = [&] {
    for (int i = 0; i < 500; ++i) {
      const auto own = std::make_shared<Counter>();
      addTo(own);
      center_->postNotificationName_object(str("N"), nullptr);
      EXPECT_GE(own->count.load(), 1);
      if (i % 2 == 0) center_->removeObserver_name_object(own.get(), nullptr, nullptr);
    }
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_EQ(steady->count.load(), 1000);
}

TEST(DefaultCenter, IsOneForTheProcess) {
  EXPECT_NE(NSNotificationCenter::defaultCenter(), nullptr);
  EXPECT_EQ(NSNotificationCenter::defaultCenter(), NSNotificationCenter::defaultCenter());
  EXPECT_NE(NSNotificationCenter::center(), NSNotificationCenter::center());
}

}  // namespace
}  // namespace platform
