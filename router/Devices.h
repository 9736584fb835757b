// The devices that the router can route, and where they come from.
//
// A device source knows devices of one kind. There is one so far, the replay source: each of its
// devices is a recording, configured by a property list <root>/etc/hideventrouter/<name>.plist:
//
//   Source     string   "replay"
//   Recording  string   name of a recording in the hid-recorder text format, a file in the
//   directory
//              "recordings" beside the configuration
//   Speed      string or number, optional: "1" (the default) plays at the recorded pace, "2" at
//              twice that, "max" as fast as the clients take it, without loss
//   Repeat     boolean, optional: whether it begins again at its end; else its clients' sessions
//              end there, and the next client hears it from its beginning
//   Name       string, optional: instead of the name in the recording
//   Device     integer, optional: which device of a recording that holds several; 0 by default
//
// Registry entry IDs follow from the source and the configuration, so every process that lists the
// same root finds the same IDs; a device whose configuration changes is another device. Replayed
// devices have IDs above 0x100000000.
//
// Adding a device copies its recording into the root. What becomes of the file that was added does
// not matter from then on, and the router opens nothing outside the root.
//
// Threading: any thread. Ownership: values. Order: by file name.
// Errors: a configuration that cannot be used is left out of a listing and reported as one line
//   "file: cause". DeviceError where a device cannot be added or opened.
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

namespace router {

struct DeviceDescription {
  std::uint64_t registryEntryID = 0;
  std::string name;
  std::uint32_t bus = 0;  ///< as the kernel numbers them: 3 USB, 5 Bluetooth, 0x18 I²C
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::string source;  ///< what it comes from, for people: "replay NAME.hid"
  friend bool operator==(const DeviceDescription&, const DeviceDescription&) = default;
};

class DeviceError : public std::runtime_error {
 public:
  explicit DeviceError(const std::string& text, std::error_code code = {})
      : std::runtime_error(text), code_(code) {}
  /// Why the system refused, where it did.
  [[nodiscard]] const std::error_code& code() const { return code_; }

 private:
  std::error_code code_;
};

/// An open device. One thread at a time.
class OpenDevice {
 public:
  enum class Next {
    Report,   ///< there is one
    Stopped,  ///< the signal was raised
    Ended,    ///< a recording has been played to its end; the device can be opened again
    Gone,     ///< the device has gone away for good
  };

  virtual ~OpenDevice() = default;
  [[nodiscard]] virtual const std::vector<std::uint8_t>& reportDescriptor() const = 0;
  /// Whether reports wait for their readers rather than come when they come.
  [[nodiscard]] virtual bool waitsForReaders() const = 0;
  /// Waits for the next report, whose bytes live until the next call.
  virtual Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) = 0;
};

class DeviceSource {
 public:
  virtual ~DeviceSource() = default;
  virtual std::vector<DeviceDescription> list(std::vector<std::string>* returnProblems) const = 0;
  /// Null when the source has no such device; throws DeviceError when it has one that cannot be
  /// opened.
  [[nodiscard]] virtual std::unique_ptr<OpenDevice> open(std::uint64_t registryEntryID) const = 0;
};

/// The sources of a root.
[[nodiscard]] std::vector<std::unique_ptr<DeviceSource>> deviceSources(
    const platform::SystemRoot& root, const RouterLimits& limits = {});

/// Every device of every source. `returnProblems` may be null.
[[nodiscard]] std::vector<DeviceDescription> listDevices(const platform::SystemRoot& root,
                                                         std::vector<std::string>* returnProblems);

/// How fast a recording is played.
struct ReplaySpeed {
  double factor = 1;     ///< 2 is twice as fast as recorded; of no meaning where `maximum`
  bool maximum = false;  ///< as fast as it is taken

  /// "max", or a decimal number from 0.001 to 1000.
  static std::optional<ReplaySpeed> parse(std::string_view text);
  [[nodiscard]] std::string text() const;
  friend bool operator==(const ReplaySpeed&, const ReplaySpeed&) = default;
};

struct ReplayDevice {
  /// The file's name without ".plist"; empty: made from the recording's name.
  std::string configuration;
  /// What is added: a file, wherever it lies. Of a configuration: the name of its copy.
  std::filesystem::path recording;
  ReplaySpeed speed;
  bool repeat = false;
  std::string name;          ///< empty: the one in the recording
  std::uint32_t device = 0;  ///< of a recording that holds several
  friend bool operator==(const ReplayDevice&, const ReplayDevice&) = default;
};

/// Copies the recording, writes the configuration and returns the ID that the device has from now
/// on. A configuration that the device names is replaced, and so is its copy; one whose name is
/// made from the recording's never is: the device gets another name, or, where the same settings
/// play a recording of that name and content already, is that one. Throws DeviceError, with nothing
/// left behind, when the recording cannot be played or copied or the name is none for a file.
std::uint64_t addReplayDevice(const platform::SystemRoot& root, const ReplayDevice& device);

/// A configuration file, whether or not a device comes of it.
struct ConfiguredDevice {
  std::string configuration;           ///< the file's name without ".plist"
  std::optional<ReplayDevice> device;  ///< nothing where the file says none
  DeviceDescription description;       ///< with what is known of it; its ID where it has one
  std::string problem;                 ///< why no device is listed, as in a listing; else empty
};
[[nodiscard]] std::vector<ConfiguredDevice> configuredReplayDevices(
    const platform::SystemRoot& root);

/// Removes the configuration of that name, and then the copy that it plays, unless another one does
/// too; false when there is none. Whoever routes its device goes on until it has been played.
/// Throws DeviceError when a file cannot be removed; a copy that is left then is in nobody's way.
bool removeReplayDevice(const platform::SystemRoot& root, const std::string& configuration);

}  // namespace router
