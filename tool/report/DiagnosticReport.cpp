// SPDX-License-Identifier: Apache-2.0

#include "tool/report/DiagnosticReport.h"

#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "platform/foundation/Format.h"
#include "platform/kit/KQLogger.h"
#include "platform/kit/RecentLogLines.h"
#include "router/DeviceFiles.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/InventoryJson.h"
#include "tool/report/LastError.h"
#include "tool/report/LogModules.h"
#include "tool/report/Manifest.h"
#include "tool/report/PartNames.h"
#include "tool/report/ReportOrigin.h"
#include "tool/report/ShownFindings.h"
#include "tool/report/ShownLines.h"
#include "tool/report/SourceFile.h"
#include "tool/report/Summary.h"
#include "tool/routing/Trial.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using platform::stringWithFormat;

constexpr std::string_view kFolder = "wlhid-report/";

/// "replay NAME.hid" yields the name.
std::string recordingOf(const router::DeviceDescription& device) {
  constexpr std::string_view kKind = "replay ";
  return device.source.starts_with(kKind) ? device.source.substr(kKind.size()) : std::string();
}

std::string nameOfPart(const std::string& module, const std::string& file) {
  return "module " + module + ", file " + file;
}

std::string_view asText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class ReportWriter {
 public:
  ReportWriter(const ReportRequest& request, ReportArchive& archive)
      : request_(request), archive_(archive) {}

  ReportResult write() {
    step("Checking router, jobs and devices");
    const Inventory inventory = takeInventory(request_.root);
    const Diagnosis diagnosis = diagnose(inventory);
    const ReportOrigin origin = originOf(request_.withInput);
    // Before the modules are asked, so that their files include what it logs.
    const std::optional<TrialResult> trial = tryIfWanted();
    writeSummary({inventory, diagnosis, origin, trial, lastErrorIn(inventory.log.path)});
    writeInventory(inventory, diagnosis);
    if (trial) writeTrial(*trial);
    writeModules();
    if (request_.withInput) writeRecordings(inventory.devices);
    writeManifest(origin, inventory, diagnosis);
    return std::move(result_);
  }

 private:
  void step(const std::string& what) const {
    if (request_.onStep) request_.onStep(what);
  }
  void miss(const std::string& part, const std::string& problem, const std::string& shownPart,
            std::optional<std::int64_t> code = {}) {
    result_.missing.push_back({oneLine(part), oneLine(problem), shownPart, code});
  }

  /// A name for the next file that no other has.
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

  void writeSummary(const SummarySources& sources) {
    writeText("summary.html", "What is wrong, on one page",
              summaryPage(summaryOf(sources, request_.withInput, devices_)));
  }

  void writeInventory(const Inventory& inventory, const Diagnosis& diagnosis) {
    const bool whole = request_.withInput;
    writeText("doctor.txt", "What is in order and what is not",
              whole ? linesOf(diagnosis, /*colours=*/false) : shownDiagnosis(diagnosis));
    writeJson("presence.json", "Versions, and each step of the presence check",
              whole ? jsonOf(inventory.presence) : shownPresence(inventory.presence));
    writeJson("jobs.json", "Jobs, endpoints and their owners, the router's sessions",
              whole ? jobsJson(inventory) : shownJobs(inventory, devices_));
    writeJson("devices.json", "What can be routed",
              whole ? jsonOf(inventory.devices) : shownDevices(inventory.devices, devices_));
    writeJson("root.json", "The system root's directory, its log and its disk",
              shownRoot(inventory));
    if (!inventory.jobDaemon.problem.empty())
      miss("the jobs", inventory.jobDaemon.problem, "the jobs");
  }

  void writeJson(const std::string& name, const std::string& description,
                 const ordered_json& document) {
    writeText(name, description, dumped(document));
  }

  [[nodiscard]] static ordered_json jobsJson(const Inventory& inventory) {
    ordered_json endpoints = ordered_json::array();
    for (const Endpoint& endpoint : inventory.endpoints) endpoints.push_back(jsonOf(endpoint));
    const auto& jobs = inventory.jobDaemon.reply;
    const auto& router = inventory.router;
    return {{"jobDaemon", jobs ? jsonOf(*jobs) : ordered_json()},
            {"endpoints", endpoints},
            {"router", router ? jsonOf(*router) : ordered_json()}};
  }

  [[nodiscard]] std::optional<TrialResult> tryIfWanted() const {
    if (!request_.deviceToTry) return std::nullopt;
    step("Routing the device briefly");
    return tryDevice(*request_.deviceToTry);
  }

  void writeTrial(const TrialResult& trial) {
    ordered_json document = shownTrial(trial, devices_);
    if (request_.withInput) {
      document["registryEntryID"] = trial.registryEntryID;
      document["errors"] = trial.errors;
    }
    writeJson("trial.json", "How far routing a device got", document);
  }

  void writeModules() {
    std::size_t number = 0;
    for (const ModuleFiles& module : askLogModules()) {
      step("Asking " + oneLine(module.name));
      ++number;
      if (!module.problem.empty()) {
        miss("module " + module.identifier, module.problem, "module-" + std::to_string(number),
             module.code);
      }
      for (std::size_t i = 0; i < module.files.size(); ++i)
        writeModuleFile(module, number, module.files[i], i + 1);
    }
  }

  void writeModuleFile(const ModuleFiles& module, std::size_t moduleNumber,
                       const std::shared_ptr<platform::KQLogFile>& file, std::size_t fileNumber) {
    const std::string fileName = file ? textOf(file->name()) : std::string();
    const PartName shown = shownPartName(module.identifier, moduleNumber, fileName, fileNumber);
    const auto missing = [&](const std::string& problem, std::optional<std::int64_t> code = {}) {
      miss(nameOfPart(module.identifier, fileName), problem, nameOfPart(shown.module, shown.file),
           code);
    };
    ModuleContent content = readModuleFile(file);
    if (!content.problem.empty()) missing(content.problem, content.code);
    if (!content.path.empty()) {
      const std::string problem = writeModulePath(module, *file, content, shown);
      if (!problem.empty()) missing(problem);
    } else if (content.data && (content.data->length() > 0 || content.problem.empty())) {
      writeModulePart(module, *file, shown,
                      [&] { writeContent(content.data->span(), module.identifier, fileName); });
    } else if (content.problem.empty()) {
      missing("provided neither data nor a file");
    }
  }

  template <class Write>
  void writeModulePart(const ModuleFiles& module, const platform::KQLogFile& file,
                       const PartName& shown, const Write& write) {
    const PartName name = request_.withInput ? wholePartName(module, file) : shown;
    writePart("modules/" + safeComponent(name.module) + "/" + safeComponent(name.file),
              name.description, name.category, write);
  }

  /// What is wrong with it.
  std::string writeModulePath(const ModuleFiles& module, const platform::KQLogFile& file,
                              const ModuleContent& content, const PartName& shown) {
    std::string problem;
    SourceFile source(content.path, problem);
    if (problem.empty()) {
      writeModulePart(module, file, shown,
                      [&] { writeStream(source, ShownLines::Source::Unknown, problem); });
    }
    if (content.removePath) ::unlink(content.path.c_str());
    return problem;
  }

  void writeContent(std::span<const std::uint8_t> bytes, const std::string& module,
                    const std::string& file) {
    if (request_.withInput) return archive_.write(bytes);
    if (isRecentLines(module, file)) return writeRecentLines();
    ShownLines lines(
        isRouterLog(module, file) ? ShownLines::Source::SystemLog : ShownLines::Source::Unknown,
        devices_);
    while (!bytes.empty()) {
      const auto chunk = bytes.first(std::min(bytes.size(), kPieceBytes));
      archive_.write(lines.feed(asText(chunk)));
      bytes = bytes.subspan(chunk.size());
    }
    archive_.write(lines.finish());
  }

  /// Not from the module's text: here each line's origin is known without parsing it.
  void writeRecentLines() {
    const auto& recent = platform::KQLogger::sharedLogger().recentLines();
    if (const std::uint64_t dropped = recent.contents().dropped; dropped > 0)
      archive_.write(stringWithFormat("(%llu older lines were dropped)\n", dropped));
    for (const auto& line : recent.lines()) archive_.write(shownRecentLine(line) + "\n");
  }

  void writeStream(SourceFile& source, ShownLines::Source kind, std::string& problem) {
    ShownLines lines(kind, devices_);
    for (auto chunk = source.next(problem); !chunk.empty(); chunk = source.next(problem)) {
      if (request_.withInput) {
        archive_.write(chunk);
      } else {
        archive_.write(lines.feed(asText(chunk)));
      }
    }
    archive_.write(lines.finish());
  }

  void writeRecordings(const DeviceList& devices) {
    for (const auto& device : devices.devices) {
      const std::string recording = recordingOf(device);
      if (recording.empty()) continue;
      const std::string problem = writeRecording(device, recording);
      if (!problem.empty()) miss("the recording of " + device.name, problem, std::string(kPrivate));
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
                "Input", [&] { writeStream(source, ShownLines::Source::Unknown, problem); });
    } catch (const router::FileError& error) {
      problem = files.recordingPath(recording) + ": " + error.what();
    }
    return problem;
  }

  void writeManifest(const ReportOrigin& origin, const Inventory& inventory,
                     const Diagnosis& diagnosis) {
    step("Writing the manifest");
    result_.manifest = manifestOf(request_, result_, origin, inventory, diagnosis);
    archive_.begin(std::string(kFolder) + "manifest.json");
    archive_.write(result_.manifest);
    static_cast<void>(archive_.end());
  }

  const ReportRequest& request_;
  ReportArchive& archive_;
  DeviceOrder devices_;
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
