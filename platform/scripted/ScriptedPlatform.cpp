// SPDX-License-Identifier: Apache-2.0

#include "platform/scripted/ScriptedPlatform.h"

#include <span>
#include <stdexcept>
#include <utility>

#include "platform/scripted/Describe.h"
#include "platform/scripted/HelperImage.h"
#include "platform/scripted/ScriptedState.h"

namespace platform {

namespace {

std::string installedPath(const std::string& label) {
  return "/Library/PrivilegedHelperTools/" + label;
}

std::string describeTags(const std::shared_ptr<NSArray>& tags) {
  if (!tags) return "no tags";
  std::string line;
  tags->enumerateObjects([&line](const std::shared_ptr<NSObject>& tag) {
    line += (line.empty() ? "" : ", ") + describe(tag);
  });
  return "(" + line + ")";
}

}  // namespace

std::string describeLogEntry(const KQLogEntry& entry) {
  return "log " + std::to_string(entry.level) + " " + std::string(entry.sourcePath) + ":" +
         std::to_string(entry.sourceLine) + " " + std::string(entry.function) + " " +
         describeTags(entry.tags) + " " + describe(entry.message);
}

ScriptedPlatform::ScriptedPlatform() : state_(std::make_shared<State>()) {
  previousFoundation_ = foundationProvider().exchange(scriptedFoundation(state_));
  previousServices_ = servicesProvider().exchange(scriptedServices(state_));
  previousXPC_ = xpcProvider().exchange(scriptedXPC(state_));
  previousLogLevel_ = KQLogger::logLevel();
  KQLogger::setLogLevel(0);
  previousSink_ = KQLogger::sharedLogger().setSink(
      std::make_shared<KQLogSink>([trace = state_->trace](const KQLogEntry& entry) {
        trace->record({TraceKind::Log,
                       std::string(entry.sourcePath),
                       std::string(entry.function),
                       {std::to_string(entry.level), std::to_string(entry.sourceLine),
                        std::string(entry.message)},
                       describeLogEntry(entry)});
      }));
}

ScriptedPlatform::~ScriptedPlatform() {
  // An unanswered request holds its sender, and through it the connection that holds the request.
  for (std::size_t number = connectionCount(); number > 0; --number) connection(number)->discard();
  KQLogger::sharedLogger().setSink(previousSink_);
  KQLogger::setLogLevel(previousLogLevel_);
  xpcProvider().exchange(previousXPC_);
  servicesProvider().exchange(previousServices_);
  foundationProvider().exchange(previousFoundation_);
}

Trace& ScriptedPlatform::trace() {
  return *state_->trace;
}

void ScriptedPlatform::setLogLevel(std::uint64_t level) {
  KQLogger::setLogLevel(level);
}

// ---- Files, property lists

void ScriptedPlatform::setMainBundlePath(std::shared_ptr<NSString> path) {
  const std::lock_guard lock(state_->mutex);
  state_->mainBundlePath.swap(path);
}

void ScriptedPlatform::setFile(std::string path, std::vector<std::uint8_t> bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->files.insert_or_assign(std::move(path), std::move(bytes));
}

void ScriptedPlatform::removeFile(std::string_view path) {
  const std::lock_guard lock(state_->mutex);
  if (const auto file = state_->files.find(path); file != state_->files.end())
    state_->files.erase(file);
}

void ScriptedPlatform::setPropertyList(std::string bytes, std::shared_ptr<NSObject> result) {
  const std::lock_guard lock(state_->mutex);
  state_->propertyLists.insert_or_assign(std::move(bytes), std::move(result));
}

void ScriptedPlatform::removePropertyList(std::string_view bytes) {
  const std::lock_guard lock(state_->mutex);
  if (const auto list = state_->propertyLists.find(bytes); list != state_->propertyLists.end())
    state_->propertyLists.erase(list);
}

// ---- Jobs and authorization

void ScriptedPlatform::setJob(std::string label, std::shared_ptr<NSDictionary> job) {
  const std::lock_guard lock(state_->mutex);
  state_->jobs.insert_or_assign(std::move(label), std::move(job));
}

void ScriptedPlatform::setNextJobs(std::vector<std::shared_ptr<NSDictionary>> jobs) {
  const std::lock_guard lock(state_->mutex);
  state_->nextJobs.assign(jobs.begin(), jobs.end());
}

void ScriptedPlatform::setAuthorizationStatus(OSStatus status) {
  const std::lock_guard lock(state_->mutex);
  state_->authorizationStatus = status;
}

void ScriptedPlatform::setRemoval(OutcomeScript script) {
  const std::lock_guard lock(state_->mutex);
  state_->removal.swap(script);
}

void ScriptedPlatform::setBless(OutcomeScript script) {
  const std::lock_guard lock(state_->mutex);
  state_->bless.swap(script);
}

std::shared_ptr<NSDictionary> ScriptedPlatform::helperJob(const std::string& label) {
  return NSDictionary::dictionaryWithEntries(
      {{str("Label"), str(label)},
       {str("ProgramArguments"), NSArray::arrayWithObjects({str(installedPath(label))})}});
}

void ScriptedPlatform::installHelper(const std::string& label, std::string_view installedVersion) {
  setFile(installedPath(label), helperImageWithInfoPlist(infoPlistWithVersion(installedVersion)));
  setJob(label, helperJob(label));
}

void ScriptedPlatform::uninstallHelper(const std::string& label) {
  setJob(label, nullptr);
  removeFile(installedPath(label));
}

void ScriptedPlatform::setBundleCopy(const std::string& label, std::string_view version) {
  std::string path;
  {
    const std::lock_guard lock(state_->mutex);
    path = descriptionOf(state_->mainBundlePath) + "/Contents/Library/LaunchServices/" + label;
  }
  setFile(std::move(path), helperImageWithInfoPlist(infoPlistWithVersion(version)));
}

// ---- Connections

void ScriptedPlatform::refuseInterface(const std::string& protocolName, bool refuse) {
  const std::lock_guard lock(state_->mutex);
  if (refuse)
    state_->refusedInterfaces.insert(protocolName);
  else
    state_->refusedInterfaces.erase(protocolName);
}

void ScriptedPlatform::refuseConnections(bool refuse) {
  const std::lock_guard lock(state_->mutex);
  state_->refusesConnections = refuse;
}

std::size_t ScriptedPlatform::connectionCount() const {
  const std::lock_guard lock(state_->mutex);
  return state_->connections.size();
}

std::shared_ptr<ScriptedConnection> ScriptedPlatform::connection(std::size_t number) const {
  const std::lock_guard lock(state_->mutex);
  if (number == 0 || number > state_->connections.size()) {
    throw std::out_of_range("there is no connection " + std::to_string(number));
  }
  return state_->connections[number - 1];
}

KeyValueObservation ScriptedPlatform::observe(KeyValueObservable& object, std::string_view key) {
  return object.addObserver_forKey(key, [trace = state_->trace](const KeyValueChange& change) {
    const std::string what = change.prior ? "will change" : "did change";
    trace->record({TraceKind::Change,
                   std::string(change.key),
                   what,
                   {},
                   what + " " + std::string(change.key)});
  });
}

}  // namespace platform
