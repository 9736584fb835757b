#include "tool/routing/Trial.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "platform/kit/KQLogger.h"
#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {

namespace {

using platform::KQLogEntry;
using platform::KQLogger;
using platform::KQLogSink;

/// What has happened so far, reported from any thread.
class Course {
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
  bool wait(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, patience, [this] { return !result_.outcome.empty(); });
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
  explicit Delegate(std::shared_ptr<Course> course) : course_(std::move(course)) {}
  void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
      WLHIDEventRouterClientStatus status) override {
    course_->status(status);
  }
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
                                        const std::shared_ptr<platform::NSError>& error) override {
    course_->error(describeError(error), error ? error->code() : 0);
  }

 private:
  const std::shared_ptr<Course> course_;
};

/// While it lives, every line is logged, and the course is told about input.
///
/// The sink stays in place: a line admitted at the lower level may reach it after the level has
/// been restored, and must not be shown then either.
class EverythingLogged {
 public:
  explicit EverythingLogged(const std::shared_ptr<Course>& course)
      : userLevel_(KQLogger::logLevel()) {
    KQLogger::sharedLogger().setSink(
        std::make_shared<KQLogSink>([course, level = userLevel_](const KQLogEntry& entry) {
          if (entry.level >= level)
            Output(STDERR_FILENO).write(oneLine(platform::renderLogEntry(entry)) + "\n");
          if (entry.showsInput) course->input();
        }));
    KQLogger::setLogLevel(0);
  }
  ~EverythingLogged() { KQLogger::setLogLevel(userLevel_); }
  EverythingLogged(const EverythingLogged&) = delete;
  EverythingLogged& operator=(const EverythingLogged&) = delete;

 private:
  const std::uint64_t userLevel_;
};

}  // namespace

TrialResult tryDevice(std::uint64_t registryEntryID, std::chrono::milliseconds patience) {
  const auto course = std::make_shared<Course>();
  const EverythingLogged logged(course);
  const auto delegate = std::make_shared<Delegate>(course);
  auto client =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          registryEntryID, /*deviceMode=*/0, nullptr, nullptr);
  client->setDelegate(delegate);
  client->setStarted(true);
  if (!course->wait(patience))
    course->end("no input within " + std::to_string(patience.count()) + " ms");
  client->setStarted(false);
  client.reset();
  TrialResult result = course->result();
  result.registryEntryID = registryEntryID;
  return result;
}

}  // namespace tool
