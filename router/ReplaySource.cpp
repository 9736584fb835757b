#include "router/ReplaySource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <set>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "router/AtomicFile.h"
#include "router/ReportDescriptor.h"

namespace router {

namespace {

namespace fs = std::filesystem;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::NSPropertyListFormat;
using platform::NSPropertyListSerialization;
using platform::NSString;
using platform::objectCast;
using platform::str;

constexpr std::uint64_t kFirstReplayID = 0x100000000;
constexpr double kSlowest = 0.001;
constexpr double kFastest = 1000;
constexpr std::string_view kSuffix = ".plist";

/// FNV-1a: the same in every process and on every machine.
std::uint64_t stableHash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

std::uint64_t preferredID(const ReplayDevice& device) {
  std::string text = "replay";
  for (const std::string& part :
       {device.configuration, device.recording.string(), device.speed.text(),
        std::string(device.repeat ? "repeat" : "once"), std::to_string(device.device)}) {
    text.append(1, '\0').append(part);
  }
  const std::uint64_t hash = stableHash(text);
  return kFirstReplayID + ((hash ^ (hash >> 32U)) & 0xffffffffU);
}

std::shared_ptr<NSString> stringFor(const NSDictionary& dictionary, std::string_view key) {
  const auto object = dictionary.objectForKey(key);
  if (object == nullptr) return nullptr;
  auto text = objectCast<NSString>(object);
  if (text == nullptr) throw DeviceError(std::string(key) + " is no string");
  return text;
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
    throw DeviceError("Repeat is no boolean");
  return number->boolValue();
}

std::uint32_t deviceNumberIn(const NSDictionary& dictionary) {
  const auto object = dictionary.objectForKey("Device");
  if (object == nullptr) return 0;
  const auto number = objectCast<NSNumber>(object);
  const std::uint64_t value = number == nullptr ? UINT64_MAX : number->unsignedLongLongValue();
  if (value > std::numeric_limits<std::uint32_t>::max())
    throw DeviceError("Device is no device number");
  return static_cast<std::uint32_t>(value);
}

/// The source that a configuration names must be checked before: other sources have other keys.
ReplayDevice replayDevice(const std::string& configuration, const NSDictionary& dictionary) {
  ReplayDevice device;
  device.configuration = configuration;
  const auto recording = stringFor(dictionary, "Recording");
  if (recording == nullptr) throw DeviceError("Recording is missing");
  device.recording = recording->UTF8String();
  if (!device.recording.is_absolute()) throw DeviceError("Recording is no absolute path");
  device.speed = speedIn(dictionary);
  device.repeat = repeatIn(dictionary);
  device.device = deviceNumberIn(dictionary);
  if (const auto name = stringFor(dictionary, "Name")) device.name = name->UTF8String();
  if (!isPrintableText(device.name)) throw DeviceError("Name is no printable text");
  return device;
}

std::shared_ptr<NSDictionary> dictionaryOf(const ReplayDevice& device) {
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
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::shared_ptr<NSDictionary> readPropertyList(const fs::path& file) {
  const auto path = NSString::stringWithUTF8(file.string());
  const auto data = path == nullptr ? nullptr : platform::NSData::dataWithContentsOfFile(path);
  if (data == nullptr) throw DeviceError("cannot be read");
  std::shared_ptr<platform::NSError> error;
  const auto list = NSPropertyListSerialization::propertyListWithData_options_format_error(
      data, 0, nullptr, &error);
  auto dictionary = objectCast<NSDictionary>(list);
  if (dictionary == nullptr) throw DeviceError("is no property list with a dictionary");
  return dictionary;
}

/// The names of the configuration files, sorted, so that every process walks them in the same
/// order.
std::vector<fs::path> configurationFiles(const fs::path& directory,
                                         std::vector<std::string>* returnProblems) {
  std::error_code error;
  std::vector<fs::path> files;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const bool isConfiguration =
        name.size() > kSuffix.size() && name.front() != '.' && name.ends_with(kSuffix);
    if (isConfiguration) files.push_back(entry->path());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    returnProblems->push_back(directory.string() + ": " + error.message());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string configurationNameFor(const fs::path& recording) {
  std::string name = recording.stem().string();
  for (char& c : name) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                         (c == '.' && &c != name.data());
    if (!isPlain) c = '_';
  }
  return name;
}

/// A recording that is being played.
class Replay final : public OpenDevice {
 public:
  Replay(Recording recording, const ReplayDevice& device)
      : recording_(std::move(recording)),
        schedule_(recording_, device.speed.factor),
        isPaced_(!device.speed.maximum),
        repeats_(device.repeat) {}

  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return recording_.header().reportDescriptor;
  }
  [[nodiscard]] bool waitsForReaders() const override { return !isPaced_; }

  Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) override {
    if (!start_) start_ = std::chrono::steady_clock::now();
    if (index_ == recording_.reportCount()) {
      // A recording without reports would go round for ever and give nothing.
      if (!repeats_ || index_ == 0) return Next::Gone;
      index_ = 0;
      *start_ += schedule_.period();
    }
    if (stop.isRaised() || (isPaced_ && stop.waitUntil(*start_ + schedule_.due(index_))))
      return Next::Stopped;
    *returnReport = recording_.report(index_++);
    return Next::Report;
  }

 private:
  const Recording recording_;
  const ReplaySchedule schedule_;
  const bool isPaced_;
  const bool repeats_;
  std::size_t index_ = 0;
  // When the first report of this pass is due. All deadlines are counted from it, so lateness does
  // not add up.
  std::optional<std::chrono::steady_clock::time_point> start_;
};

}  // namespace

std::optional<ReplaySpeed> ReplaySpeed::parse(std::string_view text) {
  if (text == "max") return ReplaySpeed{1, true};
  double factor = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), factor, std::chars_format::fixed);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
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

