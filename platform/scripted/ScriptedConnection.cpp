#include "platform/scripted/ScriptedConnection.h"

#include <stdexcept>
#include <utility>

#include "platform/scripted/Describe.h"

namespace platform {

/// The NSXPCConnection itself: hands everything on and records its own end.
class ScriptedConnection::Connection final : public NSXPCConnection {
 public:
  explicit Connection(std::shared_ptr<ScriptedConnection> script) : script_(std::move(script)) {}
  ~Connection() override { script_->dropped(); }

  void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) override {
    script_->setExportedInterface(interface);
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

ScriptedConnection::ScriptedConnection(int number, std::shared_ptr<Trace> trace,
                                       SupersededQuestion isSuperseded)
    : number_(number), trace_(std::move(trace)), isSuperseded_(std::move(isSuperseded)) {}

std::shared_ptr<NSXPCConnection> ScriptedConnection::makeConnection() {
  return std::make_shared<Connection>(shared_from_this());
}

void ScriptedConnection::record(const std::string& what) {
  trace_->record("connection " + std::to_string(number_) + " " + what);
}

// ---- What is done to
// the connection

void ScriptedConnection::setExportedInterface(const std::shared_ptr<NSXPCInterface>& interface) {
  record("setExportedInterface:" + describeInterface(interface));
}

void ScriptedConnection::setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) {
  record("setRemoteObjectInterface:" + describeInterface(interface));
  const std::lock_guard lock(mutex_);
  remoteInterface_.swap(interface);
}

void ScriptedConnection::setExportedObject(XPCExportedObject object) {
  record("setExportedObject:" +
         std::string(object.object.expired() ? "nil" : object.protocol->name));
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
  resumed_ = true;
}

void ScriptedConnection::invalidate() {
  record("invalidate");
  const std::lock_guard lock(mutex_);
  invalidated_ = true;
}

void ScriptedConnection::dropped() {
  record("released");
  std::function<void()> interruption;
  std::function<void()> invalidation;
  const std::lock_guard lock(mutex_);
  held_ = false;
  if (invalidated_) return;
  // Ended quietly: no handler will run any more.
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
  record("send " + std::string(sent.selector) + describeValues(arguments));
  const std::lock_guard lock(mutex_);
  if (discarded_) return;
  if (sent.hasReply) {
    pending_.push_back({std::move(reply), error});
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

bool ScriptedConnection::isHeld() const {
  const std::lock_guard lock(mutex_);
  return held_;
}

std::size_t ScriptedConnection::pendingRequests() const {
  const std::lock_guard lock(mutex_);
  return pending_.size();
}

std::shared_ptr<void> ScriptedConnection::exportedObject() const {
  const std::lock_guard lock(mutex_);
  return exported_.object.lock();
}

// ---- The
// queue's events

ScriptedConnection::Request ScriptedConnection::takeOldestRequest() {
  const std::lock_guard lock(mutex_);
  if (pending_.empty()) {
    throw std::out_of_range("connection " + std::to_string(number_) + " has no pending request");
  }
  Request request = std::move(pending_.front());
  pending_.pop_front();
  return request;
}

void ScriptedConnection::deliverReply(const XPCValues& values) {
  const Request request = takeOldestRequest();
  if (request.reply) request.reply(values);
}

void ScriptedConnection::deliverReply(const std::shared_ptr<NSError>& error) {
  XPCValues values;
  values.append(std::shared_ptr<NSObject>(error));
  deliverReply(values);
}

void ScriptedConnection::deliverError(const std::shared_ptr<NSError>& error) {
  const Request request = takeOldestRequest();
  if (*request.error) (*request.error)(error);
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

bool ScriptedConnection::deliverMessage(std::string_view selector, const XPCValues& arguments) {
  XPCExportedObject exported;
  {
    const std::lock_guard lock(mutex_);
    exported = exported_;
  }
  const std::shared_ptr<void> object = exported.object.lock();
  if (!object) return false;
  exported.protocol->invoke(object.get(), exported.protocol->indexOfSelector(selector), arguments,
                            nullptr);
  return true;
}

void ScriptedConnection::failPendingRequests(std::int64_t code) {
  const auto error = NSError::errorWithDomain_code_userInfo(str(NSCocoaErrorDomain), code, nullptr);
  for (std::size_t left = pendingRequests(); left > 0; --left) deliverError(error);
}

void ScriptedConnection::deliverInterruption() {
  failPendingRequests(NSXPCConnectionInterrupted);
  std::function<void()> handler;
  {
    const std::lock_guard lock(mutex_);
    if (held_ && !over_) handler = interruptionHandler_;
  }
  if (handler) handler();
}

void ScriptedConnection::discard() {
  std::function<void()> interruption;
  std::function<void()> invalidation;
  std::deque<Request> requests;
  std::shared_ptr<XPCErrorHandler> oneWayError;
  const std::lock_guard lock(mutex_);
  over_ = true;
  discarded_ = true;
  interruption.swap(interruptionHandler_);
  invalidation.swap(invalidationHandler_);
  requests.swap(pending_);
  oneWayError.swap(lastOneWayError_);
}

bool ScriptedConnection::mayReportInvalidation() const {
  bool invalidated = false;
  {
    const std::lock_guard lock(mutex_);
    if (over_ || (!held_ && !invalidated_)) return false;
    invalidated = invalidated_;
  }
  return !(invalidated && isSuperseded_(*this));
}

bool ScriptedConnection::deliverInvalidation() {
  failPendingRequests(NSXPCConnectionInvalid);
  const bool report = mayReportInvalidation();
  std::function<void()> interruption;
  std::function<void()> invalidation;
  {
    const std::lock_guard lock(mutex_);
    over_ = true;
    interruption.swap(interruptionHandler_);
    invalidation.swap(invalidationHandler_);
  }
  if (!report || !invalidation) return false;
  invalidation();
  return true;
}

}  // namespace platform
