// SPDX-License-Identifier: Apache-2.0

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/scripted/ScriptedPlatform.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "tests/contract/xpc/Layer.h"

namespace test {
namespace {

using namespace platform;

/// The thread on which the scripted connections' events run.
class Queue {
 public:
  ~Queue() {
    post(nullptr);
    thread_.join();
  }
  void post(std::function<void()> event) {
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(std::move(event));
    }
    posted_.notify_one();
  }

 private:
  void run() {
    while (const auto event = next()) event();
  }
  std::function<void()> next() {
    std::unique_lock lock(mutex_);
    posted_.wait(lock, [this] { return !events_.empty(); });
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<std::function<void()>> events_;
  std::thread thread_{[this] { run(); }};
};

class ScriptedLayer final : public Layer {
 public:
  std::shared_ptr<NSXPCConnection> makeConnection() override {
    return NSXPCConnection::initWithMachServiceName_options(str(WLHIDEventRouterLabel), 0);
  }
  bool waitForRequest() override { return newest()->pendingRequests() > 0; }
  void peerReplies(std::shared_ptr<NSError> error) override {
    queue_.post([script = newest(), error] { script->deliverReply(error); });
  }
  void peerDropsReply() override {
    queue_.post([script = newest()] {
      script->deliverError(NSError::errorWithDomain_code_userInfo(
          str(NSCocoaErrorDomain), NSXPCConnectionReplyInvalid, nullptr));
    });
  }
  void peerSendsReport(std::uint32_t reportID) override {
    XPCValues values;
    values.append(std::shared_ptr<NSObject>(NSData::dataWithBytes({})));
    values.append(reportID);
    queue_.post([script = newest(), values] {
      script->deliverMessage("receivedData:forReportID:", values);
    });
  }
  void peerSendsElementValues(std::shared_ptr<NSArray> list) override {
    XPCValues values;
    values.append(std::shared_ptr<NSObject>(std::move(list)));
    queue_.post(
        [script = newest(), values] { script->deliverMessage("receivedElementValues:", values); });
  }
  void peerSaysFarewell() override {
    for (std::size_t number = 1; number <= platform_.connectionCount(); ++number)
      queue_.post([script = platform_.connection(number)] { script->deliverInvalidation(); });
  }
  void peerCrashes() override {
    queue_.post([script = newest()] { script->deliverInterruption(); });
  }
  void settle() override {
    for (std::size_t number = 1; number <= platform_.connectionCount(); ++number) {
      const auto script = platform_.connection(number);
      queue_.post([script] {
        while (script->deliverSendError()) {
        }
      });
      if (script->isInvalidated() || !script->isHeld())
        queue_.post([script] { script->deliverInvalidation(); });
    }
  }

 private:
  std::shared_ptr<ScriptedConnection> newest() {
    return platform_.connection(platform_.connectionCount());
  }

  ScriptedPlatform platform_;
  Queue queue_;
};

}  // namespace

std::unique_ptr<Layer> scriptedLayer() {
  return std::make_unique<ScriptedLayer>();
}

}  // namespace test
