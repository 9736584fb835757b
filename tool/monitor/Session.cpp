// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Session.h"

#include <exception>
#include <utility>

#include "platform/services/SystemRoot.h"
#include "router/policy/DeviceClass.h"
#include "tool/command/Command.h"
#include "tool/monitor/Since.h"
#include "tool/routing/LatencyWatch.h"
#include "tool/routing/RouteSummary.h"

namespace tool::monitor {

namespace {

using SystemClock = std::chrono::system_clock;

/// The router answers two questions a second, and others of the user's may have some too.
constexpr Time kCountInterval = std::chrono::milliseconds(1500);
/// Nobody reads a list that changes more often, and most of what a screen costs is what changes.
constexpr Time kReportsInterval = std::chrono::milliseconds(200);
constexpr Time kMessageTime = std::chrono::seconds(6);
/// The router answers this at once or not at all.
constexpr std::chrono::milliseconds kDescriptorLimit{2000};

Health healthOf(wlhid::InputState state) {
  switch (state) {
    case wlhid::InputState::Routing:
      return Health::Good;
    case wlhid::InputState::NotAllowed:
    case wlhid::InputState::Ended:
    case wlhid::InputState::Stopped:
      return Health::Bad;
    default:
      return Health::Waiting;
  }
}

router::DeviceDescription descriptionOf(const wlhid::Device& device) {
  return {device.id,     device.name, device.bus,    device.vendor,   device.product,
          device.source, device.path, device.serial, device.interface};
}

}  // namespace

struct Session::Seen {
  explicit Seen(std::vector<std::uint8_t> bytes)
      : descriptor(std::move(bytes)), model(descriptor), feed(model) {}

  const std::vector<std::uint8_t> descriptor;  // empty: not known yet
  DeviceModel model;
  Feed feed;
};

struct Session::OpenDevice {
  std::unique_ptr<Seen> seen;
  bool mustReadDescriptor = false;
  wlhid::Status status;
  wlhid::Device device;
  LossWatch losses{platform::SystemRoot::current()};
  std::shared_ptr<LatencyWatch> latency;
  std::unique_ptr<wlhid::Input> input;
};

Session::Session(bool recordsSensitive) : recordsSensitive_(recordsSensitive) {
  shown_.noDevices = "asking the router";
  watchDevices();
}

Session::~Session() = default;

Time Session::now() const {
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - beginning_);
}

/// Runs on the session's thread what a thread of the library's tells.
void Session::watchDevices() {
  const auto told = [this](void (DeviceList::*change)(const wlhid::Device&)) {
    return [this, change](const wlhid::Device& device) {
      inbox_->add([this, change, device] {
        (list_.*change)(device);
        shown_.noDevices.clear();
        showList();
      });
    };
  };
  wlhid::DeviceWatchHandlers handlers;
  handlers.listed = [this](const std::vector<wlhid::Device>& devices) {
    inbox_->add([this, devices] {
      list_.set(devices);
      shown_.noDevices.clear();
      showList();
    });
  };
  handlers.arrived = handlers.changed = told(&DeviceList::put);
  handlers.departed = [this](const wlhid::Device& device) {
    inbox_->add([this, device] {
      list_.remove(device.id);
      say("unplugged: " + device.name);
      showList();
    });
  };
  handlers.unavailable = [this](const std::string& why) {
    inbox_->add([this, why] { shown_.noDevices = why; });
  };
  watch_ = std::make_unique<wlhid::DeviceWatch>(std::move(handlers));
}

void Session::showList() {
  list_.showIn(shown_, open_ == nullptr ? std::string() : nameOf(open_->status.state));
}

void Session::open(std::uint64_t device) {
  if (open_ != nullptr && shown_.open == device && open_->input != nullptr)
    return open_->input->retry();
  if (const std::string recorded = finishRecording(); !recorded.empty()) say(recorded);
  setUpDevice(device);
  shown_.open = device;
  shown_.isExclusive = false;
  shown_.isPaused = false;
  shown_.scroll = 0;
  shown_.view = View::All;
  connect(device);
}

void Session::setUpDevice(std::uint64_t device) {
  shown_.model = nullptr;
  open_ = std::make_unique<OpenDevice>();
  if (const wlhid::Device* const known = list_.find(device)) open_->device = *known;
  open_->device.id = device;
  leftOut_ = 0;
  shown_.name = open_->device.name;
  readDescriptor();
}

/// Of a device whose descriptor is not to be had yet, reports alone are shown.
void Session::readDescriptor() {
  open_->mustReadDescriptor = false;
  std::vector<std::uint8_t> descriptor;
  try {
    for (const std::byte each : wlhid::reportDescriptor(open_->device.id, kDescriptorLimit))
      descriptor.push_back(std::to_integer<std::uint8_t>(each));
  } catch (const wlhid::Error& error) {
    say(std::string("the elements are not known: ") + error.what());
    if (open_->seen != nullptr) return;
  }
  shown_.model = nullptr;
  open_->seen = std::make_unique<Seen>(std::move(descriptor));
  shown_.model = &open_->seen->model;
  shown_.reports.clear();
  nextReports_ = {};
}

/// What an input that is gone has told is dropped.
void Session::connect(std::uint64_t device) {
  open_->input = nullptr;
  takeNews();
  wlhid::InputHandlers handlers;
  open_->latency = std::make_shared<LatencyWatch>();
  handlers.report = [inbox = inbox_, beginning = beginning_,
                     latency = open_->latency](const wlhid::Report& report) {
    latency->arrived(report.number, report.time);
    inbox->add(std::chrono::duration_cast<Time>(report.time - beginning), report.bytes);
  };
  handlers.status = [this, number = ++inputs_](const wlhid::Status& status) {
    inbox_->add([this, number, status] {
      if (number == inputs_) changed(status);
    });
  };
  open_->input = std::make_unique<wlhid::Input>(
      wlhid::InputOptions{.device = device, .isExclusive = shown_.isExclusive},
      std::move(handlers));
  changed(open_->input->status());
}

