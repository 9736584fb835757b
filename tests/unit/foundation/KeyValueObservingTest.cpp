// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/KeyValueObserving.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

namespace platform {
namespace {

using Trace = std::vector<std::string>;

class Model : public KeyValueObservable {
 public:
  using KeyValueObservable::didChangeValueForKey;
  using KeyValueObservable::willChangeValueForKey;
  void change(std::string_view key) {
    willChangeValueForKey(key);
    didChangeValueForKey(key);
  }
};

KeyValueObservable::Observer recorder(Trace& trace, std::string name) {
  return [&trace, name = std::move(name)](const KeyValueChange& change) {
    trace.push_back(name + (change.prior ? " will " : " did ") + std::string(change.key));
  };
}

TEST(KeyValueObserving, TellsBeforeAndAfterInOrderOfRegistration) {
  Model model;
  Trace trace;
  const auto first = model.addObserver_forKey("a", recorder(trace, "1"));
  const auto second = model.addObserver_forKey("a", recorder(trace, "2"));
  const auto other = model.addObserver_forKey("b", recorder(trace, "3"));
  model.change("a");
  model.change("c");
  EXPECT_EQ(trace, (Trace{"1 will a", "2 will a", "1 did a", "2 did a"}));
}

TEST(KeyValueObserving, EndsWithItsToken) {
  Model model;
  Trace trace;
  { const auto token = model.addObserver_forKey("a", recorder(trace, "1")); }
  auto second = model.addObserver_forKey("a", recorder(trace, "2"));
  second.end();
  second.end();
  model.change("a");
  EXPECT_EQ(trace, Trace{});
}

TEST(KeyValueObserving, ATokenCanBeMoved) {
  Model model;
  Trace trace;
  auto token = model.addObserver_forKey("a", recorder(trace, "1"));
  KeyValueObservation moved = std::move(token);
  model.willChangeValueForKey("a");
  moved = model.addObserver_forKey("a", recorder(trace, "2"));  // ends the first
  model.willChangeValueForKey("a");
  auto& same = moved;
  moved = std::move(same);
  model.willChangeValueForKey("a");
  EXPECT_EQ(trace, (Trace{"1 will a", "2 will a", "2 will a"}));
}

TEST(KeyValueObserving, AnObserverMayEndItselfAndAnother) {
  Model model;
  Trace trace;
  KeyValueObservation first;
  KeyValueObservation second;
  first = model.addObserver_forKey("a", [&](const KeyValueChange&) {
    trace.push_back("first");
    first.end();
    second.end();
  });
  second = model.addObserver_forKey("a", recorder(trace, "second"));
  model.change("a");
  EXPECT_EQ(trace, Trace{"first"});
}

TEST(KeyValueObserving, OneThatIsAddedDuringAChangeIsToldOfTheNext) {
  Model model;
  Trace trace;
  std::optional<KeyValueObservation> added;
  const auto token = model.addObserver_forKey("a", [&](const KeyValueChange&) {
    if (!added) added = model.addObserver_forKey("a", recorder(trace, "added"));
  });
  model.willChangeValueForKey("a");
  EXPECT_EQ(trace, Trace{});
  model.didChangeValueForKey("a");
  EXPECT_EQ(trace, Trace{"added did a"});
}

TEST(KeyValueObserving, AnObserverMayChangeTheObjectAgain) {
  Model model;
  Trace trace;
  const auto token = model.addObserver_forKey("a", [&](const KeyValueChange& change) {
    trace.push_back(change.prior ? "will a" : "did a");
    if (!change.prior) model.change("b");
  });
  const auto other = model.addObserver_forKey("b", recorder(trace, "b:"));
  model.change("a");
  EXPECT_EQ(trace, (Trace{"will a", "did a", "b: will b", "b: did b"}));
}

TEST(KeyValueObserving, ATokenOutlivesItsObject) {
  KeyValueObservation token;
  {
    Model model;
    token = model.addObserver_forKey("a", [](const KeyValueChange&) {});
  }
  token.end();
}

TEST(KeyValueObserving, AnObserverMayDestroyTheObject) {
  auto model = std::make_unique<Model>();
  Trace trace;
  const auto first = model->addObserver_forKey("a", [&](const KeyValueChange&) { model.reset(); });
  const auto second = model->addObserver_forKey("a", recorder(trace, "second"));
  model->willChangeValueForKey("a");
  EXPECT_EQ(model, nullptr);
  EXPECT_EQ(trace, Trace{"second will a"});
}

TEST(KeyValueObserving, CapturesLiveAsLongAsTheToken) {
  Model model;
  auto captured = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = captured;
  auto token = model.addObserver_forKey("a", [captured](const KeyValueChange&) {});
  captured.reset();
  EXPECT_FALSE(watched.expired());
  token.end();
  EXPECT_TRUE(watched.expired());
}

TEST(KeyValueObserving, WhatACaptureDoesWhileItIsDestroyedMeetsNoLock) {
  struct AtEnd {
    explicit AtEnd(Model& changed) : model(changed) {}
    Model& model;
    ~AtEnd() { model.change("b"); }
  };
  Model model;
  Trace trace;
  const auto other = model.addObserver_forKey("b", recorder(trace, "b:"));
  auto token = model.addObserver_forKey(
      "a", [end = std::make_shared<AtEnd>(model)](const KeyValueChange&) {});
  token.end();
  EXPECT_EQ(trace, (Trace{"b: will b", "b: did b"}));
}

TEST(KeyValueObserving, AnEmptyObserverIsNeverCalled) {
  Model model;
  const auto token = model.addObserver_forKey("a", nullptr);
  model.change("a");
}

TEST(KeyValueObserving, StandsChangesAndRegistrationsOfSeveralThreads) {
  Model model;
  std::atomic<int> told{0};
  const auto steady = model.addObserver_forKey("a", [&](const KeyValueChange&) { ++told; });
  const auto work = [&] {
    for (int i = 0; i < 1000; ++i) {
      const auto token = model.addObserver_forKey("a", [&](const KeyValueChange&) { ++told; });
      model.change("a");
    }
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_GE(told.load(),
            2 * 1000 * 4);  // each change: the steady observer and the thread's own, twice
}

}  // namespace
}  // namespace platform
