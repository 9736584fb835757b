// SPDX-License-Identifier: Apache-2.0

// The real libudev, on a computer that a testbed makes up: a receiver with a keyboard, a mouse and
// a vendor's interface; a gamepad; a pen on Bluetooth; and one that udev has not finished.
//
// The testbed replaces /sys and /dev. Udev's own records are in /run/udev, so this program gives
// itself a /run of its own. Where that is not allowed, its tests are skipped.
#include "router/hidraw/UdevTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <umockdev.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "router/hidraw/HidrawSource.h"
#include "tests/support/TemporaryDirectory.h"

#ifdef __SANITIZE_THREAD__
/// The testbed and its library are not instrumented, so what their threads wait for cannot be seen.
/// What is tested uses neither.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT: the sanitizer looks for that name
  return "race:libumockdev.so\nrace:libglib-2.0.so\n";
}
#endif

namespace {

using router::DeviceDescription;
using router::HidrawSource;
using router::SystemDevice;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

/// An ordinary user may mount what it likes in a user namespace of its own.
bool enterUserNamespace() {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
  std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
  return true;
}

/// Whether this process now has a /run that no other process sees.
bool takeOwnRun() {
  if (::unshare(CLONE_NEWNS) != 0 && !enterUserNamespace()) return false;
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0;
}

bool hasOwnRun() {
  static const bool has = takeOwnRun();
  return has;
}

/// What udev has recorded of a device, by its type and number ("c246:0") or its subsystem and name.
void record(const std::string& id, const std::string& properties = {}) {
  testsupport::writeFile("/run/udev/data/" + id, "I:1000000\n" + properties + "V:1\n");
}

// The testbed's format: path, node, properties, attributes, binary attributes in hexadecimal.
constexpr const char* kReceiver = R"(P: /devices/pci0000:00/usb1/1-1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
A: idVendor=046d

P: /devices/pci0000:00/usb1/1-1/1-1:1.0
E: SUBSYSTEM=usb
E: DEVTYPE=usb_interface
A: bInterfaceClass=03
A: bInterfaceSubClass=01
A: bInterfaceProtocol=01
A: bInterfaceNumber=00

P: /devices/pci0000:00/usb1/1-1/1-1:1.0/0003:046D:C534.0001
E: SUBSYSTEM=hid
E: HID_NAME=A Receiver
E: HID_PHYS=usb-0000:00:14.0-1/input0
E: HID_UNIQ=
H: report_descriptor=05010906A101C0

P: /devices/pci0000:00/usb1/1-1/1-1:1.0/0003:046D:C534.0001/hidraw/hidraw0
N: hidraw0
E: SUBSYSTEM=hidraw
E: DEVNAME=/dev/hidraw0
E: MAJOR=246
E: MINOR=0
A: dev=246:0

P: /devices/pci0000:00/usb1/1-1/1-1:1.0/0003:046D:C534.0001/input/input3
E: SUBSYSTEM=input
E: NAME="A Receiver"

P: /devices/pci0000:00/usb1/1-1/1-1:1.0/0003:046D:C534.0001/input/input3/event3
N: input/event3
E: SUBSYSTEM=input
E: DEVNAME=/dev/input/event3
E: MAJOR=13
E: MINOR=67
A: dev=13:67

P: /devices/pci0000:00/usb1/1-1/1-1:1.1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_interface
A: bInterfaceClass=03
A: bInterfaceSubClass=00
A: bInterfaceProtocol=00
A: bInterfaceNumber=01

P: /devices/pci0000:00/usb1/1-1/1-1:1.1/0003:046D:C534.0002
E: SUBSYSTEM=hid
E: HID_NAME=A Receiver
E: HID_PHYS=usb-0000:00:14.0-1/input1
H: report_descriptor=0600FF0901A101C0

P: /devices/pci0000:00/usb1/1-1/1-1:1.1/0003:046D:C534.0002/hidraw/hidraw1
N: hidraw1
E: SUBSYSTEM=hidraw
E: DEVNAME=/dev/hidraw1
E: MAJOR=246
E: MINOR=1
A: dev=246:1
)";

