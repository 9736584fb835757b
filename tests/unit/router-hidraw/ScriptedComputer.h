// SPDX-License-Identifier: Apache-2.0

// A computer whose devices the test makes up: what udev says of them, and what their nodes do.
//
// An open node is a pipe that keeps reports apart, as hidraw does: the test puts reports into it,
// and when it removes the device the reader finds it hung up.
//
// Threading: one thread, except that reports may come from and be read on another.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <memory>
#include <set>
#include <system_error>
#include <thread>

#include "router/Devices.h"
#include "router/hidraw/HidrawSystem.h"

namespace hidrawtest {

using Bytes = std::vector<std::uint8_t>;
using platform::FileDescriptor;
using router::SystemDevice;

class ScriptedTree final : public router::DeviceTree {
 public:
  SystemDevice& add(const std::string& path, const std::string& subsystem,
                    const std::string& type = {}) {
    SystemDevice& device = devices_[path];
    device.path = path;
    device.name = path.substr(path.rfind('/') + 1);
    device.subsystem = subsystem;
    device.type = type;
    device.isInitialized = true;
    device.age = std::chrono::hours(1);
    return device;
  }
  SystemDevice& addNode(const std::string& path, const std::string& subsystem,
                        const std::string& node, dev_t number) {
    SystemDevice& device = add(path, subsystem);
    device.node = node;
    device.number = number;
    return device;
  }
  /// With everything below it.
  void remove(const std::string& path) {
    std::erase_if(devices_, [&](const auto& each) {
      return each.first == path || each.first.starts_with(path + "/");
    });
  }
  SystemDevice& at(const std::string& path) { return devices_.at(path); }

  std::map<std::string, std::map<std::string, std::string>> attributes;  // by path
  std::map<std::string, Bytes> descriptors;                              // by path
  bool isBroken = false;

  [[nodiscard]] std::vector<SystemDevice> initialized(const std::string& subsystem) const override {
    if (isBroken) throw router::DeviceError("the devices cannot be listed");
    return those([&](const SystemDevice& each) {
      return each.subsystem == subsystem && each.isInitialized;
    });
  }
  [[nodiscard]] std::vector<SystemDevice> below(const std::string& path,
                                                const std::string& subsystem) const override {
    return those([&](const SystemDevice& each) {
      return each.subsystem == subsystem && each.path.starts_with(path + "/");
    });
  }
  [[nodiscard]] std::optional<SystemDevice> parentOf(const std::string& path) const override {
    return nearest(path, [](const SystemDevice&) { return true; });
  }
  [[nodiscard]] std::optional<SystemDevice> ancestorOf(const std::string& path,
                                                       const std::string& subsystem,
                                                       const std::string& type) const override {
    return nearest(path, [&](const SystemDevice& each) {
      return each.subsystem == subsystem && (type.empty() || each.type == type);
    });
  }
  [[nodiscard]] std::optional<SystemDevice> withNumber(dev_t number) const override {
    const auto found = those([&](const SystemDevice& each) { return each.number == number; });
    return found.empty() ? std::nullopt : std::optional(found.front());
  }
  [[nodiscard]] std::optional<std::string> attribute(const std::string& path,
                                                     const std::string& name) const override {
    const auto device = attributes.find(path);
    if (device == attributes.end() || !device->second.contains(name)) return std::nullopt;
    return device->second.at(name);
  }
  [[nodiscard]] std::optional<Bytes> reportDescriptor(const std::string& path) const override {
    const auto found = descriptors.find(path);
    return found == descriptors.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  template <class Condition>
  [[nodiscard]] std::vector<SystemDevice> those(const Condition& condition) const {
    std::vector<SystemDevice> found;
    for (const auto& [path, device] : devices_) {
      if (condition(device)) found.push_back(device);
    }
    return found;
  }
  template <class Condition>
  [[nodiscard]] std::optional<SystemDevice> nearest(std::string path,
                                                    const Condition& condition) const {
    for (path.resize(path.rfind('/')); !path.empty(); path.resize(path.rfind('/'))) {
      const auto found = devices_.find(path);
      if (found != devices_.end() && condition(found->second)) return found->second;
    }
    return std::nullopt;
  }
  std::map<std::string, SystemDevice> devices_;
};

class ScriptedNodes final : public router::DeviceNodes {
 public:
  struct Node {
    std::optional<dev_t> number;  ///< none: it is no device node
    Bytes descriptor;
    int openError = 0;
    int descriptorError = 0;
    int grabError = 0;
  };
  std::map<std::string, Node> nodes;

