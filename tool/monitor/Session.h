// SPDX-License-Identifier: Apache-2.0

// The monitor without its screen: watches the devices, receives the input of one, records it, and
// knows what there is to show.
//
// Threading: one thread; what the library's threads tell waits in an inbox.
// Ownership: owns watch, input and recording, which end with it.
// Errors: become a message on the screen; Failure where an object cannot be made.
// Order: takeNews() and tick() again and again.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "WLHIDAccess/Input.h"
#include "tool/monitor/DeviceList.h"
#include "tool/monitor/Feed.h"
#include "tool/monitor/Inbox.h"
#include "tool/monitor/Recorder.h"
#include "tool/monitor/Shown.h"
#include "tool/monitor/Steering.h"

namespace tool::monitor {

class Session {
 public:
  /// `recordsSensitive`: a recording may hold input that can be secret.
  explicit Session(bool recordsSensitive);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void open(std::uint64_t device);
  /// Anything but Quit and Suspend.
  void grant(Wish wish);

  /// Readable while there is news.
  [[nodiscard]] int descriptor() const { return inbox_->descriptor(); }
  void takeNews();
  /// Brings up to date what changes with time alone.
  void tick();
  void say(const std::string& message);

  [[nodiscard]] Shown& shown() { return shown_; }
  [[nodiscard]] bool isOver() const;
  /// Ends a recording, and says what became of it; empty if there was none.
  [[nodiscard]] std::string finishRecording();

 private:
  struct Seen;
  struct OpenDevice;

  void watchDevices();
  void setUpDevice(std::uint64_t device);
  void readDescriptor();
  void connect(std::uint64_t device);
  void changed(const wlhid::Status& status);
  void showList();
  void takeReport(Time time, std::span<const std::uint8_t> report);
  void pauseOrGoOn();
  void recordOrStop();
  void startRecording();
  void showReports(Time time);
  void measureLatency();
  [[nodiscard]] Time now() const;

  const bool recordsSensitive_;
  const std::chrono::steady_clock::time_point beginning_ = std::chrono::steady_clock::now();
  const std::shared_ptr<Inbox> inbox_ = std::make_shared<Inbox>();
  Inbox::News news_;
  Shown shown_;
  DeviceList list_;
  std::unique_ptr<OpenDevice> open_;
  std::uint64_t inputs_ = 0;   // so far; the last one is in use
  std::uint64_t leftOut_ = 0;  // reports of the open device for which the inbox had no room
  std::unique_ptr<Recorder> recorder_;
  Time messageUntil_{};
  Time nextReports_{};
  Time nextLossCount_{};
  std::unique_ptr<wlhid::DeviceWatch> watch_;  // ends first
};

}  // namespace tool::monitor
