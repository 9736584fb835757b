// SPDX-License-Identifier: Apache-2.0

// Everything that the screen of the monitor says, apart from the device's own input.
//
// Threading: one thread at a time.
// Ownership: the model is the caller's, and may be null.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tool/measuring/Latency.h"
#include "tool/monitor/DeviceModel.h"
#include "tool/routing/RouteSummary.h"

namespace tool::monitor {

/// What is shown: everything that fits, or one thing alone.
enum class View { All, Devices, Elements, Path, Board, Reports };

struct ListedDevice {
  std::uint64_t id = 0;
  std::string name;
  std::string what;         ///< "Mouse"
  std::string deviceClass;  ///< "sensitive"
  std::string state;        ///< "yours", "routing"
};

enum class Health { Good, Waiting, Bad };

struct Shown {
  // The list.
  std::vector<ListedDevice> devices;
  std::size_t cursor = 0;
  std::optional<std::uint64_t> open;  ///< the device whose input is shown
  std::string noDevices;              ///< why the list is empty, or not up to date

  // The device.
  std::string name;
  Health health = Health::Waiting;
  std::string state;  ///< "routing"
  std::string since;  ///< "12:03:04 (5 min)"
  const DeviceModel* model = nullptr;
  std::deque<RawReport> reports;  ///< the latest
  Time now{};
  std::optional<Losses> lost;             ///< by the router, while it was shown
  std::optional<LatencyFigures> latency;  ///< of its reports; nothing if unknown
  std::uint64_t leftOut = 0;              ///< that came but are not shown

  // What is done with it.
  bool isPaused = false;
  std::size_t waiting = 0;
  bool isExclusive = false;
  bool isRecording = false;
  std::uint64_t recorded = 0;  ///< reports

  // The screen.
  View view = View::All;
  bool hasHelp = false;
  std::size_t scroll = 0;  ///< elements above the first that is shown
  std::string message;
};

}  // namespace tool::monitor