constexpr const char* kGamepad = R"(P: /devices/pci0000:00/usb1/1-2
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device

P: /devices/pci0000:00/usb1/1-2/1-2:1.0
E: SUBSYSTEM=usb
E: DEVTYPE=usb_interface
A: bInterfaceClass=03
A: bInterfaceSubClass=00
A: bInterfaceProtocol=00
A: bInterfaceNumber=00

P: /devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.001A
E: SUBSYSTEM=hid
E: HID_NAME=A Gamepad
E: HID_PHYS=usb-0000:00:14.0-2/input0
E: HID_UNIQ=SN 12
H: report_descriptor=05010905A101C0

P: /devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.001A/hidraw/hidraw2
N: hidraw2
E: SUBSYSTEM=hidraw
E: DEVNAME=/dev/hidraw2
E: MAJOR=246
E: MINOR=2
A: dev=246:2

P: /devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.001A/input/input4
E: SUBSYSTEM=input

P: /devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.001A/input/input4/event4
N: input/event4
E: SUBSYSTEM=input
E: DEVNAME=/dev/input/event4
E: MAJOR=13
E: MINOR=68
A: dev=13:68
)";

constexpr const char* kPen = R"(P: /devices/virtual/misc/uhid
E: SUBSYSTEM=misc

P: /devices/virtual/misc/uhid/0005:056A:0360.0020
E: SUBSYSTEM=hid
E: HID_NAME=A Pen
E: HID_PHYS=00:1a:7d:da:71:13
E: HID_UNIQ=c8:3f:26:00:00:01
H: report_descriptor=050D0902A101C0

P: /devices/virtual/misc/uhid/0005:056A:0360.0020/hidraw/hidraw3
N: hidraw3
E: SUBSYSTEM=hidraw
E: DEVNAME=/dev/hidraw3
E: MAJOR=246
E: MINOR=3
A: dev=246:3
)";

constexpr std::uint64_t kKeyboardID = 0x10001;
constexpr std::uint64_t kVendorID = 0x10002;
constexpr std::uint64_t kGamepadID = 0x1001a;
constexpr std::uint64_t kPenID = 0x10020;

class UdevTreeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasOwnRun()) GTEST_SKIP() << "this process may not have a /run of its own";
    std::filesystem::remove_all("/run/udev");
    testbed_ = umockdev_testbed_new();
    for (const char* devices : {kReceiver, kGamepad, kPen}) add(devices);
    for (const char* id : {"c246:0", "c246:1", "c246:2", "c246:3"}) record(id);
    record("c13:67", "E:ID_INPUT=1\nE:ID_INPUT_KEYBOARD=1\n");
    record("c13:68", "E:ID_INPUT=1\nE:ID_INPUT_JOYSTICK=1\n");
  }
  void TearDown() override {
    if (testbed_ != nullptr) g_object_unref(testbed_);
  }
  void add(const char* devices) {
    GError* error = nullptr;
    EXPECT_TRUE(umockdev_testbed_add_from_string(testbed_, devices, &error))
        << (error == nullptr ? "" : error->message);
    g_clear_error(&error);
  }
  std::vector<DeviceDescription> list() {
    problems_.clear();
    return source_.list(&problems_);
  }
  [[nodiscard]] router::DeviceFacts facts(std::uint64_t id) const {
    const auto found = source_.factsOf(id);
    EXPECT_TRUE(found) << std::hex << id;
    return found.value_or(router::DeviceFacts());
  }

  UMockdevTestbed* testbed_ = nullptr;
  const router::UdevTree tree_{};
  const HidrawSource source_;
  std::vector<std::string> problems_;
  const std::string hid_ = "/sys/devices/pci0000:00/usb1/1-2/1-2:1.0/0003:046D:C216.001A";
};