  /// To whoever has the node open.
  void report(const std::string& node, const Bytes& bytes) {
    for (const auto& [descriptor, open] : open_) {
      if (open.node == node) {
        EXPECT_EQ(::write(open.feed.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
      }
    }
  }
  /// Until its readers have taken all reports.
  void awaitAllRead(const std::string& node) const {
    for (const auto& [descriptor, open] : open_) {
      if (open.node == node) awaitEmpty(descriptor);
    }
  }
  /// Its readers find it hung up.
  void remove(const std::string& node) {
    for (auto& [descriptor, open] : open_) {
      if (open.node == node) open.feed.reset();
    }
  }
  /// The results of the next reads: a length, or a negative error number. To be set before reading
  /// begins.
  std::deque<ssize_t> readResults;
  [[nodiscard]] std::size_t reads() const { return reads_; }
  /// Nodes that are grabbed and still open.
  [[nodiscard]] std::set<std::string> grabbed() const { return openOnes(true); }
  [[nodiscard]] std::set<std::string> openNodes() const { return openOnes(false); }

  [[nodiscard]] FileDescriptor open(const std::string& node) const override {
    const auto found = nodes.find(node);
    if (found == nodes.end()) fail(ENOENT);
    if (found->second.openError != 0) fail(found->second.openError);
    int ends[2];
    if (::pipe2(ends, O_DIRECT | O_NONBLOCK | O_CLOEXEC) != 0) fail(errno);
    ::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20);  // room for more reports
    open_[ends[0]] = {node, FileDescriptor(ends[1]), false};
    return FileDescriptor(ends[0]);
  }
  [[nodiscard]] bool mayRead(const std::string& node) const override {
    const auto found = nodes.find(node);
    return found != nodes.end() && found->second.openError == 0;
  }
  [[nodiscard]] std::optional<dev_t> numberOf(int descriptor) const override {
    return nodeOf(descriptor).number;
  }
  [[nodiscard]] Bytes reportDescriptor(int descriptor) const override {
    if (nodeOf(descriptor).descriptorError != 0) fail(nodeOf(descriptor).descriptorError);
    return nodeOf(descriptor).descriptor;
  }
  void grab(int descriptor) const override {
    if (nodeOf(descriptor).grabError != 0) fail(nodeOf(descriptor).grabError);
    open_.at(descriptor).isGrabbed = true;
  }
  [[nodiscard]] ssize_t read(int descriptor, std::span<std::uint8_t> buffer) const override {
    ++reads_;
    auto& results = const_cast<std::deque<ssize_t>&>(readResults);
    if (!results.empty()) {
      const ssize_t result = results.front();
      results.pop_front();
      if (result > 0) std::fill_n(buffer.begin(), result, std::uint8_t{0x55});
      return result;
    }
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0) return -errno;
    return count == 0 ? -EIO : count;  // the end of a pipe
  }

