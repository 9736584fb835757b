// SPDX-License-Identifier: Apache-2.0

// The three providers of a scripted platform: each records a call, then answers it from the script.
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/scripted/Describe.h"
#include "platform/scripted/ScriptedState.h"

namespace platform {

namespace {

using StatePointer = std::shared_ptr<ScriptedPlatform::State>;

// ---- Foundation

class RecordingCenter final : public NSNotificationCenter {
 public:
  explicit RecordingCenter(std::shared_ptr<Trace> trace) : trace_(std::move(trace)) {}

  void addObserver_selector_name_object(NSNotificationObserver observer,
                                        const std::shared_ptr<NSString>& name,
                                        const std::shared_ptr<NSObject>& object) override {
    record("addObserver:selector:name:object:",
           {std::string(observer.selector), describe(name), describe(object)},
           "addObserver:selector:" + std::string(observer.selector) + " name:" + describe(name) +
               " object:" + describe(object));
    center_->addObserver_selector_name_object(std::move(observer), name, object);
  }
  void removeObserver_name_object(const void* identity, const std::shared_ptr<NSString>& name,
                                  const std::shared_ptr<NSObject>& object) override {
    record("removeObserver:name:object:", {describe(name), describe(object)},
           "removeObserver: name:" + describe(name) + " object:" + describe(object));
    center_->removeObserver_name_object(identity, name, object);
  }
  void postNotificationName_object(const std::shared_ptr<NSString>& name,
                                   const std::shared_ptr<NSObject>& object) override {
    record("postNotificationName:object:", {describe(name), describe(object)},
           "postNotificationName:" + describe(name) + " object:" + describe(object));
    center_->postNotificationName_object(name, object);
  }

 private:
  void record(std::string name, std::vector<std::string> arguments, const std::string& text) {
    trace_->record({TraceKind::Notification, "defaultCenter", std::move(name), std::move(arguments),
                    "defaultCenter " + text});
  }

  const std::shared_ptr<Trace> trace_;
  const std::shared_ptr<NSNotificationCenter> center_ = NSNotificationCenter::center();
};

class ScriptedFoundation final : public FoundationProvider {
 public:
  explicit ScriptedFoundation(StatePointer state)
      : state_(std::move(state)), center_(std::make_shared<RecordingCenter>(state_->trace)) {}

  std::shared_ptr<NSData> dataWithContentsOfFile(const std::shared_ptr<NSString>& path) override {
    auto data = file(path);
    state_->record("foundation", "dataWithContentsOfFile:", {describe(path)},
                   "dataWithContentsOfFile:" + describe(path) + " -> " + (data ? "data" : "nil"));
    return data;
  }
  int readFile(const std::shared_ptr<NSString>& path, const PieceHandler& look,
               const PieceHandler& take) override {
    const auto data = file(path);
    state_->record("foundation", "readFile:", {describe(path)},
                   "readFile:" + describe(path) + " -> " + (data ? "bytes" : "no such file"));
    if (!data) return ENOENT;
    const std::string_view piece(reinterpret_cast<const char*>(data->bytes()), data->length());
    if (!piece.empty() && look(piece)) take(piece);
    return 0;
  }
  std::shared_ptr<NSString> mainBundlePath() override {
    std::shared_ptr<NSString> path;
    {
      const std::lock_guard lock(state_->mutex);
      path = state_->mainBundlePath;
    }
    state_->record("mainBundle", "bundlePath", {}, "mainBundle bundlePath -> " + describe(path));
    return path;
  }
  std::shared_ptr<NSObject> propertyListWithData(const std::shared_ptr<NSData>& data,
                                                 NSPropertyListFormat* returnFormat,
                                                 std::shared_ptr<NSError>* returnError) override {
    auto result = propertyList(data, returnFormat, returnError);
    state_->record("foundation", "propertyListWithData:", {},
                   "propertyListWithData: -> " + describe(result));
    return result;
  }
  std::shared_ptr<NSNotificationCenter> defaultCenter() override { return center_; }
  void log(std::string_view text) override {
    state_->trace->record(
        {TraceKind::Log, "NSLog", "", {std::string(text)}, "NSLog " + std::string(text)});
  }

