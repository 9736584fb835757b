#include "tool/report/DiagnosticReport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "platform/foundation/Format.h"
#include "platform/kit/KQLogger.h"
#include "router/DeviceFiles.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/InventoryJson.h"
#include "tool/report/LogModules.h"
#include "tool/routing/Trial.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using platform::stringWithFormat;

constexpr std::string_view kFolder = "wlhid-report/";
constexpr std::string_view kHIDDevices = "/sys/class/hidraw";
constexpr int kManifestFormat = 1;
constexpr std::size_t kMaximumComponentBytes = 100;
constexpr std::size_t kChunkBytes = std::size_t{64} * 1024;

/// A file's name that is harmless wherever the archive is unpacked.
std::string safeComponent(const std::string& name) {
  std::string safe = name.substr(0, kMaximumComponentBytes);
  for (char& c : safe) {
    const auto byte = static_cast<unsigned char>(c);
    const bool allowed =
        byte < 0x80 && (std::isalnum(byte) != 0 || c == '.' || c == '-' || c == '_');
    if (!allowed) c = '_';
  }
  if (safe.empty() || safe.front() == '.') safe.insert(0, "_");
  return safe;
}

/// "replay NAME.hid" gives the name.
std::string recordingOf(const router::DeviceDescription& device) {
  constexpr std::string_view kKind = "replay ";
  return device.source.starts_with(kKind) ? device.source.substr(kKind.size()) : std::string();
}

Redactor redactorFor(const ReportRequest& request, const Inventory& inventory) {
  if (request.withInput) return Redactor::lettingEverythingThrough();
  Redactor::Knowledge knowledge;
  knowledge.root = request.root.path();
  knowledge.secrets = uniqueStringsOfDevices(kHIDDevices);
  for (const auto& device : inventory.devices.devices) {
    knowledge.registryEntryIDs.insert(device.registryEntryID);
    const std::string recording = recordingOf(device);
    if (!recording.empty()) knowledge.secrets.push_back(recording);
  }
  return Redactor(std::move(knowledge));
}

std::string utcTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  return stringWithFormat("%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                          parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

/// PRETTY_NAME="…" of the distribution's own description.
std::string distribution() {
  constexpr std::string_view kKey = "PRETTY_NAME=";
  std::ifstream in("/etc/os-release");
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with(kKey)) continue;
    std::erase(line, '"');
    return oneLine(line.substr(kKey.size()));
  }
  return {};
}

ordered_json systemJson() {
  utsname name{};
  ::uname(&name);
  return {{"kernel", std::string(name.sysname) + " " + name.release},
          {"machine", name.machine},
          {"distribution", distribution()}};
}

/// A file that a module named, opened for reading.
class SourceFile {
 public:
  /// `problem` says why it cannot be read.
  SourceFile(const std::string& path, std::string& problem) {
    file_.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file_ || ::fstat(file_.get(), &status) != 0) {
      problem = path + ": " + describeErrno(errno);
    } else if (!S_ISREG(status.st_mode)) {
      problem = path + ": not a regular file";
    }
  }
  explicit SourceFile(platform::FileDescriptor file) : file_(std::move(file)) {}
  /// The next bytes, as many as fit; nothing at the end and where reading fails.
  std::span<const std::uint8_t> next(std::string& problem) {
    while (true) {
      const ssize_t count = ::read(file_.get(), buffer_.data(), buffer_.size());
      if (count >= 0) return std::span(buffer_).first(static_cast<std::size_t>(count));
      if (errno == EINTR) continue;
      problem = "could not be read to its end: " + describeErrno(errno);
      return {};
    }
  }

 private:
  platform::FileDescriptor file_;
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kChunkBytes);
};