 private:
  struct Open {
    std::string node;
    FileDescriptor feed;
    bool isGrabbed = false;
  };
  [[noreturn]] static void fail(int error) {
    throw std::system_error(error, std::generic_category());
  }
  [[nodiscard]] const Node& nodeOf(int descriptor) const {
    return nodes.at(open_.at(descriptor).node);
  }
  static void awaitEmpty(int pipe) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int waiting = 1;
    while (waiting > 0 && std::chrono::steady_clock::now() < deadline) {
      ASSERT_EQ(::ioctl(pipe, FIONREAD, &waiting), 0);
      std::this_thread::yield();
    }
    EXPECT_EQ(waiting, 0) << "nobody reads";
  }
  /// A pipe whose reader has closed it takes nothing more.
  [[nodiscard]] static bool hasReader(const FileDescriptor& feed) {
    pollfd poll{feed.get(), POLLOUT, 0};
    return feed && ::poll(&poll, 1, 0) == 1 && (poll.revents & POLLERR) == 0;
  }
  [[nodiscard]] std::set<std::string> openOnes(bool onlyGrabbed) const {
    std::set<std::string> found;
    for (const auto& [descriptor, open] : open_) {
      if (hasReader(open.feed) && (open.isGrabbed || !onlyGrabbed)) found.insert(open.node);
    }
    return found;
  }
  mutable std::map<int, Open> open_;  // by descriptor
  mutable std::atomic<std::size_t> reads_{0};
};

/// A gamepad on USB: two interfaces, of which the first is a HID device with a hidraw and an event
/// node.
class ScriptedComputer : public testing::Test {
 protected:
  static constexpr const char* kUsb = "/sys/devices/pci0000:00/usb1/1-2";
  static constexpr const char* kInterface = "/sys/devices/pci0000:00/usb1/1-2/1-2:1.0";
  static constexpr const char* kHid =
      "/sys/devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.0007";
  static constexpr dev_t kHidrawNumber = 0xf700;
  static constexpr dev_t kEventNumber = 0x0d45;
  static constexpr std::uint64_t kID = 0x10007;

  ScriptedComputer() {
    tree_->add(kUsb, "usb", "usb_device");
    addInterface(kInterface, "03", "00", "00");
    SystemDevice& hid = tree_->add(kHid, "hid");
    hid.properties = {{"HID_NAME", "A Gamepad"},
                      {"HID_PHYS", "usb-0000:00:14.0-2/input0"},
                      {"HID_UNIQ", "SN 12"}};
    tree_->descriptors[kHid] = descriptor_;
    addHidraw(std::string(kHid) + "/hidraw/hidraw3", kHidrawNumber);
    addEvent(std::string(kHid) + "/input/input9", "/dev/input/event5", kEventNumber);
  }
  void addInterface(const std::string& path, const std::string& ofClass,
                    const std::string& subclass, const std::string& protocol) {
    tree_->add(path, "usb", "usb_interface");
    tree_->attributes[path] = {{"bInterfaceClass", ofClass},
                               {"bInterfaceSubClass", subclass},
                               {"bInterfaceProtocol", protocol},
                               {"bInterfaceNumber", "0" + path.substr(path.size() - 1)}};
  }
  void addHidraw(const std::string& path, dev_t number) {
    const std::string node = "/dev" + path.substr(path.rfind('/'));
    tree_->addNode(path, "hidraw", node, number);
    nodes_->nodes[node] = {number, descriptor_};
  }
  /// An input device and its event node.
  SystemDevice& addEvent(const std::string& input, const std::string& node, dev_t number) {
    tree_->add(input, "input");
    nodes_->nodes[node] = {number, {}};
    return tree_->addNode(input + node.substr(node.rfind('/')), "input", node, number);
  }

  const Bytes descriptor_{0x05, 0x01, 0x09, 0x05, 0xa1, 0x01, 0xc0};
  const std::shared_ptr<ScriptedTree> tree_ = std::make_shared<ScriptedTree>();
  const std::shared_ptr<ScriptedNodes> nodes_ = std::make_shared<ScriptedNodes>();
  const router::HidrawSystem system_{tree_, nodes_};
};

/// The error of what is called, or an empty one.
template <class Call>
router::DeviceError errorOf(const Call& call) {
  try {
    static_cast<void>(call());
  } catch (const router::DeviceError& error) {
    return error;
  }
  return router::DeviceError("");
}

}  // namespace hidrawtest
