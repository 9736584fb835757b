// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/System.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>

#include <fstream>
#include <stdexcept>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/services/Authorization.h"
#include "platform/services/JobDaemon.h"
#include "tests/stress/Stress.h"

namespace stress {
namespace {

namespace fs = std::filesystem;

fs::path newDirectory() {
  std::string pattern = (fs::temp_directory_path() / "wlhid-stress-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::runtime_error("cannot make a temporary directory");
  return pattern;
}

WLHIDEventRouterClient::CompletionHandler throwUnlessDone(const char* what) {
  return [what](bool success, const std::shared_ptr<platform::NSError>& error) {
    if (!success)
      throw std::runtime_error(std::string(what) + ": " + platform::descriptionOf(error));
  };
}

}  // namespace

Process::Process(pid_t identifier)
    : identifier_(identifier),
      handle_(static_cast<int>(::syscall(SYS_pidfd_open, identifier, 0))) {}

void Process::kill() const {
  ::syscall(SYS_pidfd_send_signal, handle_.get(), SIGKILL, nullptr, 0);
}

bool Process::waitForEnd() const {
  if (!handle_) return true;
  pollfd entry{handle_.get(), POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) == 1;
}

System::System() : directory_(newDirectory()), root_(directory_ / "root") {
  platform::SystemRoot::setCurrent(root_);
  platform::setAuthorizationAgent(
      platform::fixedAuthorizationAgent(platform::errAuthorizationSuccess));
}

System::~System() {
  try {
    if (const pid_t process = daemon(); process > 0) {
      const Process job(process);
      ::kill(process, SIGTERM);
      if (!job.waitForEnd()) job.kill();
    }
  } catch (const std::exception&) {
    // There is no daemon to end.
  }
  platform::setAuthorizationAgent(nullptr);
  platform::SystemRoot::resetCurrent();
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

void System::install() const {
  WLHIDEventRouterClient::installWithPrompt_completionHandler(nullptr, throwUnlessDone("install"));
}

void System::uninstall() const {
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr,
                                                                throwUnlessDone("uninstall"));
}

void System::bless(const fs::path& image) const {
  const platform::FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) throw std::runtime_error("cannot read " + image.string());
  const std::string label(WLHIDEventRouterLabel);
  const auto reply = platform::JobDaemon(root_).authorize(label).ask(
      {platform::ControlRequest::Operation::Bless, label, true}, file.get());
  if (!reply.succeeded()) throw std::runtime_error("bless: " + reply.message);
}

std::uint64_t System::addRecording(const std::string& name, double speed) const {
  router::ReplayDevice device;
  device.recording = recordingPath(name);
  device.speed.factor = speed;
  device.repeat = true;
  return router::addReplayDevice(root_, device);
}

std::uint64_t System::addText(const std::string& name, std::string_view text,
                              const std::string& speed, bool repeat) const {
  router::ReplayDevice device;
  device.recording = directory_ / (name + ".hid");
  std::ofstream(device.recording, std::ios::binary)
      .write(text.data(), static_cast<std::streamsize>(text.size()));
  device.speed = router::ReplaySpeed::parse(speed).value();
  device.repeat = repeat;
  const std::uint64_t id = router::addReplayDevice(root_, device);
  fs::remove(device.recording);  // the root has a copy
  return id;
}

pid_t System::daemon() const {
  const auto status = platform::JobDaemon(root_).status();
  return status ? static_cast<pid_t>(status->daemonProcessIdentifier) : -1;
}

platform::JobStatus System::job() const {
  if (const auto status = platform::JobDaemon(root_).status()) {
    for (const auto& job : status->jobs) {
      if (job.label == WLHIDEventRouterLabel) return job;
    }
  }
  return {};
}

pid_t System::router() const {
  pid_t process = -1;
  const bool runs = eventually([&] {
    process = static_cast<pid_t>(job().processIdentifier);
    return process > 0;
  });
  return runs ? process : -1;
}

fs::path recordingPath(const std::string& name) {
  return fs::path(WLHID_SOURCE_DIR) / "recordings" / name;
}

// ---- Logs

void LogCounts::Counts::note(const platform::KQLogEntry& entry) {
  if (entry.message.ends_with("experienced an interruption")) interruptions.fetch_add(1);
  if (entry.message.ends_with("experienced an invalidation")) invalidations.fetch_add(1);
  if (entry.message.starts_with("Error(S)")) startErrors.fetch_add(1);
}

/// The machine's foundation, except for its log.
class LogCounts::Foundation final : public platform::ForwardingFoundationProvider {
 public:
  Foundation(std::shared_ptr<platform::FoundationProvider> machine, std::shared_ptr<Counts> counts)
      : ForwardingFoundationProvider(std::move(machine)), counts_(std::move(counts)) {}

  void log(std::string_view text) override {
    counts_->systemLines.fetch_add(1);
    if (prints_) ForwardingFoundationProvider::log(text);
  }

 private:
  const std::shared_ptr<Counts> counts_;
  const bool prints_ = ::getenv("WLHID_STRESS_LOG") != nullptr;
};

LogCounts::LogCounts(std::uint64_t level)
    : foundation_(platform::foundationProvider().load()), level_(platform::KQLogger::logLevel()) {
  platform::foundationProvider().exchange(std::make_shared<Foundation>(foundation_, counts_));
  sink_ = platform::KQLogger::sharedLogger().setSink(std::make_shared<platform::KQLogSink>(
      [counts = counts_](const platform::KQLogEntry& entry) { counts->note(entry); }));
  platform::KQLogger::setLogLevel(level);
}

LogCounts::~LogCounts() {
  platform::KQLogger::setLogLevel(level_);
  platform::KQLogger::sharedLogger().setSink(sink_);
  platform::foundationProvider().exchange(foundation_);
}

}  // namespace stress