 private:
  std::shared_ptr<NSData> file(const std::shared_ptr<NSString>& path) const {
    if (!path) return nullptr;
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->files.find(path->UTF8String());
    return found == state_->files.end() ? nullptr : NSData::dataWithBytes(found->second);
  }
  std::shared_ptr<NSObject> propertyList(const std::shared_ptr<NSData>& data,
                                         NSPropertyListFormat* returnFormat,
                                         std::shared_ptr<NSError>* returnError) const {
    if (data) {
      const auto span = data->span();
      const std::string_view bytes(reinterpret_cast<const char*>(span.data()), span.size());
      const std::lock_guard lock(state_->mutex);
      const auto found = state_->propertyLists.find(bytes);
      if (found != state_->propertyLists.end()) return found->second;
    }
    return machineFoundationProvider()->propertyListWithData(data, returnFormat, returnError);
  }

  const StatePointer state_;
  const std::shared_ptr<NSNotificationCenter> center_;
};

// ---- Services

std::string describeItem(const AuthorizationItem& item) {
  std::string line =
      std::string(item.name) + " length=" + std::to_string(item.valueLength) + " value=";
  line += item.value == nullptr
              ? "null"
              : std::string(static_cast<const char*>(item.value), item.valueLength);
  return line + " flags=" + std::to_string(item.flags);
}

std::string describeItems(const AuthorizationItemSet* items) {
  if (items == nullptr) return "null";
  std::string line;
  for (std::uint32_t i = 0; i < items->count; ++i)
    line += (i == 0 ? "" : ", ") + describeItem(items->items[i]);
  return "{" + line + "}";
}

class ScriptedServices final : public ServicesProvider {
 public:
  explicit ScriptedServices(StatePointer state) : state_(std::move(state)) {}

  std::shared_ptr<NSDictionary> jobCopyDictionary(std::string_view domain,
                                                  const std::shared_ptr<NSString>& label) override {
    auto found = job(label);
    state_->record("services", "SMJobCopyDictionary",
                   {std::string(domain), platform::describe(label)},
                   "SMJobCopyDictionary(" + std::string(domain) + ", " + platform::describe(label) +
                       ") -> " + (found ? "job" : "nil"));
    return found;
  }
  bool jobRemove(std::string_view domain, const std::shared_ptr<NSString>& label,
                 const AuthorizationRef& authorization, bool wait,
                 std::shared_ptr<NSError>* returnError) override {
    state_->record("services", "SMJobRemove",
                   {std::string(domain), platform::describe(label), describe(authorization),
                    wait ? "true" : "false"},
                   "SMJobRemove(" + std::string(domain) + ", " + platform::describe(label) +
                       ", authorization " + describe(authorization) +
                       ", wait=" + (wait ? "true" : "false") + ")");
    return play(&ScriptedPlatform::State::removal, returnError);
  }
  bool jobBless(std::string_view domain, const std::shared_ptr<NSString>& label,
                const AuthorizationRef& authorization,
                std::shared_ptr<NSError>* returnError) override {
    state_->record("services", "SMJobBless",
                   {std::string(domain), platform::describe(label), describe(authorization)},
                   "SMJobBless(" + std::string(domain) + ", " + platform::describe(label) +
                       ", authorization " + describe(authorization) + ")");
    return play(&ScriptedPlatform::State::bless, returnError);
  }
  OSStatus authorizationCreate(const AuthorizationRights* rights,
                               const AuthorizationEnvironment* environment,
                               AuthorizationFlags flags,
                               AuthorizationRef* returnAuthorization) override {
    AuthorizationRef authorization = nullptr;
    OSStatus status = errAuthorizationSuccess;
    {
      const std::lock_guard lock(state_->mutex);
      status = state_->authorizationStatus;
      if (status == errAuthorizationSuccess) authorization = newAuthorization();
    }
    state_->record("services", "AuthorizationCreate",
                   {describeItems(rights), describeItems(environment), std::to_string(flags)},
                   "AuthorizationCreate(rights=" + describeItems(rights) +
                       ", environment=" + describeItems(environment) +
                       ", flags=" + std::to_string(flags) + ") -> " + std::to_string(status));
    if (returnAuthorization != nullptr) *returnAuthorization = authorization;
    return status;
  }

