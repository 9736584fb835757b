// SPDX-License-Identifier: Apache-2.0

#include "router/ReplayConfiguration.h"

#include <charconv>
#include <limits>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"
#include "router/RouterLimits.h"

namespace router {

namespace {

using platform::NSData;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSPropertyListFormat;
using platform::NSPropertyListSerialization;
using platform::NSString;
using platform::objectCast;
using platform::str;

constexpr std::uint64_t kFirstReplayID = 0x100000000;
constexpr double kSlowest = 0.001;
constexpr double kFastest = 1000;

/// FNV-1a: the same in every process and on every machine.
std::uint64_t stableHash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

std::shared_ptr<NSString> stringFor(const NSDictionary& dictionary, std::string_view key) {
  const auto object = dictionary.objectForKey(key);
  if (object == nullptr) return nullptr;
  auto text = objectCast<NSString>(object);
  if (text == nullptr) throw DeviceError(std::string(key) + " is not a string");
  return text;
}

std::string recordingIn(const NSDictionary& dictionary) {
  const auto recording = stringFor(dictionary, "Recording");
  if (recording == nullptr) throw DeviceError("Recording is missing");
  std::string name = recording->UTF8String();
  if (name.find('/') != std::string::npos) {
    throw DeviceError(
        "Recording is a path, as older versions wrote it, but only copies inside the system root "
        "are played: remove this device and add its recording again");
  }
  if (!DeviceFiles::isRecordingName(name))
    throw DeviceError("Recording is not the name of a file in the directory recordings");
  return name;
}

ReplaySpeed speedIn(const NSDictionary& dictionary) {
  const auto object = dictionary.objectForKey("Speed");
  if (object == nullptr) return {};
  const auto speed = ReplaySpeed::parse(object->description());
  if (!speed) throw DeviceError("Speed is neither \"max\" nor a number from 0.001 to 1000");
  return *speed;
}

bool repeatIn(const NSDictionary& dictionary) {
  const auto object = dictionary.objectForKey("Repeat");
  if (object == nullptr) return false;
  const auto number = objectCast<NSNumber>(object);
  if (number == nullptr || !std::holds_alternative<bool>(number->value()))
    throw DeviceError("Repeat is not a boolean");
  return number->boolValue();
}

std::uint32_t deviceNumberIn(const NSDictionary& dictionary) {
  const auto object = dictionary.objectForKey("Device");
  if (object == nullptr) return 0;
  const auto number = objectCast<NSNumber>(object);
  const std::uint64_t value = number == nullptr ? UINT64_MAX : number->unsignedLongLongValue();
  if (value > std::numeric_limits<std::uint32_t>::max())
    throw DeviceError("Device is not a device number");
  return static_cast<std::uint32_t>(value);
}

std::string nameIn(const NSDictionary& dictionary) {
  const auto name = stringFor(dictionary, "Name");
  if (name == nullptr) return {};
  return platform::printableLine(name->UTF8String(), RouterLimits::kNameCharacters);
}

ReplayDevice deviceIn(const std::string& configuration, const NSDictionary& dictionary) {
  // Checked first, because other sources have other keys.
  const auto source = stringFor(dictionary, "Source");
  if (source == nullptr || source->UTF8String() != "replay")
    throw DeviceError("Source is not \"replay\"");
  ReplayDevice device;
  device.configuration = configuration;
  device.recording = recordingIn(dictionary);
  device.speed = speedIn(dictionary);
  device.repeat = repeatIn(dictionary);
  device.device = deviceNumberIn(dictionary);
  device.name = nameIn(dictionary);
  return device;
}

/// The content of a file, which may have at most `limit` bytes.
std::shared_ptr<NSData> contentOf(const OpenFile& file, std::size_t limit) {
  std::vector<char> content(limit + 1);
  const std::size_t length = readFile(file.descriptor.get(), content);
  if (length > limit) throw FileError("is larger than " + std::to_string(limit) + " bytes");
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
  return NSData::dataWithBytes({bytes, length});
}

}  // namespace

std::optional<ReplaySpeed> ReplaySpeed::parse(std::string_view text) {
  if (text == "max") return ReplaySpeed{1, true};
  double factor = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), factor, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!(factor >= kSlowest && factor <= kFastest)) return std::nullopt;
  return ReplaySpeed{factor, false};
}

std::string ReplaySpeed::text() const {
  if (maximum) return "max";
  std::array<char, 64> buffer{};
  const auto [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), factor, std::chars_format::fixed);
  return error == std::errc() ? std::string(buffer.data(), end) : std::string("1");
}

ReplayDevice readReplayConfiguration(const OpenFile& file, const std::string& name,
                                     std::size_t limit) {
  try {
    std::shared_ptr<platform::NSError> error;
    const auto list = NSPropertyListSerialization::propertyListWithData_options_format_error(
        contentOf(file, limit), 0, nullptr, &error);
    const auto dictionary = objectCast<NSDictionary>(list);
    if (dictionary == nullptr) throw DeviceError("is not a property list with a dictionary");
    return deviceIn(name, *dictionary);
  } catch (const FileError& error) {
    throw DeviceError(error.what(), error.code());
  }
}

std::shared_ptr<NSData> replayConfigurationData(const ReplayDevice& device) {
  std::vector<NSDictionary::Entry> entries{
      {str("Source"), str("replay")},
      {str("Recording"), NSString::stringWithUTF8(device.recording.string())},
      {str("Speed"), str(device.speed.text())},
      {str("Repeat"), NSNumber::numberWithBool(device.repeat)},
  };
  if (device.device != 0)
    entries.emplace_back(str("Device"), NSNumber::numberWithUnsignedLongLong(device.device));
  if (!device.name.empty())
    entries.emplace_back(str("Name"), NSString::stringWithUTF8(device.name));
  return NSPropertyListSerialization::dataWithPropertyList_format_error(
      NSDictionary::dictionaryWithEntries(std::move(entries)), NSPropertyListFormat::XML, nullptr);
}

std::uint64_t preferredRegistryEntryID(const ReplayDevice& device) {
  std::string text = "replay";
  for (const std::string& part :
       {device.configuration, device.recording.string(), device.speed.text(),
        std::string(device.repeat ? "repeat" : "once"), std::to_string(device.device)}) {
    text.append(1, '\0').append(part);
  }
  const std::uint64_t hash = stableHash(text);
  return kFirstReplayID + ((hash ^ (hash >> 32U)) & 0xffffffffU);
}

}  // namespace router
