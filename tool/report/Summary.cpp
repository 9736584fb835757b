// SPDX-License-Identifier: Apache-2.0

#include "tool/report/Summary.h"

#include <map>

#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/report/DeviceClasses.h"
#include "tool/report/ShownFindings.h"

namespace tool {

namespace {

using router::DeviceClass;
using router::DevicePermission;

constexpr std::size_t kMostDevices = 8;
constexpr const char* kShownNote =
    "Names, paths, users, serial numbers and input are left out. On the computer itself, wlhid "
    "doctor names what it found and prints the commands that help. The other files of this report "
    "have the details; manifest.json lists them.";
constexpr const char* kWholeNote =
    "This report has input, serial numbers and paths: be careful who gets it. manifest.json lists "
    "its files.";

std::string countOf(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string shownCount(std::int64_t count) {
  return isShownNumber(count) ? std::to_string(count) : std::string(kPrivate);
}

std::string_view textOf(DevicePermission permission) {
  switch (permission) {
    case DevicePermission::Yes:
      return "this user may route it";
    case DevicePermission::Partly:
      return "this user may route its harmless reports";
    case DevicePermission::Administrator:
      return "an administrator has to agree each time";
    case DevicePermission::No:
      return "this user may not route it";
    case DevicePermission::Unknown:
      break;
  }
  return "nobody has decided whether this user may route it";
}

class SummaryWriter {
 public:
  SummaryWriter(const SummarySources& sources, bool whole, DeviceOrder& devices)
      : inventory_(sources.inventory), sources_(sources), whole_(whole), devices_(devices) {}

  Summary write() {
    result_.verdict = sources_.diagnosis.verdict;
    result_.inOrder = sources_.diagnosis.inOrder;
    addFaults();
    row("Versions", versions());
    row("Router", router());
    addDevices();
    if (sources_.trial) row("Trial", trial(*sources_.trial));
    row("Last error", lastError());
    row("Made", made());
    result_.note = whole_ ? kWholeNote : kShownNote;
    return std::move(result_);
  }

 private:
  void row(std::string name, std::string text) {
    result_.rows.push_back({std::move(name), std::move(text)});
  }

  void addFaults() {
    for (const Check& check : sources_.diagnosis.checks) {
      if (check.state != Check::State::Failed) continue;
      if (whole_)
        result_.faults.push_back(
            {oneLine(check.name), oneLine(check.found), oneLine(check.remedy)});
      else
        result_.faults.push_back(
            {shownName(check), std::string(check.fault), std::string(check.advice)});
    }
  }

  [[nodiscard]] std::string version(const std::string& text) const {
    return whole_ ? oneLine(text) : shownVersion(text);
  }
  [[nodiscard]] std::string version(const RouterCopy& copy) const {
    return copy.state == CopyState::Complete ? version(copy.version) : "unusable";
  }
  [[nodiscard]] std::string versions() const {
    const RouterVersions& versions = inventory_.presence.versions;
    return "this program's router " + version(versions.bundle) + ", installed " +
           (versions.installed ? version(*versions.installed) : "none") + ", running " +
           (inventory_.router ? version(inventory_.router->version) : "none");
  }

  [[nodiscard]] std::string routerOfNoStatus() const {
    if (!inventory_.system) return "not running";
    return inventory_.system->router.asked ? "does not answer" : "cannot be asked";
  }
  [[nodiscard]] std::string router() const {
    if (!inventory_.router) return routerOfNoStatus();
    const router::RouterStatus& running = *inventory_.router;
    return "process " + shownCount(running.pid) + ", " +
           countOf(running.sessions.size(), "session") +
           ", reports lost: " + shownCount(static_cast<std::int64_t>(running.lost));
  }

  /// What the router says of each device; empty on a user's root.
  [[nodiscard]] std::map<std::uint64_t, DevicePermission> permissions() const {
    std::map<std::uint64_t, DevicePermission> result;
    if (!inventory_.system) return result;
    for (const auto& listed :
         inventory_.system->router.devices.value_or(std::vector<router::ListedDevice>()))
      result[listed.device.registryEntryID] = listed.permission;
    return result;
  }

  using Classes = std::map<std::uint64_t, DeviceClass>;
  [[nodiscard]] static std::string classOf(std::uint64_t id, const Classes& classes) {
    const auto found = classes.find(id);
    if (found == classes.end()) return "its class is not known";
    return found->second == DeviceClass::Ordinary ? "ordinary" : "sensitive";
  }

  void addDevices() {
    const auto& all = inventory_.devices.devices;
    const Classes classes = classesOf(inventory_);
    const auto may = permissions();
    if (all.empty()) row("Devices", "none");
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (i == kMostDevices)
        return row("Devices", countOf(all.size() - i, "more device") + " in devices.json");
      const std::uint64_t id = all[i].registryEntryID;
      std::string text;
      if (whole_) text = oneLine(all[i].name) + " (" + hexadecimal(id) + "): ";
      text += classOf(id, classes);
      if (const auto permission = may.find(id); permission != may.end())
        text.append("; ").append(textOf(permission->second));
      if (!inventory_.system) text += "; a recording";
      row(devices_.nameOf(id), text);
    }
  }

  [[nodiscard]] std::string trial(const TrialResult& tried) const {
    std::string text =
        whole_ ? hexadecimal(tried.registryEntryID) : devices_.nameOf(tried.registryEntryID);
    text += ": " + tried.outcome;
    for (std::size_t i = 0; i < tried.errorCodes.size(); ++i) {
      const std::int64_t code = tried.errorCodes[i];
      text += ", code " + (isShownCode(code) ? std::to_string(code) : std::string(kPrivate));
      if (whole_ && i < tried.errors.size()) text += " (" + oneLine(tried.errors[i]) + ")";
    }
    return text;
  }

  [[nodiscard]] std::string lastError() const {
    if (!inventory_.log.problem.empty()) return "the log cannot be read";
    if (!sources_.lastError) return "none in the log";
    return whole_ ? oneLine(*sources_.lastError) : shownLogLine(*sources_.lastError, devices_);
  }

  [[nodiscard]] std::string made() const {
    const ReportOrigin& origin = sources_.origin;
    return origin.time + " by " + origin.tool + " on " + origin.kernel + ", " + origin.machine +
           (origin.distribution.empty() ? "" : ", " + origin.distribution);
  }

  const Inventory& inventory_;
  const SummarySources& sources_;
  const bool whole_;
  DeviceOrder& devices_;
  Summary result_;
};

}  // namespace

Summary summaryOf(const SummarySources& sources, bool whole, DeviceOrder& devices) {
  return SummaryWriter(sources, whole, devices).write();
}

}  // namespace tool
