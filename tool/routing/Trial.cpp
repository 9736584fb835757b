// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/Trial.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/kit/KQLogger.h"
#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {

namespace {

using platform::KQLogEntry;
using platform::KQLogger;
using platform::KQLogSink;

/// What has happened so far, reported from any thread.
class TrialState {
 public:
  void status(WLHIDEventRouterClientStatus status) {
    change([&](TrialResult& result) { result.statuses.push_back(status); });
    if (status == WLHIDEventRouterClientStatusRouterUnavailable)
      end("the router is not installed, or not current");
  }
  /// The reason follows the status that it explains.
  void error(const std::string& text, std::int64_t code) {
    bool refused = false;
    change([&](TrialResult& result) {
      result.errors.push_back(text);
      result.errorCodes.push_back(code);
      refused =
          !result.statuses.empty() && result.statuses.back() == WLHIDEventRouterClientStatusFailed;
    });
    if (refused) end("the router refuses");
  }
  void input() {
    change([](TrialResult& result) { ++result.deliveries; });
    end("input came");
  }
  void end(const std::string& outcome) {
    change([&](TrialResult& result) {
      if (result.outcome.empty()) result.outcome = outcome;
    });
    ended_.notify_all();
  }
  /// False on a timeout.
  bool wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, timeout, [this] { return !result_.outcome.empty(); });
  }
  [[nodiscard]] TrialResult result() const {
    const std::lock_guard lock(mutex_);
    return result_;
  }

 private:
  template <class Change>
  void change(const Change& change) {
    const std::lock_guard lock(mutex_);
    change(result_);
  }

  mutable std::mutex mutex_;
  std::condition_variable ended_;
  TrialResult result_;
};

/// Takes no input: so the framework logs that it arrived, which is what the trial watches for.
class Delegate final : public WLHIDEventRouterClientDelegate {
 public:
  explicit Delegate(std::shared_ptr<TrialState> state) : state_(std::move(state)) {}
  void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
      WLHIDEventRouterClientStatus status) override {
    state_->status(status);
  }
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
                                        const std::shared_ptr<platform::NSError>& error) override {
    state_->error(describeError(error), error ? error->code() : 0);
  }

 private:
  const std::shared_ptr<TrialState> state_;
};

/// While it lives, every line is logged, and the state is updated on input.
///
/// The sink stays in place: a line admitted at the lower level may reach it after the level has
/// been restored, and must not be shown then either.
class FullLogging {
 public:
  explicit FullLogging(const std::shared_ptr<TrialState>& state)
      : userLevel_(KQLogger::logLevel()) {
    KQLogger::sharedLogger().setSink(
        std::make_shared<KQLogSink>([state, level = userLevel_](const KQLogEntry& entry) {
          if (entry.level >= level)
            Output(STDERR_FILENO).write(oneLine(platform::renderLogEntry(entry)) + "\n");
          if (entry.showsInput) state->input();
        }));
    KQLogger::setLogLevel(0);
  }
  ~FullLogging() { KQLogger::setLogLevel(userLevel_); }
  FullLogging(const FullLogging&) = delete;
  FullLogging& operator=(const FullLogging&) = delete;

 private:
  const std::uint64_t userLevel_;
};

}  // namespace

TrialResult tryDevice(std::uint64_t registryEntryID, std::chrono::milliseconds timeout) {
  const auto state = std::make_shared<TrialState>();
  const FullLogging logged(state);
  const auto delegate = std::make_shared<Delegate>(state);
  auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          registryEntryID, /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(delegate);
  client->setStarted(true);
  if (!state->wait(timeout))
    state->end("no input within " + std::to_string(timeout.count()) + " ms");
  client->setStarted(false);
  client.reset();
  TrialResult result = state->result();
  result.registryEntryID = registryEntryID;
  return result;
}

}  // namespace tool
