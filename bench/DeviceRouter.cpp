// SPDX-License-Identifier: Apache-2.0

#include "bench/DeviceRouter.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "platform/services/SystemRoot.h"
#include "platform/xpc/NSXPCListener.h"
#include "router/Devices.h"
#include "router/Router.h"

namespace bench {
namespace {

constexpr const char* kMouse =
    "R: 64 05 01 09 02 a1 01 09 01 a1 00 05 09 19 01 29 08 15 00 25 01 75 01 95 08 81 02"
    " 05 01 09 30 09 31 16 01 80 26 ff 7f 75 10 95 02 81 06"
    " 09 38 15 81 25 7f 75 08 95 01 81 06 75 10 95 01 81 03 c0 c0\nN: A mouse\nI: 3 0627 0001\n";

/// One second of a mouse that changes its direction with every report.
void writeMouse(const std::filesystem::path& path, std::uint32_t perSecond) {
  std::ofstream out(path);
  out << kMouse;
  std::array<char, 64> line{};
  for (std::uint32_t i = 0; i < perSecond; ++i) {
    std::snprintf(line.data(), line.size(), "E: 0.%06u 8 00 %02x 00 %02x 00 00 00 00\n",
                  i * (1'000'000 / perSecond), i % 100 + 1, (i + 50) % 100 + 1);
    out << line.data();
  }
}

}  // namespace

DeviceRouterProcess::DeviceRouterProcess(std::uint16_t perSecond) {
  const std::filesystem::path recording = directory() / "mouse.hid";
  writeMouse(recording, perSecond);
  router::ReplayDevice device;
  device.configuration = "mouse";
  device.recording = recording;
  device.repeat = true;
  registryEntryID_ = router::addReplayDevice(platform::SystemRoot(directory()), device);
  start({"--role=device-router", directory()}, {endpoint()});
}

int runDeviceRouterRole(const char* root) {
  const auto listener = platform::NSXPCListener::initWithListeningDescriptor(kLayerDescriptor);
  router::RouterOptions options;
  options.log = [](std::string_view) {};
  options.idleLimit = std::chrono::hours(1);
  router::Router router(platform::SystemRoot(root), listener, options);
  router.resume();
  for (;;) ::pause();
}

}  // namespace bench
