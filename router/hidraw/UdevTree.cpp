// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/UdevTree.h"

#include <fcntl.h>
#include <libudev.h>

#include <cerrno>
#include <memory>
#include <system_error>

#include "router/DeviceFiles.h"
#include "router/Devices.h"
#include "router/RouterLimits.h"
#include "router/hidraw/TrustedDirectory.h"

namespace router {

namespace {

struct Release {
  void operator()(udev* object) const { udev_unref(object); }
  void operator()(udev_device* object) const { udev_device_unref(object); }
  void operator()(udev_enumerate* object) const { udev_enumerate_unref(object); }
};
using Udev = std::unique_ptr<udev, Release>;
using UdevDevice = std::unique_ptr<udev_device, Release>;
using UdevEnumerate = std::unique_ptr<udev_enumerate, Release>;

[[noreturn]] void failToList(int error) {
  const std::error_code code(error, std::generic_category());
  throw DeviceError("the computer's devices cannot be listed: " + code.message(), code);
}

/// libudev returns negative error numbers.
void check(int result) {
  if (result < 0) failToList(-result);
}

Udev openUdev() {
  Udev opened(udev_new());
  if (opened == nullptr) failToList(errno);
  return opened;
}

std::string orEmpty(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

SystemDevice describe(udev_device* device) {
  SystemDevice result;
  result.path = orEmpty(udev_device_get_syspath(device));
  result.name = orEmpty(udev_device_get_sysname(device));
  result.subsystem = orEmpty(udev_device_get_subsystem(device));
  result.type = orEmpty(udev_device_get_devtype(device));
  result.node = orEmpty(udev_device_get_devnode(device));
  result.number = udev_device_get_devnum(device);
  result.isInitialized = udev_device_get_is_initialized(device) > 0;
  result.age = std::chrono::microseconds(udev_device_get_usec_since_initialized(device));
  udev_list_entry* entry = nullptr;
  udev_list_entry_foreach(entry, udev_device_get_properties_list_entry(device)) {
    result.properties[orEmpty(udev_list_entry_get_name(entry))] =
        orEmpty(udev_list_entry_get_value(entry));
  }
  return result;
}

/// Null if there is no such device.
UdevDevice deviceAt(udev* udev, const std::string& path) {
  return UdevDevice(udev_device_new_from_syspath(udev, path.c_str()));
}

std::vector<SystemDevice> scan(udev* udev, udev_enumerate* enumerate) {
  check(udev_enumerate_scan_devices(enumerate));
  std::vector<SystemDevice> found;
  udev_list_entry* entry = nullptr;
  udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate)) {
    const UdevDevice device = deviceAt(udev, orEmpty(udev_list_entry_get_name(entry)));
    if (device != nullptr) found.push_back(describe(device.get()));
  }
  return found;
}

/// The file's content; nothing if it is empty, too large or unreadable.
std::optional<std::vector<std::uint8_t>> contentOf(const std::string& path, std::size_t limit) try {
  const TrustedPlace place = openDirectoryOf(path, "/sys");
  const platform::FileDescriptor file(::openat(place.directory.get(), place.name.c_str(),
                                               O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!file) return std::nullopt;
  std::string bytes(limit + 1, '\0');
  bytes.resize(readFile(file.get(), bytes));
  if (bytes.empty() || bytes.size() > limit) return std::nullopt;
  return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
} catch (const std::system_error&) {
  return std::nullopt;
} catch (const FileError&) {
  return std::nullopt;
}

}  // namespace

std::vector<SystemDevice> UdevTree::initialized(const std::string& subsystem) const {
  const Udev udev = openUdev();
  const UdevEnumerate enumerate(udev_enumerate_new(udev.get()));
  if (enumerate == nullptr) failToList(errno);
  check(udev_enumerate_add_match_subsystem(enumerate.get(), subsystem.c_str()));
  check(udev_enumerate_add_match_is_initialized(enumerate.get()));
  return scan(udev.get(), enumerate.get());
}

std::vector<SystemDevice> UdevTree::below(const std::string& path,
                                          const std::string& subsystem) const {
  const Udev udev = openUdev();
  const UdevDevice parent = deviceAt(udev.get(), path);
  if (parent == nullptr) return {};
  const UdevEnumerate enumerate(udev_enumerate_new(udev.get()));
  if (enumerate == nullptr) failToList(errno);
  check(udev_enumerate_add_match_parent(enumerate.get(), parent.get()));
  check(udev_enumerate_add_match_subsystem(enumerate.get(), subsystem.c_str()));
  auto found = scan(udev.get(), enumerate.get());
  std::erase_if(found, [&](const SystemDevice& each) { return each.path == path; });
  return found;
}

std::optional<SystemDevice> UdevTree::parentOf(const std::string& path) const {
  const Udev udev = openUdev();
  const UdevDevice device = deviceAt(udev.get(), path);
  // It belongs to the device below it.
  udev_device* const parent = device == nullptr ? nullptr : udev_device_get_parent(device.get());
  return parent == nullptr ? std::nullopt : std::optional(describe(parent));
}

std::optional<SystemDevice> UdevTree::ancestorOf(const std::string& path,
                                                 const std::string& subsystem,
                                                 const std::string& type) const {
  const Udev udev = openUdev();
  const UdevDevice device = deviceAt(udev.get(), path);
  if (device == nullptr) return std::nullopt;
  udev_device* const found = udev_device_get_parent_with_subsystem_devtype(
      device.get(), subsystem.c_str(), type.empty() ? nullptr : type.c_str());
  return found == nullptr ? std::nullopt : std::optional(describe(found));
}

std::optional<SystemDevice> UdevTree::withNumber(dev_t number) const {
  const Udev udev = openUdev();
  const UdevDevice device(udev_device_new_from_devnum(udev.get(), 'c', number));
  return device == nullptr ? std::nullopt : std::optional(describe(device.get()));
}

std::optional<std::string> UdevTree::attribute(const std::string& path,
                                               const std::string& name) const {
  const Udev udev = openUdev();
  const UdevDevice device = deviceAt(udev.get(), path);
  const char* const value =
      device == nullptr ? nullptr : udev_device_get_sysattr_value(device.get(), name.c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::optional<std::vector<std::uint8_t>> UdevTree::reportDescriptor(const std::string& path) const {
  return contentOf(path + "/report_descriptor", RouterLimits::kDescriptorBytes);
}

}  // namespace router