TEST_F(UdevTreeTest, AllDevicesAreListedWithWhatTheKernelKnows) {
  EXPECT_THAT(
      list(),
      ElementsAre(DeviceDescription{kKeyboardID, "A Receiver", 3, 0x46d, 0xc534, "hidraw0",
                                    "usb-0000:00:14.0-1/input0", "", 0},
                  DeviceDescription{kVendorID, "A Receiver", 3, 0x46d, 0xc534, "hidraw1",
                                    "usb-0000:00:14.0-1/input1", "", 1},
                  DeviceDescription{kGamepadID, "A Gamepad", 3, 0x46d, 0xc216, "hidraw2",
                                    "usb-0000:00:14.0-2/input0", "SN 12", 0},
                  DeviceDescription{kPenID, "A Pen", 5, 0x56a, 0x360, "hidraw3",
                                    "00:1a:7d:da:71:13", "c8:3f:26:00:00:01", std::nullopt}));
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(UdevTreeTest, WhatUdevHasNotFinishedIsLeftOut) {
  std::filesystem::remove("/run/udev/data/c246:2");
  std::vector<std::uint64_t> ids;
  for (const auto& device : list()) ids.push_back(device.registryEntryID);
  EXPECT_THAT(ids, ElementsAre(kKeyboardID, kVendorID, kPenID));
  EXPECT_EQ(source_.open(kGamepadID), nullptr);
  record("c246:2");
  EXPECT_EQ(list().size(), 4U);
}

TEST_F(UdevTreeTest, WhatHasBeenRemovedIsNotListed) {
  umockdev_testbed_remove_device(testbed_, (hid_ + "/hidraw/hidraw2").c_str());
  EXPECT_EQ(list().size(), 3U);
}

TEST_F(UdevTreeTest, AKeyboardIsToldFromAGamepadAndAPen) {
  EXPECT_TRUE(facts(kKeyboardID).isBootKeyboard);
  EXPECT_TRUE(facts(kKeyboardID).hasKeyboardNode);
  EXPECT_FALSE(facts(kKeyboardID).isBesideKeyboard);
  for (const std::uint64_t id : {kGamepadID, kPenID}) {
    EXPECT_FALSE(facts(id).isBootKeyboard);
    EXPECT_FALSE(facts(id).hasKeyboardNode);
    EXPECT_FALSE(facts(id).isBesideKeyboard);
    EXPECT_FALSE(facts(id).decided);
  }
}

TEST_F(UdevTreeTest, AVendorsInterfaceIsBesideItsReceiversKeyboard) {
  EXPECT_FALSE(facts(kVendorID).isBootKeyboard);
  EXPECT_FALSE(facts(kVendorID).hasKeyboardNode);
  EXPECT_TRUE(facts(kVendorID).isBesideKeyboard);
}

TEST_F(UdevTreeTest, AReportDescriptorIsReadByteByByte) {
  EXPECT_THAT(facts(kVendorID).reportDescriptor,
              ElementsAre(0x06, 0x00, 0xff, 0x09, 0x01, 0xa1, 0x01, 0xc0));
}

TEST_F(UdevTreeTest, AnInputNodeThatUdevHasNotFinishedIsAKeyboard) {
  std::filesystem::remove("/run/udev/data/c13:68");
  EXPECT_TRUE(facts(kGamepadID).hasKeyboardNode);
}

TEST_F(UdevTreeTest, TheAdministratorsRuleDecides) {
  record("c246:2", "E:WLHID_CLASS=sensitive\n");
  EXPECT_EQ(facts(kGamepadID).decided, router::DeviceClass::Sensitive);
  record("c246:2", "E:WLHID_CLASS=none\n");
  EXPECT_FALSE(facts(kGamepadID).decided);
  EXPECT_EQ(list().size(), 4U);
  EXPECT_THAT(problems_, ElementsAre(testing::HasSubstr("WLHID_CLASS is \"none\"")));
}

TEST_F(UdevTreeTest, ADevicesNameCannotSetTheClass) {
  umockdev_testbed_set_property(testbed_, hid_.c_str(), "HID_NAME",
                                "A Gamepad\nWLHID_CLASS=ordinary\nID_INPUT_KEYBOARD=0");
  const auto hid = tree_.ancestorOf(hid_ + "/hidraw/hidraw2", "hid", "");
  ASSERT_TRUE(hid);
  EXPECT_EQ(hid->properties.at("WLHID_CLASS"), "ordinary") << "the name has no effect at all";
  EXPECT_FALSE(facts(kGamepadID).decided);
}

TEST_F(UdevTreeTest, ADeviceIsFoundByTheNumberOfItsNode) {
  const auto found = tree_.withNumber(makedev(246, 2));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, hid_ + "/hidraw/hidraw2");
  EXPECT_EQ(found->subsystem, "hidraw");
  EXPECT_EQ(found->name, "hidraw2");
  EXPECT_EQ(found->node, "/dev/hidraw2");
  EXPECT_EQ(found->number, makedev(246, 2));
  EXPECT_TRUE(found->isInitialized);
  EXPECT_FALSE(tree_.withNumber(makedev(246, 9)));
}

