// SPDX-License-Identifier: Apache-2.0

#include "platform/scripted/ScriptedConnection.h"

#include <stdexcept>
#include <utility>

#include "platform/scripted/Describe.h"
#include "platform/xpc/InterfaceTable.h"

namespace platform {
namespace {

/// 0, or why the real layer could not send `values`.
int encode(xpc::WireWriter& writer, const XPCValues& values) try {
  xpc::encodeValues(writer, values);
  return 0;
} catch (const xpc::EncodingError& error) {
  return error.code();
}

/// Whether the real layer would let `values` through: encodes them as it does and decodes them with
/// the classes that `interface` admits.
bool areAdmitted(const std::shared_ptr<NSXPCInterface>& interface, std::size_t method, bool ofReply,
                 const XPCValues& values) {
  const xpc::InterfaceTable table(interface);
  const xpc::MethodRules& rules = table.methods().at(method);
  xpc::WireWriter writer;
  if (encode(writer, values) != 0) return false;
  xpc::WireReader reader(writer.bytes());
  XPCValues read;
  const auto result = xpc::decodeValues(reader, ofReply ? rules.reply : rules.arguments, read);
  return result.verdict == xpc::DecodeVerdict::Accepted;
}

void recordMessage(Trace& trace, int number, std::string_view selector,
                   std::vector<std::string> arguments) {
  std::string object = "connection " + std::to_string(number);
  std::string text = object + " send " + std::string(selector);
  for (const std::string& argument : arguments) text += " " + argument;
  trace.record({TraceKind::Message, std::move(object), std::string(selector), std::move(arguments),
                std::move(text)});
}

std::shared_ptr<NSError> cocoaError(std::int64_t code) {
  return NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), code, nullptr);
}

}  // namespace

/// The NSXPCConnection itself: forwards everything and records its own destruction.
class ScriptedConnection::Connection final : public NSXPCConnection {
 public:
  explicit Connection(std::shared_ptr<ScriptedConnection> script) : script_(std::move(script)) {}
  ~Connection() override { script_->dropped(); }

  void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) override {
    script_->setExportedInterface(std::move(interface));
  }
  void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) override {
    script_->setRemoteObjectInterface(std::move(interface));
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    script_->setHandler(script_->interruptionHandler_, std::move(handler),
                        "setInterruptionHandler:");
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    script_->setHandler(script_->invalidationHandler_, std::move(handler),
                        "setInvalidationHandler:");
  }
  void resume() override { script_->resume(); }
  void invalidate() override { script_->invalidate(); }
  [[nodiscard]] uid_t effectiveUserIdentifier() const override { return static_cast<uid_t>(-1); }
  [[nodiscard]] pid_t processIdentifier() const override { return -1; }

 protected:
  void setExportedObject(XPCExportedObject object) override {
    script_->setExportedObject(std::move(object));
  }
  std::shared_ptr<void> remoteObjectProxy(const XPCProtocol& protocol,
                                          XPCErrorHandler handler) override {
    return script_->remoteObjectProxy(protocol, std::move(handler));
  }

 private:
  const std::shared_ptr<ScriptedConnection> script_;
};

class ScriptedConnection::Sink final : public XPCMessageSink {
 public:
  Sink(std::shared_ptr<ScriptedConnection> script, const XPCProtocol& protocol,
       XPCErrorHandler error)
      : script_(std::move(script)),
        protocol_(protocol),
        error_(std::make_shared<XPCErrorHandler>(std::move(error))) {}

  void send(std::size_t method, const XPCValues& arguments, XPCReplyHandler reply) override {
    script_->send(protocol_, method, arguments, std::move(reply), error_);
  }

 private:
  const std::shared_ptr<ScriptedConnection> script_;
  const XPCProtocol& protocol_;
  const std::shared_ptr<XPCErrorHandler> error_;
};

ScriptedConnection::ScriptedConnection(int number, std::shared_ptr<Trace> trace)
    : number_(number), trace_(std::move(trace)) {}

std::shared_ptr<NSXPCConnection> ScriptedConnection::makeConnection() {
  return std::make_shared<Connection>(shared_from_this());
}

void ScriptedConnection::record(std::string name, std::vector<std::string> arguments) {
  std::string object = "connection " + std::to_string(number_);
  std::string text = object + " " + name;
  for (const std::string& argument : arguments) text += argument;
  trace_->record({TraceKind::Connection, std::move(object), std::move(name), std::move(arguments),
                  std::move(text)});
}

// ---- Called by the code under test

