// SPDX-License-Identifier: Apache-2.0

// The devices that the router can route, and where they come from.
//
// A device source knows devices of one kind. The system's own root has the computer's HID devices
// (router/hidraw/HidrawSource.h) and nothing else. A user's root has replayed devices: each is a
// recording, configured by a property list <root>/etc/hideventrouter/<name>.plist:
//
//   Source     string   "replay"
//   Recording  string   name of a recording in the hid-recorder text format, a file in the
//                       directory "recordings" next to the configuration
//   Speed      string or number, optional: "1" (the default) plays at the recorded pace, "2"
//                       twice as fast, "max" as fast as the clients read, without loss
//   Repeat     boolean, optional: whether to start over at the end. Otherwise the clients'
//                       sessions end there, and the next client gets it from the beginning
//   Name       string, optional: replaces the name in the recording
//   Device     integer, optional: which device of a recording of several; default 0
//
// A replayed device's registry entry ID is derived from the source and the configuration, so every
// process that lists the same root gets the same IDs; a device whose configuration changes becomes
// another device. They are above 0x100000000, those of the computer's devices below.
//
// Adding a device copies its recording into the root. The original file does not matter from then
// on, and the router opens nothing outside the root.
//
// Threading: any thread.
// Order: by file name.
// Errors: an unusable configuration is left out of a listing and reported as one line,
//   "file: cause". DeviceError if a device cannot be added or opened.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "router/RouterLimits.h"
#include "router/StopSignal.h"
#include "router/policy/DeviceClass.h"

namespace router {

struct DeviceDescription {
  std::uint64_t registryEntryID = 0;
  std::string name;
  std::uint32_t bus = 0;  ///< the kernel's number: 3 USB, 5 Bluetooth, 0x18 I²C
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::string source;  ///< for messages: "replay NAME.hid", "hidraw0"
  // Only of the computer's devices; empty if unknown.
  std::string physicalPath = {};                ///< where it is connected
  std::string unique = {};                      ///< its serial number or address
  std::optional<std::uint32_t> interface = {};  ///< which interface of a USB device
  friend bool operator==(const DeviceDescription&, const DeviceDescription&) = default;
};

class DeviceError : public std::runtime_error {
 public:
  explicit DeviceError(const std::string& text, std::error_code code = {})
      : std::runtime_error(text), code_(code) {}
  /// The system's error, if there was one.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

/// An open device. One thread at a time.
class OpenDevice {
 public:
  enum class Next {
    Report,   ///< a report was read
    Stopped,  ///< the signal was raised
    Ended,    ///< a recording has been played to its end; the device can be opened again
    Gone,     ///< the device has been removed for good
  };

  virtual ~OpenDevice() = default;
  [[nodiscard]] virtual const std::vector<std::uint8_t>& reportDescriptor() const = 0;
  /// Whether reports wait until they are read, rather than arriving at their own pace.
  [[nodiscard]] virtual bool waitsForReaders() const = 0;
  /// Waits for the next report, whose bytes are valid until the next call.
  virtual Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) = 0;
  /// When the report that next() returned last reached the router.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point arrival() const {
    return std::chrono::steady_clock::now();
  }
  /// Reports that came faster than next() was called, and are lost.
  [[nodiscard]] virtual std::uint64_t lost() const { return 0; }
  /// From now on nobody else on this computer gets the device's input, until it is released or this
  /// object is destroyed. Throws DeviceError. A recording has no input that others could get.
  virtual void takeExclusively() {}
  virtual void releaseExclusive() {}
};

/// Notices that a source's devices may have changed. One thread at a time.
class DeviceWatch {
 public:
  virtual ~DeviceWatch() = default;
  /// Readable while there is something to take.
  [[nodiscard]] virtual int descriptor() const = 0;
  /// Takes what is there. Whether the devices may have changed.
  virtual bool take() = 0;
};

