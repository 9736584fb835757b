// SPDX-License-Identifier: Apache-2.0

// A root for one test, with recordings to add and the copies made of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "router/Devices.h"
#include "tests/support/TemporaryDirectory.h"

inline constexpr const char* kRecording =
    "R: 17 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 c0\n"
    "N: A Mouse\nI: 3 0627 0001\n"
    "E: 000000.000000 1 01\nE: 000000.000100 1 02\nE: 000000.000200 1 03\n";

class ReplayTest : public testing::Test {
 protected:
  std::filesystem::path write(const std::filesystem::path& name, const std::string& text) const {
    const std::filesystem::path path = directory_ / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  void configure(const std::string& name,
                 std::vector<platform::NSDictionary::Entry> entries) const {
    const auto data = platform::NSPropertyListSerialization::dataWithPropertyList_format_error(
        platform::NSDictionary::dictionaryWithEntries(std::move(entries)),
        platform::NSPropertyListFormat::XML, nullptr);
    write("etc/hideventrouter/" + name, std::string(data->span().begin(), data->span().end()));
  }
  /// Where the router keeps its copies.
  std::filesystem::path recordings() const { return directory_ / "etc/hideventrouter/recordings"; }
  std::filesystem::path writeCopy(const std::string& name, const std::string& text) const {
    return write(recordings() / name, text);
  }
  void configureReplay(const std::string& name, const std::string& recording) const {
    configure(name + ".plist", {{platform::str("Source"), platform::str("replay")},
                                {platform::str("Recording"), platform::str(recording)}});
  }
  std::uint64_t add(const std::filesystem::path& recording,
                    const std::string& configuration = {}) const {
    router::ReplayDevice device;
    device.recording = recording;
    device.configuration = configuration;
    return router::addReplayDevice(root(), device);
  }
  /// The error of adding that device.
  std::string refusalOf(const std::filesystem::path& recording,
                        const std::string& configuration = {}) const {
    try {
      add(recording, configuration);
    } catch (const router::DeviceError& error) {
      return error.what();
    }
    return "added";
  }
  std::vector<std::string> copies() const {
    std::vector<std::string> names;
    if (std::filesystem::exists(recordings())) {
      for (const auto& entry : std::filesystem::directory_iterator(recordings()))
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static std::string contentOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  platform::SystemRoot root() const { return platform::SystemRoot(directory_); }
  std::vector<router::DeviceDescription> list() {
    problems_.clear();
    return router::listDevices(root(), &problems_);
  }
  std::unique_ptr<router::OpenDevice> open(std::uint64_t id) const {
    return router::deviceSources(root()).front()->open(id);
  }

  const testsupport::TemporaryDirectory temporary_;
  const std::filesystem::path& directory_ = temporary_.path();
  const std::filesystem::path recording_ = write("mouse.hid", kRecording);
  std::vector<std::string> problems_;
};