void ScriptedConnection::setExportedInterface(std::shared_ptr<NSXPCInterface> interface) {
  record("setExportedInterface:", {describeInterface(interface)});
  const std::lock_guard lock(mutex_);
  exportedInterface_.swap(interface);
}

void ScriptedConnection::setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) {
  record("setRemoteObjectInterface:", {describeInterface(interface)});
  const std::lock_guard lock(mutex_);
  remoteInterface_.swap(interface);
}

void ScriptedConnection::setExportedObject(XPCExportedObject object) {
  record("setExportedObject:",
         {object.object.expired() ? "nil" : std::string(object.protocol->name)});
  const std::lock_guard lock(mutex_);
  std::swap(exported_, object);
}

void ScriptedConnection::setHandler(std::function<void()>& place, std::function<void()> handler,
                                    std::string_view setter) {
  record(std::string(setter));
  const std::lock_guard lock(mutex_);
  if (!over_) place.swap(handler);
}

void ScriptedConnection::resume() {
  record("resume");
  const std::lock_guard lock(mutex_);
  if (!std::exchange(resumed_, true)) entry_.enter(exported_.object);
}

void ScriptedConnection::invalidate() {
  record("invalidate");
  const std::lock_guard lock(mutex_);
  if (!std::exchange(invalidated_, true)) entry_.close(exported_.object);
}

void ScriptedConnection::dropped() {
  record("released");
  std::function<void()> interruption;
  std::function<void()> invalidation;
  const std::lock_guard lock(mutex_);
  held_ = false;
  if (invalidated_) return;
  entry_.leave();
  // No handler runs for a connection that is dropped without invalidate.
  interruption.swap(interruptionHandler_);
  invalidation.swap(invalidationHandler_);
}

std::shared_ptr<void> ScriptedConnection::remoteObjectProxy(const XPCProtocol& protocol,
                                                            XPCErrorHandler handler) {
  record("remoteObjectProxyWithErrorHandler:");
  {
    const std::lock_guard lock(mutex_);
    if (!remoteInterface_ || &remoteInterface_->protocol() != &protocol) return nullptr;
  }
  return protocol.makeProxy(
      std::make_shared<Sink>(shared_from_this(), protocol, std::move(handler)));
}

void ScriptedConnection::send(const XPCProtocol& protocol, std::size_t method,
                              const XPCValues& arguments, XPCReplyHandler reply,
                              const std::shared_ptr<XPCErrorHandler>& error) {
  const XPCMethod& sent = protocol.methods[method];
  xpc::WireWriter writer;
  const int problem = encode(writer, arguments);
  // What cannot be encoded may be a collection that contains itself, which has no end to describe.
  recordMessage(*trace_, number_, sent.selector,
                problem == 0 ? describeValues(arguments) : std::vector<std::string>{"not sent"});
  const std::lock_guard lock(mutex_);
  if (discarded_) return;
  if (problem != 0) {
    unsent_.push_back(
        {error, NSError::errorWithDomain_code_userInfo(str(NSPOSIXErrorDomain), problem, nullptr)});
  } else if (over_ && !sent.hasReply) {
    unsent_.push_back({error, cocoaError(NSXPCConnectionInvalid)});
  } else if (sent.hasReply) {
    pending_.push_back({method, std::move(reply), error});
  } else {
    lastOneWayError_ = error;
  }
}

// ---- State

bool ScriptedConnection::isResumed() const {
  const std::lock_guard lock(mutex_);
  return resumed_;
}

bool ScriptedConnection::isInvalidated() const {
  const std::lock_guard lock(mutex_);
  return invalidated_;
}

bool ScriptedConnection::isLive() const {
  const std::lock_guard lock(mutex_);
  return resumed_ && !invalidated_ && held_ && !over_;
}

bool ScriptedConnection::isHeld() const {
  const std::lock_guard lock(mutex_);
  return held_;
}

std::size_t ScriptedConnection::pendingRequests() const {
  const std::lock_guard lock(mutex_);
  return pending_.size();
}

// ---- Events of the queue

ScriptedConnection::Request ScriptedConnection::takeOldestRequest() {
  const std::lock_guard lock(mutex_);
  if (pending_.empty()) {
    throw std::out_of_range("connection " + std::to_string(number_) + " has no pending request");
  }
  Request request = std::move(pending_.front());
  pending_.pop_front();
  return request;
}