class DeviceSource {
 public:
  virtual ~DeviceSource() = default;
  virtual std::vector<DeviceDescription> list(std::vector<std::string>* returnProblems) const = 0;
  /// Null if the source has no such device; throws DeviceError if it has one that cannot be opened.
  [[nodiscard]] virtual std::unique_ptr<OpenDevice> open(std::uint64_t registryEntryID) const = 0;
  /// What is known of a device now; it may change while its drivers are being loaded. Nothing if
  /// the source has no such device, or only recordings, whose owner decides. Throws DeviceError if
  /// the device's source cannot be asked.
  [[nodiscard]] virtual std::optional<DeviceFacts> factsOf(
      std::uint64_t /*registryEntryID*/) const {
    return std::nullopt;
  }
  /// Nothing if the source has no such device, or cannot read it. Throws DeviceError if the
  /// device's source cannot be asked.
  [[nodiscard]] virtual std::optional<std::vector<std::uint8_t>> reportDescriptorOf(
      std::uint64_t registryEntryID) const {
    auto facts = factsOf(registryEntryID);
    if (!facts) return std::nullopt;
    return std::move(facts->reportDescriptor);
  }
  /// Notices every change from now on. Null if changes cannot be watched.
  [[nodiscard]] virtual std::unique_ptr<DeviceWatch> watch() const { return nullptr; }
  /// The same devices, to be asked about many of them: what was looked at once is not looked at
  /// again. Null if looking costs next to nothing.
  [[nodiscard]] virtual std::unique_ptr<DeviceSource> remembering() const { return nullptr; }
};

/// All device sources of a root: recordings on a user's, the computer's devices on the system's.
[[nodiscard]] std::vector<std::unique_ptr<DeviceSource>> deviceSources(
    const platform::SystemRoot& root, const RouterLimits& limits = {});

/// Every device of every source, those included that nobody may read yet. `returnProblems` may be
/// null.
[[nodiscard]] std::vector<DeviceDescription> listDevices(const platform::SystemRoot& root,
                                                         std::vector<std::string>* returnProblems);

/// How fast a recording is played.
struct ReplaySpeed {
  double factor = 1;     ///< 2 is twice as fast as recorded; ignored if `maximum`
  bool maximum = false;  ///< as fast as clients read

  /// "max", or a decimal number from 0.001 to 1000.
  static std::optional<ReplaySpeed> parse(std::string_view text);
  [[nodiscard]] std::string text() const;
  friend bool operator==(const ReplaySpeed&, const ReplaySpeed&) = default;
};

struct ReplayDevice {
  /// The file's name without ".plist"; if empty, derived from the recording's name.
  std::string configuration;
  /// When adding a device: the path of any file. In a configuration: the name of the copy.
  std::filesystem::path recording;
  ReplaySpeed speed;
  bool repeat = false;
  std::string name;          ///< if empty, the one in the recording
  std::uint32_t device = 0;  ///< which one, in a recording of several
  friend bool operator==(const ReplayDevice&, const ReplayDevice&) = default;
};

/// Copies the recording, writes the configuration and returns the device's new ID. If the device
/// names a configuration, that one and its copy are replaced. If the name is derived from the
/// recording's, nothing is replaced: the device gets another name, or is the existing one if a
/// configuration of that name already plays the same content with the same settings. Throws
/// DeviceError, and leaves nothing behind, if the recording cannot be played or copied, the name is
/// not a valid file name or the root is the system's own.
std::uint64_t addReplayDevice(const platform::SystemRoot& root, const ReplayDevice& device);

/// A configuration file, whether or not it yields a device.
struct ConfiguredDevice {
  std::string configuration;           ///< the file's name without ".plist"
  std::optional<ReplayDevice> device;  ///< empty if the file describes none
  DeviceDescription description;       ///< what is known of it; its ID if it has one
  std::string problem;                 ///< why no device is listed, as in a listing, or empty
};
[[nodiscard]] std::vector<ConfiguredDevice> configuredReplayDevices(
    const platform::SystemRoot& root);

/// Removes the configuration of that name, and then the copy that it plays unless another one plays
/// it too. False if it does not exist. Clients that have the device routed keep it until the
/// recording ends. Throws DeviceError if a file cannot be removed; a copy that is left over then
/// does no harm.
bool removeReplayDevice(const platform::SystemRoot& root, const std::string& configuration);

}  // namespace router
