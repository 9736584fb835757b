// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/SystemFindings.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string_view>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/Format.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "router/control/ControlProtocol.h"
#include "tool/command/Command.h"
#include "tool/findings/RouterService.h"

namespace tool {

namespace {

namespace fs = std::filesystem;
using platform::SystemRoot;

/// A tool asks the control service; of the directory it only needs to know whether it is there.
constexpr const char* kDeviceDirectory = "com.quillmar.hideventrouter.devices";

/// Where systemd looks for units, an administrator's first.
constexpr std::array<std::string_view, 4> kUnitDirectories{
    "etc/systemd/system", "run/systemd/system", "lib/systemd/system", "usr/lib/systemd/system"};

PlaceProblem problemOf(const fs::path& path, const platform::ServiceError& error) {
  struct stat status {};
  if (error.code() != platform::ServiceErrorCode::NotPermitted ||
      ::stat(path.c_str(), &status) != 0)
    return {path, path.string() + ": " + error.what(), false};
  return {path,
          platform::stringWithFormat(
              "%s: belongs to user %u and has mode %04o; nothing is run from it unless only the "
              "superuser can change it",
              path.c_str(), status.st_uid, status.st_mode & 07777U),
          true};
}

/// The first directory on the way to the place that is not used.
std::optional<PlaceProblem> problemOnTheWay(const SystemRoot& root, int directory,
                                            const fs::path& place) {
  fs::path way;
  for (const fs::path& step : place) {
    way /= step;
    try {
      if (!platform::openPlace(directory, way.native())) return std::nullopt;
    } catch (const platform::ServiceError& error) {
      return problemOf(root.path() / way, error);
    }
  }
  return std::nullopt;
}

std::vector<PlaceProblem> placeProblems(const SystemRoot& root) try {
  const auto directory = platform::openRoot(root);
  if (!directory) return {};
  std::vector<std::string_view> places{root.places().run};
  for (const auto& layer : root.places().layers) {
    places.push_back(layer.jobs);
    places.push_back(layer.helpers);
  }
  std::vector<PlaceProblem> problems;
  std::set<std::string> named;
  for (const std::string_view place : places) {
    auto problem = problemOnTheWay(root, directory.get(), place);
    if (problem && named.insert(problem->path).second) problems.push_back(std::move(*problem));
  }
  return problems;
} catch (const platform::ServiceError& error) {
  return {problemOf(root.path(), error)};
}

UnitState stateOfUnit(const SystemRoot& root, const std::string& unit) {
  std::error_code ignored;  // what cannot be looked at is not there
  for (const std::string_view directory : kUnitDirectories) {
    const fs::path file = root.path() / directory / unit;
    if (fs::read_symlink(file, ignored) == "/dev/null") return UnitState::Masked;
    if (fs::exists(file, ignored)) return UnitState::Present;
  }
  return UnitState::Missing;
}

SocketUnit socketUnit(const SystemRoot& root, const std::string& unit, const std::string& service) {
  return {unit, stateOfUnit(root, unit), endpointsOf(root, {service}).front()};
}

RouterAnswers askRouter() {
  RouterAnswers answers;
  answers.asked = true;
  try {
    const RouterService router;
    answers.status = router.status();
    answers.devices = router.devices();
  } catch (const Failure& failure) {
    answers.problem = failure.what();
  }
  return answers;
}

}  // namespace

bool isOpen(const Endpoint& endpoint) {
  return endpoint.exists && endpoint.mayConnect && endpoint.problem.empty();
}

SystemFindings takeSystemFindings(const SystemRoot& root, bool isInstalled) {
  SystemFindings findings{
      placeProblems(root),
      {socketUnit(root, "wlhid-router.socket", std::string(WLHIDEventRouterLabel)),
       socketUnit(root, "wlhid-router-devices.socket", kDeviceDirectory),
       socketUnit(root, "wlhid-router-control.socket", std::string(router::kControlService))},
      socketUnit(root, "wlhid-jobd.socket", "jobd"),
      {},
      askAuthorities(root)};
  // Without its socket there is nobody to ask, and without a job nobody would answer.
  if (isInstalled && isOpen(findings.routerSockets.back().endpoint)) findings.router = askRouter();
  return findings;
}

}  // namespace tool
