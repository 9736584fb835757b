// SPDX-License-Identifier: Apache-2.0

// The input of one device, for as long as an object lives:
//
//   wlhid::Input input({.device = id},
//                      {.report = [](const wlhid::Report& report) { draw(report.bytes); },
//                       .status = [](const wlhid::Status& status) { show(status.text); }});
//
// It goes on by itself: after the router's death, an update, a removal and reinstallation by
// another program; after the device was unplugged and plugged in again; when the person is back in
// front of the computer. Meanwhile `status` says what it is doing. It does nothing that a
// WLHIDEventRouterClient could not do, and uses one; both can be used side by side.
//
// Threading: any thread. The callbacks of one object come one at a time, on threads of the
//   library's. A slow one holds up this object's input and nothing else.
// Ownership: spans are valid during the callback. From the destructor on no callback begins; one
//   that is running on another thread is waited for. A callback may destroy its own object.
// Errors: `status` tells what cannot be helped. A callback must not throw.
// Order: reports as the device sent them; the values of a report after it. A status comes before
//   what follows from it.
// Forks: an object belongs to the process that created it; a child does not use it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "WLHIDAccess/InputDevices.h"
#include "WLHIDAccess/InputRouter.h"
#include "WLHIDAccess/InputWords.h"
#include "platform/foundation/Export.h"

class WLHIDEventRouterClient;

namespace wlhid {

struct Report {
  std::uint32_t id = 0;              ///< 0 if the device does not number its reports
  std::span<const std::byte> bytes;  ///< as sent, with the ID in front if there is one
  /// When it arrived in this process.
  std::chrono::steady_clock::time_point time;
  std::uint64_t number = 0;  ///< from 1, since the input began or went on
};

struct Value {
  Usage usage;
  std::uint32_t reportID = 0;
  std::uint64_t cookie = 0;  ///< identifies the element within the device
  std::int64_t value = 0;
  std::span<const std::byte> bytes;  ///< the field as it is in the report
};

enum class InputState {
  Connecting,        ///< the router has been asked for the device
  WaitingForRouter,  ///< none is installed, or another version
  WaitingForDevice,  ///< it is not connected
  Routing,           ///< input is coming
  Reconnecting,      ///< the router or the device failed; another attempt is made
  NotAllowed,        ///< somebody said no; when that may have changed, another attempt is made
  Ended,             ///< for good: a recording is over, or an administrator ended it
  Stopped,           ///< no attempt can help: the request itself is wrong
};
/// "connecting", "waiting for the router", …
[[nodiscard]] WLHID_EXPORT const char* nameOf(InputState state);

struct Status {
  InputState state = InputState::Connecting;
  std::string text;  ///< for people: "not allowed: the login session is not active"
  std::chrono::system_clock::time_point since;
  std::optional<Error> error = {};    ///< the router's last one, if the state is because of it
  std::optional<Device> device = {};  ///< that was found
};

struct InputOptions {
  std::uint64_t device = 0;  ///< registry entry ID; 0: the first that `which` admits
  DeviceFilter which = {};
  bool isExclusive = false;        ///< nobody else is to get the device's input meanwhile
  std::vector<Usage> usages = {};  ///< only their values; none: all. Reports come whole
};

struct InputHandlers {
  std::function<void(const Report& report)> report = {};
  std::function<void(std::span<const Value> values)> values = {};
  std::function<void(const Status& status)> status = {};
};

/// The same for a class. Held weakly.
class WLHID_EXPORT InputDelegate {
 public:
  virtual ~InputDelegate() = default;
  virtual void received(const Report& /*report*/) {}
  virtual void received(std::span<const Value> /*values*/) {}
  virtual void changed(const Status& /*status*/) {}
};

class WLHID_EXPORT Input {
 public:
  Input(InputOptions options, InputHandlers handlers);
  Input(InputOptions options, const std::weak_ptr<InputDelegate>& delegate);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  [[nodiscard]] Status status() const;
  /// Tries again at once, also where it would wait or has given up; a person may be asked.
  void retry();
  /// The client that is in use; null while there is none.
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClient> client() const;

  class Implementation;

 private:
  const std::shared_ptr<Implementation> implementation_;
};

}  // namespace wlhid