ReplaySchedule::ReplaySchedule(const Recording& recording, double speed) {
  // A clock's whole range would overflow when it is added up; nobody waits a century for a report.
  constexpr double kLongest = 100.0 * 365 * 24 * 3600 * 1e9;
  const std::size_t count = recording.reportCount();
  bool hasTimes = false;
  for (std::size_t i = 1; i < count; ++i)
    hasTimes = hasTimes || recording.time(i) != recording.time(0);

  double elapsed = 0;  // nanoseconds as recorded
  const auto scaled = [&] {
    return std::chrono::nanoseconds(std::llround(std::min(elapsed / speed, kLongest)));
  };
  due_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) {
      const bool isTimed = hasTimes && recording.time(i) >= recording.time(i - 1);
      const auto interval = isTimed ? recording.time(i) - recording.time(i - 1) : kUntimedInterval;
      elapsed += static_cast<double>(interval.count()) * 1e3;
    }
    due_.push_back(scaled());
  }
  elapsed += static_cast<double>(kUntimedInterval.count()) * 1e3;
  period_ = scaled();
}

struct ReplaySource::Configured {
  ReplayDevice device;
  DeviceDescription description;
};

std::vector<ReplaySource::Configured> ReplaySource::configurations(
    std::vector<std::string>* returnProblems) const {
  std::vector<Configured> result;
  std::set<std::uint64_t> taken;
  for (const fs::path& file : configurationFiles(directory_, returnProblems)) {
    try {
      const auto dictionary = readPropertyList(file);
      const auto source = stringFor(*dictionary, "Source");
      if (source == nullptr || source->UTF8String() != "replay")
        throw DeviceError("Source is not \"replay\"");
      const ReplayDevice device = replayDevice(file.stem().string(), *dictionary);
      const Recording::Header header = Recording::readHeader(device.recording, device.device);
      std::uint64_t id = preferredID(device);
      while (!taken.insert(id).second) ++id;
      result.push_back({device,
                        {id, device.name.empty() ? header.name : device.name, header.bus,
                         header.vendor, header.product, "replay " + device.recording.string()}});
    } catch (const std::runtime_error& error) {
      returnProblems->push_back(file.string() + ": " + error.what());
    }
  }
  return result;
}

std::vector<DeviceDescription> ReplaySource::list(std::vector<std::string>* returnProblems) const {
  std::vector<DeviceDescription> devices;
  for (Configured& configured : configurations(returnProblems))
    devices.push_back(std::move(configured.description));
  return devices;
}

std::optional<std::uint64_t> ReplaySource::registryEntryIDOf(
    const std::string& configuration) const {
  std::vector<std::string> problems;
  for (const Configured& configured : configurations(&problems)) {
    if (configured.device.configuration == configuration)
      return configured.description.registryEntryID;
  }
  return std::nullopt;
}

std::optional<std::string> ReplaySource::configurationOf(std::uint64_t registryEntryID) const {
  std::vector<std::string> problems;
  for (const Configured& configured : configurations(&problems)) {
    if (configured.description.registryEntryID == registryEntryID)
      return configured.device.configuration;
  }
  return std::nullopt;
}

std::unique_ptr<OpenDevice> ReplaySource::open(std::uint64_t registryEntryID) const {
  std::vector<std::string> problems;
  for (const Configured& configured : configurations(&problems)) {
    if (configured.description.registryEntryID != registryEntryID) continue;
    try {
      return std::make_unique<Replay>(
          Recording::read(configured.device.recording, configured.device.device),
          configured.device);
    } catch (const RecordingError& error) {
      throw DeviceError(error.what(), error.code());
    }
  }
  return nullptr;
}

std::uint64_t addReplayDevice(const platform::SystemRoot& root, const ReplayDevice& device) {
  ReplayDevice added = device;
  added.recording = fs::absolute(device.recording).lexically_normal();
  if (added.configuration.empty()) added.configuration = configurationNameFor(added.recording);
  if (!platform::SystemRoot::isValidLabel(added.configuration)) {
    throw DeviceError("'" + added.configuration + "' is no name for a device's configuration");
  }
  if (!platform::isValidUTF8(added.recording.string()) || !isPrintableText(added.name)) {
    throw DeviceError("a path or name is no printable text");
  }
  try {
    ReportDescriptor::parse(
        Recording::read(added.recording, added.device).header().reportDescriptor);
  } catch (const RecordingError& error) {
    throw DeviceError(error.what(), error.code());
  } catch (const ReportDescriptorError& error) {
    throw DeviceError(added.recording.string() + ": report descriptor, " + error.what());
  }
  const auto list = NSPropertyListSerialization::dataWithPropertyList_format_error(
      dictionaryOf(added), NSPropertyListFormat::XML, nullptr);
  const fs::path file = root.deviceSources() / (added.configuration + std::string(kSuffix));
  try {
    writeFileAtomically(file, list->span());
  } catch (const std::system_error& error) {
    throw DeviceError(error.what(), error.code());
  }
  const auto id = ReplaySource(root.deviceSources()).registryEntryIDOf(added.configuration);
  if (!id) throw DeviceError(file.string() + ": was written, but cannot be read back");
  return *id;
}

bool removeReplayDevice(const platform::SystemRoot& root, std::uint64_t registryEntryID) {
  const auto configuration = ReplaySource(root.deviceSources()).configurationOf(registryEntryID);
  if (!configuration) return false;
  const fs::path file = root.deviceSources() / (*configuration + std::string(kSuffix));
  std::error_code error;
  fs::remove(file, error);
  if (error) throw DeviceError(file.string() + ": " + error.message(), error);
  return true;
}

}  // namespace router