TEST_F(UdevTreeTest, WhatIsAboveAndBelowADevice) {
  EXPECT_EQ(tree_.parentOf(hid_)->type, "usb_interface");
  EXPECT_EQ(tree_.ancestorOf(hid_, "usb", "usb_device")->name, "1-2");
  EXPECT_EQ(tree_.ancestorOf(hid_, "usb", "")->name, "1-2:1.0");
  EXPECT_FALSE(tree_.ancestorOf(hid_, "hid", "")) << "a device is not above itself";
  const auto input = tree_.below(hid_, "input");
  EXPECT_THAT(input, ElementsAre(Field(&SystemDevice::name, "input4"),
                                 AllOf(Field(&SystemDevice::name, "event4"),
                                       Field(&SystemDevice::node, "/dev/input/event4"))));
  EXPECT_THAT(tree_.below(hid_, "hid"), IsEmpty()) << "nor below itself";
}

TEST_F(UdevTreeTest, WhatIsNotThereIsMissing) {
  EXPECT_FALSE(tree_.parentOf("/sys/none"));
  EXPECT_FALSE(tree_.ancestorOf("/sys/none", "usb", ""));
  EXPECT_THAT(tree_.below("/sys/none", "usb"), IsEmpty());
  EXPECT_THAT(tree_.initialized("none"), IsEmpty());
  EXPECT_FALSE(tree_.attribute(hid_, "none"));
  EXPECT_FALSE(tree_.attribute("/sys/none", "none"));
  EXPECT_FALSE(tree_.reportDescriptor("/sys/none"));
  EXPECT_FALSE(tree_.reportDescriptor("/sys/devices/../devices"));
  EXPECT_FALSE(tree_.parentOf("/etc"));
}

TEST_F(UdevTreeTest, AnEmptyReportDescriptorIsNone) {
  umockdev_testbed_set_attribute(testbed_, hid_.c_str(), "report_descriptor", "");
  EXPECT_FALSE(tree_.reportDescriptor(hid_));
  std::string large(65535, 'x');
  umockdev_testbed_set_attribute(testbed_, hid_.c_str(), "report_descriptor", large.c_str());
  EXPECT_EQ(tree_.reportDescriptor(hid_)->size(), large.size());
  large += 'x';
  umockdev_testbed_set_attribute(testbed_, hid_.c_str(), "report_descriptor", large.c_str());
  EXPECT_FALSE(tree_.reportDescriptor(hid_)) << "too large";
}

TEST_F(UdevTreeTest, ALinkInPlaceOfANodeIsNotFollowed) {
  // The testbed's nodes are links.
  try {
    static_cast<void>(source_.open(kGamepadID));
    FAIL() << "it was opened";
  } catch (const router::DeviceError& error) {
    EXPECT_STREQ(error.what(), "/dev/hidraw2 cannot be opened: Too many levels of symbolic links");
  }
}

}  // namespace