bool ScriptedConnection::deliverReply(const XPCValues& values, Timing timing) {
  if (timing == Timing::InOrder && !isLive()) return false;
  const Request request = takeOldestRequest();
  std::shared_ptr<NSXPCInterface> interface;
  {
    const std::lock_guard lock(mutex_);
    interface = remoteInterface_;
  }
  if (!areAdmitted(interface, request.method, /*ofReply=*/true, values)) {
    if (*request.error) (*request.error)(cocoaError(NSXPCConnectionReplyInvalid));
    return false;
  }
  if (request.reply) request.reply(values);
  return true;
}

bool ScriptedConnection::deliverReply(const std::shared_ptr<NSError>& error, Timing timing) {
  XPCValues values;
  values.append(std::shared_ptr<NSObject>(error));
  return deliverReply(values, timing);
}

void ScriptedConnection::deliverError(const std::shared_ptr<NSError>& error) {
  const Request request = takeOldestRequest();
  if (*request.error) (*request.error)(error);
}

bool ScriptedConnection::deliverSendError() {
  UnsentMessage unsent;
  {
    const std::lock_guard lock(mutex_);
    if (unsent_.empty()) return false;
    unsent = std::move(unsent_.front());
    unsent_.pop_front();
  }
  if (*unsent.error) (*unsent.error)(unsent.reason);
  return true;
}

void ScriptedConnection::deliverOneWayError(const std::shared_ptr<NSError>& error) {
  std::shared_ptr<XPCErrorHandler> handler;
  {
    const std::lock_guard lock(mutex_);
    handler.swap(lastOneWayError_);
  }
  if (!handler)
    throw std::out_of_range("connection " + std::to_string(number_) +
                            " has sent no one-way message");
  if (*handler) (*handler)(error);
}

bool ScriptedConnection::deliverMessage(std::string_view selector, const XPCValues& arguments,
                                        Timing timing) {
  if (timing == Timing::InOrder && !isLive()) return false;
  XPCExportedObject exported;
  std::shared_ptr<NSXPCInterface> interface;
  {
    const std::lock_guard lock(mutex_);
    exported = exported_;
    interface = exportedInterface_;
  }
  const std::shared_ptr<void> object = exported.object.lock();
  if (!object || !interface || &interface->protocol() != exported.protocol) return false;
  const std::size_t method = exported.protocol->indexOfSelector(selector);
  if (!areAdmitted(interface, method, /*ofReply=*/false, arguments)) return false;
  exported.protocol->invoke(object.get(), method, arguments, nullptr);
  return true;
}

void ScriptedConnection::failPendingRequests(std::int64_t code) {
  const auto error = cocoaError(code);
  for (std::size_t left = pendingRequests(); left > 0; --left) deliverError(error);
}

bool ScriptedConnection::deliverInterruption(Timing timing) {
  if (timing == Timing::InOrder && !isLive()) return false;
  failPendingRequests(NSXPCConnectionInterrupted);
  std::function<void()> handler;
  {
    const std::lock_guard lock(mutex_);
    handler = interruptionHandler_;
  }
  if (handler) handler();
  return handler != nullptr;
}

void ScriptedConnection::discard() {
  std::function<void()> interruption;
  std::function<void()> invalidation;
  std::deque<Request> requests;
  std::deque<UnsentMessage> unsent;
  std::shared_ptr<XPCErrorHandler> oneWayError;
  const std::lock_guard lock(mutex_);
  over_ = true;
  discarded_ = true;
  entry_.leave();
  interruption.swap(interruptionHandler_);
  invalidation.swap(invalidationHandler_);
  requests.swap(pending_);
  unsent.swap(unsent_);
  oneWayError.swap(lastOneWayError_);
}

bool ScriptedConnection::mayCallInvalidationHandler(Timing timing) const {
  const std::lock_guard lock(mutex_);
  if (over_ || (!held_ && !invalidated_)) return false;
  return timing == Timing::Late || !entry_.isSuperseded();
}

void ScriptedConnection::leave() {
  const std::lock_guard lock(mutex_);
  entry_.leave();
}

bool ScriptedConnection::deliverInvalidation(Timing timing) {
  failPendingRequests(NSXPCConnectionInvalid);
  const bool mayCall = mayCallInvalidationHandler(timing);
  std::function<void()> interruption;
  std::function<void()> invalidation;
  {
    const std::lock_guard lock(mutex_);
    over_ = true;
    interruption.swap(interruptionHandler_);
    invalidation.swap(invalidationHandler_);
  }
  const bool calls = mayCall && invalidation;
  if (calls) invalidation();
  leave();
  return calls;
}

}  // namespace platform