 private:
  /// References are opaque handles; traces print their number, from 1.
  AuthorizationRef newAuthorization() const {
    return reinterpret_cast<AuthorizationRef>(&state_->authorizations.emplace_back());
  }
  std::string describe(const AuthorizationRef& authorization) const {
    const std::lock_guard lock(state_->mutex);
    std::size_t number = 0;
    for (char& handle : state_->authorizations) {
      ++number;
      if (reinterpret_cast<AuthorizationRef>(&handle) == authorization)
        return std::to_string(number);
    }
    return authorization == nullptr ? "null" : "unknown";
  }
  std::shared_ptr<NSDictionary> job(const std::shared_ptr<NSString>& label) const {
    const std::lock_guard lock(state_->mutex);
    if (!state_->nextJobs.empty()) {
      auto next = std::move(state_->nextJobs.front());
      state_->nextJobs.pop_front();
      return next;
    }
    const auto found = label ? state_->jobs.find(label->UTF8String()) : state_->jobs.end();
    return found == state_->jobs.end() ? nullptr : found->second;
  }
  bool play(ScriptedPlatform::OutcomeScript ScriptedPlatform::State::*script,
            std::shared_ptr<NSError>* returnError) const {
    ScriptedPlatform::OutcomeScript chosen;
    {
      const std::lock_guard lock(state_->mutex);
      chosen = (*state_).*script;
    }
    const ScriptedOutcome outcome = chosen ? chosen() : ScriptedOutcome();
    if (returnError != nullptr && outcome.error) *returnError = outcome.error;
    return outcome.success;
  }

  const StatePointer state_;
};

// ---- Connections

class RecordingInterface final : public NSXPCInterface {
 public:
  RecordingInterface(const XPCProtocol& protocol, std::shared_ptr<Trace> trace)
      : NSXPCInterface(protocol), trace_(std::move(trace)) {}

  void setClasses_forSelector_argumentIndex_ofReply(const NSClassSet& classes,
                                                    std::string_view selector,
                                                    std::size_t argumentIndex,
                                                    bool ofReply) override {
    trace_->record({TraceKind::Call,
                    "interface " + std::string(protocol().name),
                    "setClasses:forSelector:argumentIndex:ofReply:",
                    {describeClasses(classes), std::string(selector), std::to_string(argumentIndex),
                     ofReply ? "YES" : "NO"},
                    "interface " + std::string(protocol().name) + " setClasses:" +
                        describeClasses(classes) + " forSelector:" + std::string(selector) +
                        " argumentIndex:" + std::to_string(argumentIndex) +
                        " ofReply:" + (ofReply ? "YES" : "NO")});
    NSXPCInterface::setClasses_forSelector_argumentIndex_ofReply(classes, selector, argumentIndex,
                                                                 ofReply);
  }

 private:
  const std::shared_ptr<Trace> trace_;
};

class ScriptedXPC final : public XPCProvider {
 public:
  explicit ScriptedXPC(StatePointer state) : state_(std::move(state)) {}

  std::shared_ptr<NSXPCInterface> interfaceWithProtocol(const XPCProtocol& protocol) override {
    const bool refused = isRefused(protocol.name);
    state_->record(
        "NSXPCInterface", "interfaceWithProtocol:", {std::string(protocol.name)},
        "interfaceWithProtocol:" + std::string(protocol.name) + (refused ? " -> nil" : ""));
    if (refused) return nullptr;
    return std::make_shared<RecordingInterface>(protocol, state_->trace);
  }
  std::shared_ptr<NSXPCConnection> connection(const std::shared_ptr<NSString>& name,
                                              NSXPCConnectionOptions options) override {
    const auto script = nextConnection();
    const std::string object =
        script ? "connection " + std::to_string(script->number()) : "no connection";
    state_->trace->record({TraceKind::Connection,
                           object,
                           "initWithMachServiceName:options:",
                           {describe(name), std::to_string(options)},
                           object + " initWithMachServiceName:" + describe(name) +
                               " options:" + std::to_string(options)});
    return script ? script->makeConnection() : nullptr;
  }

 private:
  bool isRefused(std::string_view protocol) const {
    const std::lock_guard lock(state_->mutex);
    return state_->refusedInterfaces.contains(protocol);
  }
  std::shared_ptr<ScriptedConnection> nextConnection() {
    const std::lock_guard lock(state_->mutex);
    if (state_->refusesConnections) return nullptr;
    const int number = static_cast<int>(state_->connections.size()) + 1;
    state_->connections.push_back(std::make_shared<ScriptedConnection>(number, state_->trace));
    return state_->connections.back();
  }
  const StatePointer state_;
};

}  // namespace

std::shared_ptr<FoundationProvider> scriptedFoundation(StatePointer state) {
  return std::make_shared<ScriptedFoundation>(std::move(state));
}
std::shared_ptr<ServicesProvider> scriptedServices(StatePointer state) {
  return std::make_shared<ScriptedServices>(std::move(state));
}
std::shared_ptr<XPCProvider> scriptedXPC(StatePointer state) {
  return std::make_shared<ScriptedXPC>(std::move(state));
}

}  // namespace platform