void Session::changed(const wlhid::Status& status) {
  if (open_ == nullptr) return;
  open_->status = status;
  if (status.device) {
    open_->device = *status.device;
    if (!status.device->name.empty()) shown_.name = status.device->name;
    shown_.open = status.device->id;
  }
  if (status.state == wlhid::InputState::Routing) shown_.noDevices.clear();
  open_->mustReadDescriptor =
      status.state == wlhid::InputState::Routing && open_->seen->descriptor.empty();
  shown_.health = healthOf(status.state);
  shown_.state = status.text;
  showList();
}

void Session::takeNews() {
  inbox_->takeInto(news_);
  for (const Inbox::Event& event : news_.events) event();
  for (const Inbox::Report& report : news_.reports) takeReport(report.time, news_.bytesOf(report));
  leftOut_ += news_.leftOut;
  if (recorder_ == nullptr) return;
  try {
    recorder_->write();
    shown_.recorded = recorder_->reports();
  } catch (const Failure& failure) {
    recorder_ = nullptr;
    say(failure.what());
  }
}

void Session::takeReport(Time time, std::span<const std::uint8_t> report) {
  if (open_ == nullptr || open_->input == nullptr) return;
  if (recorder_ != nullptr) recorder_->take(time, report);
  open_->seen->feed.take(time, report);
}

void Session::tick() {
  const Time time = now();
  if (time >= messageUntil_) shown_.message.clear();
  shown_.isRecording = recorder_ != nullptr;
  shown_.now = time;
  if (open_ == nullptr) return;
  if (open_->mustReadDescriptor) readDescriptor();
  const Feed& feed = open_->seen->feed;
  shown_.since = sinceText(open_->status.since, SystemClock::now());
  shown_.now = feed.shownAt(time);
  shown_.isPaused = feed.isPaused();
  shown_.waiting = feed.waiting();
  shown_.leftOut = leftOut_ + feed.leftOut();
  showReports(time);
  if (time < nextLossCount_) return;
  nextLossCount_ = time + kCountInterval;
  shown_.lost = open_->losses.losses();
  measureLatency();
}

/// While it is paused each step counts.
void Session::showReports(Time time) {
  if (time < nextReports_ && !shown_.isPaused) return;
  nextReports_ = time + kReportsInterval;
  shown_.reports = open_->seen->model.reports().latest();
}

void Session::measureLatency() {
  shown_.latency = std::nullopt;
  if (open_->latency == nullptr || !shown_.open) return;
  open_->latency->ask(*shown_.open);
  shown_.latency = open_->latency->figures();
}

void Session::say(const std::string& message) {
  shown_.message = message;
  messageUntil_ = now() + kMessageTime;
}

bool Session::isOver() const {
  return open_ != nullptr && (open_->status.state == wlhid::InputState::Ended ||
                              open_->status.state == wlhid::InputState::Stopped);
}

void Session::grant(Wish wish) {
  shown_.message.clear();
  switch (wish) {
    case Wish::Open:
      if (shown_.cursor < shown_.devices.size()) open(shown_.devices[shown_.cursor].id);
      return;
    case Wish::Pause:
      return pauseOrGoOn();
    case Wish::Step:
      open_->seen->feed.pause(now());
      return open_->seen->feed.step();
    case Wish::Record:
      return recordOrStop();
    case Wish::Exclusive:
      shown_.isExclusive = !shown_.isExclusive;
      return connect(*shown_.open);
    case Wish::Nothing:
    case Wish::Quit:
    case Wish::Suspend:
      return;
  }
}

void Session::pauseOrGoOn() {
  Feed& feed = open_->seen->feed;
  if (feed.isPaused())
    feed.resume();
  else
    feed.pause(now());
}

void Session::recordOrStop() {
  if (const std::string recorded = finishRecording(); !recorded.empty()) return say(recorded);
  try {
    startRecording();
  } catch (const Failure& failure) {
    say(failure.what());
  }
}

/// The class that the router has said, or the one that the descriptor gives, as where there are no
/// classes the person still has to know what the file will hold.
void Session::startRecording() {
  const std::vector<std::uint8_t>& descriptor = open_->seen->descriptor;
  if (descriptor.empty()) throw Failure("without a report descriptor nothing is recorded");
  router::DeviceFacts facts;
  facts.reportDescriptor = descriptor;
  const wlhid::Device& device = open_->device;
  const bool isSensitive = device.deviceClass == wlhid::DeviceClass::Sensitive ||
                           (device.deviceClass == wlhid::DeviceClass::None &&
                            router::classify(facts).deviceClass == router::DeviceClass::Sensitive);
  if (isSensitive && !recordsSensitive_) {
    throw Failure(
        "sensitive: a recording would hold all its input; wlhid monitor --sensitive allows it");
  }
  const std::string file = recordingName(device.name, SystemClock::to_time_t(SystemClock::now()));
  recorder_ = std::make_unique<Recorder>(file, descriptionOf(device), descriptor);
  shown_.recorded = 0;
  say("recording to " + file);
}

std::string Session::finishRecording() {
  if (recorder_ == nullptr) return {};
  const auto finished = std::exchange(recorder_, nullptr);
  try {
    return finished->finish();
  } catch (const Failure& failure) {
    return failure.what();
  }
}

}  // namespace tool::monitor
