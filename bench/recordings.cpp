// SPDX-License-Identifier: Apache-2.0

// Resident memory of a device that is a long recording, listed and played to its end, in a process
// of its own: 16 of them at once, after one that shows what the code itself takes.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/Roles.h"
#include "router/Devices.h"

namespace bench {
namespace {

constexpr std::size_t kDevices = 16;
constexpr std::uint32_t kReports = 60'000;
constexpr double kKiBInMiB = 1024;

/// In KiB: "VmRSS", what is resident now, or "VmHWM", the peak.
double memory(const std::string& key) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1));
  }
  throw std::runtime_error("cannot read " + key + " in /proc/self/status");
}

class RecordedRoot {
 public:
  RecordedRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wlhid-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary directory");
    directory_ = pattern;
    writeRecording();
    for (std::size_t i = 0; i < kDevices + 1; ++i) addDevice("device" + std::to_string(i));
  }
  RecordedRoot(const RecordedRoot&) = delete;
  RecordedRoot& operator=(const RecordedRoot&) = delete;
  ~RecordedRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  [[nodiscard]] std::string path() const { return directory_.string(); }

 private:
  [[nodiscard]] std::filesystem::path recording() const { return directory_ / "long.hid"; }
  void writeRecording() const {
    std::ofstream out(recording());
    out << "R: 17 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 c0\n"
           "N: A long one\nI: 3 0627 0001\n";
    std::array<char, 64> line{};
    for (std::uint32_t i = 0; i < kReports; ++i) {
      std::snprintf(line.data(), line.size(), "E: %06u.%06u 1 %02x\n", i / 125, i % 125 * 8000,
                    i & 0x7F);
      out << line.data();
    }
  }
  void addDevice(const std::string& name) const {
    router::ReplayDevice device;
    device.configuration = name;
    device.recording = recording();
    device.speed.maximum = true;
    router::addReplayDevice(platform::SystemRoot(directory_), device);
  }

  std::filesystem::path directory_;
};

void playToItsEnd(router::OpenDevice& device) {
  const router::StopSignal never;
  std::span<const std::uint8_t> report;
  std::uint32_t played = 0;
  while (device.next(never, &report) == router::OpenDevice::Next::Report) ++played;
  if (played != kReports) throw std::runtime_error("reports of a recording are missing");
}

/// Keeps `count` devices open until all have been played.
void playSome(const router::DeviceSource& source, std::size_t count) {
  const auto devices = source.list(nullptr);
  std::vector<std::unique_ptr<router::OpenDevice>> open;
  for (std::size_t i = 0; i < count; ++i)
    open.push_back(source.open(devices.at(i).registryEntryID));
  for (const auto& device : open) playToItsEnd(*device);
}

}  // namespace

int runRecordingsRole(const char* root) {
  try {
    const auto sources = router::deviceSources(platform::SystemRoot(root));
    playSome(*sources.front(), 1);
    const double before = memory("VmRSS");
    playSome(*sources.front(), kDevices);
    std::printf("%.0f %.0f\n", before, memory("VmHWM"));
  } catch (const std::exception& exception) {
    std::cerr << "wlhid-bench: " << exception.what() << '\n';
    return 1;
  }
  return 0;
}

void measureRecordings(Report& report) {
  const RecordedRoot root;
  const auto [before, most] = roleFigures<2>("recordings", root.path());
  report.add({"recording",
              "mib_each",
              (most - before) / kKiBInMiB / kDevices,
              1,
              /*atLeast=*/false,
              {"most_resident_kib", most},
              {"resident_before_kib", before}});
}

}  // namespace bench