std::string_view asText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class ReportWriter {
 public:
  ReportWriter(const ReportRequest& request, ReportArchive& archive)
      : request_(request), archive_(archive) {}

  ReportResult write() {
    step("Looking at router, jobs and devices");
    const Inventory inventory = takeInventory(request_.root);
    redactor_ = redactorFor(request_, inventory);
    const Diagnosis diagnosis = diagnose(inventory);
    writeInventory(inventory, diagnosis);
    if (request_.deviceToTry) writeTrial(*request_.deviceToTry);
    writeModules();
    if (request_.withInput) writeRecordings(inventory.devices);
    writeManifest(inventory, diagnosis);
    return std::move(result_);
  }

 private:
  void step(const std::string& what) const {
    if (request_.onStep) request_.onStep(what);
  }
  void miss(const std::string& part, const std::string& problem) {
    result_.missing.push_back({redactor_.name(oneLine(part)), redactor_.text(oneLine(problem))});
  }

  /// The name under which a further file stands, unlike all others.
  std::string uniqueName(const std::string& name) {
    std::string unique = name;
    for (int i = 2; !names_.insert(unique).second; ++i) unique = stringWithFormat("%s-%d", name, i);
    return unique;
  }

  template <class Write>
  void writePart(const std::string& name, const std::string& description,
                 const std::string& category, const Write& write) {
    const std::string unique = uniqueName(name);
    archive_.begin(std::string(kFolder) + unique);
    write();
    result_.parts.push_back({unique, description, category, archive_.end()});
  }

  void writeText(const std::string& name, const std::string& description, const std::string& text) {
    writePart(name, description, "State", [&] { archive_.write(text); });
  }

  void writeInventory(const Inventory& inventory, const Diagnosis& diagnosis) {
    writeText("doctor.txt", "What is in order and what is not", redactedLines(diagnosis));
    writeText("presence.json", "Versions, and each step of the presence check",
              dumped(jsonOf(inventory.presence, redactor_)));
    writeText("jobs.json", "Jobs, endpoints and their owners, the router's sessions",
              dumped(jobsJson(inventory)));
    writeText("devices.json", "What can be routed", dumped(jsonOf(inventory.devices, redactor_)));
    if (!inventory.jobDaemon.problem.empty()) miss("the jobs", inventory.jobDaemon.problem);
  }

  [[nodiscard]] std::string redactedLines(Diagnosis diagnosis) const {
    for (Check& check : diagnosis.checks) {
      check.name = redactor_.text(check.name);
      check.found = redactor_.text(check.found);
      check.remedy = redactor_.text(check.remedy);
    }
    return linesOf(diagnosis, /*colours=*/false);
  }

  [[nodiscard]] ordered_json jobsJson(const Inventory& inventory) const {
    ordered_json endpoints = ordered_json::array();
    for (const Endpoint& endpoint : inventory.endpoints)
      endpoints.push_back(jsonOf(endpoint, redactor_));
    const auto& jobs = inventory.jobDaemon.reply;
    const auto& router = inventory.router;
    return {{"jobDaemon", jobs ? jsonOf(*jobs, redactor_) : ordered_json()},
            {"endpoints", endpoints},
            {"router", router ? jsonOf(*router, redactor_) : ordered_json()}};
  }

  /// Before the modules are asked: what the framework logs in it is in their files.
  void writeTrial(std::uint64_t registryEntryID) {
    step("Routing the device for a moment");
    const TrialResult trial = tryDevice(registryEntryID);
    ordered_json statuses = ordered_json::array();
    for (const auto status : trial.statuses) statuses.push_back(static_cast<std::uint64_t>(status));
    ordered_json errors = ordered_json::array();
    for (const std::string& error : trial.errors) errors.push_back(redactor_.text(error));
    writeText("trial.json", "How far routing a device came",
              dumped({{"registryEntryID", trial.registryEntryID},
                      {"outcome", trial.outcome},
                      {"statuses", statuses},
                      {"errors", errors},
                      {"deliveries", trial.deliveries}}));
  }

  void writeModules() {
    for (const ModuleFiles& module : askLogModules()) {
      step("Asking " + oneLine(module.name));
      if (!module.problem.empty()) miss("module " + module.identifier, module.problem);
      for (const auto& file : module.files) writeModuleFile(module, file);
    }
  }

  void writeModuleFile(const ModuleFiles& module,
                       const std::shared_ptr<platform::KQLogFile>& file) {
    const std::string name = file ? textOf(file->name()) : std::string();
    const std::string part = "module " + module.identifier + ", file " + name;
    ModuleContent content = readModuleFile(file);
    if (!content.problem.empty()) miss(part, content.problem);
    if (!content.path.empty()) {
      writeModulePath(module, *file, content, part);
    } else if (content.data && (content.data->length() > 0 || content.problem.empty())) {
      writeModulePart(module, *file, [&] { writeContent(content.data->span()); });
    } else if (content.problem.empty()) {
      miss(part, "gave neither data nor a file");
    }
  }

  template <class Write>
  void writeModulePart(const ModuleFiles& module, const platform::KQLogFile& file,
                       const Write& write) {
    const std::string name = "modules/" + safeComponent(redactor_.name(module.identifier)) + "/" +
                             safeComponent(redactor_.name(textOf(file.name())));
    writePart(name, redactor_.name(textOf(file.localizedDescription())),
              redactor_.name(textOf(file.categoryName())), write);
  }

  void writeModulePath(const ModuleFiles& module, const platform::KQLogFile& file,
                       const ModuleContent& content, const std::string& part) {
    std::string problem;
    SourceFile source(content.path, problem);
    if (problem.empty()) writeModulePart(module, file, [&] { writeStream(source, problem); });
    if (!problem.empty()) miss(part, problem);
    if (content.removePath) ::unlink(content.path.c_str());
  }

  void writeContent(std::span<const std::uint8_t> bytes) {
    if (!redactor_.isActive()) return archive_.write(bytes);
    RedactedLines lines(redactor_);
    while (!bytes.empty()) {
      const auto chunk = bytes.first(std::min(bytes.size(), kChunkBytes));
      archive_.write(lines.feed(asText(chunk)));
      bytes = bytes.subspan(chunk.size());
    }
    archive_.write(lines.finish());
  }

  void writeStream(SourceFile& source, std::string& problem) {
    RedactedLines lines(redactor_);
    for (auto chunk = source.next(problem); !chunk.empty(); chunk = source.next(problem)) {
      if (redactor_.isActive()) {
        archive_.write(lines.feed(asText(chunk)));
      } else {
        archive_.write(chunk);
      }
    }
    archive_.write(lines.finish());
  }

  void writeRecordings(const DeviceList& devices) {
    for (const auto& device : devices.devices) {
      const std::string recording = recordingOf(device);
      if (recording.empty()) continue;
      const std::string problem = writeRecording(device, recording);
      if (!problem.empty()) miss("the recording of " + device.name, problem);
    }
  }
  /// What is wrong with it.
  std::string writeRecording(const router::DeviceDescription& device,
                             const std::string& recording) {
    const router::DeviceFiles files(request_.root);
    std::string problem;
    try {
      SourceFile source(files.openRecording(recording).descriptor);
      writePart("recordings/" + hexadecimal(device.registryEntryID) + ".hid", oneLine(device.name),
                "Input", [&] { writeStream(source, problem); });
    } catch (const router::FileError& error) {
      problem = files.recordingPath(recording) + ": " + error.what();
    }
    return problem;
  }

  void writeManifest(const Inventory& inventory, const Diagnosis& diagnosis) {
    step("Writing the manifest");
    result_.manifest = dumped(manifestJson(inventory, diagnosis));
    archive_.begin(std::string(kFolder) + "manifest.json");
    archive_.write(result_.manifest);
    static_cast<void>(archive_.end());
  }

  [[nodiscard]] ordered_json manifestJson(const Inventory& inventory,
                                          const Diagnosis& diagnosis) const {
    ordered_json files = ordered_json::array();
    for (const ReportPart& part : result_.parts) {
      files.push_back({{"name", part.name},
                       {"bytes", part.bytes},
                       {"description", part.description},
                       {"category", part.category}});
    }
    ordered_json missing = ordered_json::array();
    for (const MissingPart& part : result_.missing)
      missing.push_back({{"part", part.part}, {"problem", part.problem}});
    return {{"format", kManifestFormat},
            {"created", utcTime()},
            {"tool", "wlhid " WLHID_VERSION},
            {"system", systemJson()},
            {"systemRoot", redactor_.path(request_.root.path().native())},
            {"withInput", request_.withInput},
            {"verdict", diagnosis.verdict},
            {"versions", versionsJson(inventory)},
            {"files", files},
            {"missing", missing}};
  }

  /// Null where there is none.
  [[nodiscard]] ordered_json versionsJson(const Inventory& inventory) const {
    const auto version = [this](const std::string& text) {
      return text.empty() ? ordered_json() : ordered_json(redactor_.version(text));
    };
    const RouterVersions& versions = inventory.presence.versions;
    return {
        {"bundleCopy", version(versions.bundle.version)},
        {"installed", versions.installed ? version(versions.installed->version) : ordered_json()},
        {"running", inventory.router ? version(inventory.router->version) : ordered_json()}};
  }

  const ReportRequest& request_;
  ReportArchive& archive_;
  Redactor redactor_ = Redactor::lettingEverythingThrough();
  std::set<std::string> names_{"manifest.json"};
  ReportResult result_;
};

}  // namespace

int reportSteps(const ReportRequest& request) {
  int steps = 2;  // the inventory, the manifest
  if (request.deviceToTry) ++steps;
  for (const auto& module : platform::KQLogger::sharedLogger().modules()) {
    if (dynamic_cast<platform::KQLogModuleFileProvider*>(module.get()) != nullptr) ++steps;
  }
  return steps;
}

ReportResult writeReport(const ReportRequest& request, ReportArchive& archive) {
  return ReportWriter(request, archive).write();
}

}  // namespace tool
