// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/NSXPCConnection.h"

#include "platform/xpc/ConnectionHandle.h"
#include "platform/xpc/SendBatch.h"

namespace platform {
namespace xpc {
namespace {

/// The sink of a connection's proxies.
class ProxySink final : public XPCMessageSink {
 public:
  ProxySink(std::shared_ptr<ConnectionCore> core, SharedTable remote, XPCErrorHandler handler)
      : core_(std::move(core)), remote_(std::move(remote)) {
    if (handler) handler_ = std::make_shared<XPCErrorHandler>(std::move(handler));
  }
  void send(std::size_t method, const XPCValues& arguments, XPCReplyHandler reply) override {
    core_->send(remote_, method, arguments, std::move(reply), handler_);
  }
  void sendMessage(std::size_t method, std::span<const XPCArgumentRef> arguments) override {
    core_->sendMessage(remote_, method, arguments, handler_);
  }

 private:
  const std::shared_ptr<ConnectionCore> core_;
  const SharedTable remote_;
  SharedErrorHandler handler_;
};

SharedTable tableOf(std::shared_ptr<NSXPCInterface> interface) {
  return interface ? std::make_shared<const InterfaceTable>(std::move(interface)) : nullptr;
}

class SocketXPCProvider final : public XPCProvider {
 public:
  std::shared_ptr<NSXPCInterface> interfaceWithProtocol(const XPCProtocol& protocol) override {
    return std::make_shared<NSXPCInterface>(protocol);
  }
  std::shared_ptr<NSXPCConnection> connection(const std::shared_ptr<NSString>& name,
                                              NSXPCConnectionOptions) override {
    return std::make_shared<ConnectionHandle>(
        ConnectionCore::toService(name ? name->UTF8String() : std::string()));
  }
};

}  // namespace

ConnectionHandle::ConnectionHandle(std::shared_ptr<ConnectionCore> core) : core_(std::move(core)) {}

ConnectionHandle::~ConnectionHandle() {
  core_->abandon();
}

void ConnectionHandle::setExportedInterface(std::shared_ptr<NSXPCInterface> interface) {
  core_->setExportedTable(tableOf(std::move(interface)));
}
void ConnectionHandle::setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) {
  core_->setRemoteTable(tableOf(std::move(interface)));
}
void ConnectionHandle::setInterruptionHandler(std::function<void()> handler) {
  core_->setInterruptionHandler(std::move(handler));
}
void ConnectionHandle::setInvalidationHandler(std::function<void()> handler) {
  core_->setInvalidationHandler(std::move(handler));
}
void ConnectionHandle::resume() {
  core_->resume();
}
void ConnectionHandle::invalidate() {
  core_->invalidate();
}

uid_t ConnectionHandle::effectiveUserIdentifier() const {
  return core_->peer().user;
}
pid_t ConnectionHandle::processIdentifier() const {
  return core_->peer().processID;
}
int ConnectionHandle::processDescriptor() const {
  return core_->peer().process;
}

std::size_t ConnectionHandle::unsentBytes() const {
  return core_->unsentBytes();
}
std::size_t ConnectionHandle::unsentBytesOfUser() const {
  return core_->unsentBytesOfUser();
}
bool ConnectionHandle::waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) {
  return core_->waitUntilUnsentBelow(bytes, limit);
}
std::uint64_t ConnectionHandle::messagesDropped() const {
  return core_->messagesDropped();
}
void ConnectionHandle::callOnQueue(std::function<void()> action) {
  core_->callOnQueue(std::move(action));
}
std::shared_ptr<XPCMessageBatch> ConnectionHandle::makeBatch() {
  return std::make_shared<SendBatch>(core_);
}

void ConnectionHandle::setExportedObject(XPCExportedObject object) {
  core_->setExportedObject(std::move(object));
}

std::shared_ptr<void> ConnectionHandle::remoteObjectProxy(const XPCProtocol& protocol,
                                                          XPCErrorHandler handler) {
  SharedTable remote = core_->remoteTable();
  if (!remote || &remote->protocol() != &protocol) return nullptr;
  return protocol.makeProxy(
      std::make_shared<ProxySink>(core_, std::move(remote), std::move(handler)));
}

}  // namespace xpc

std::shared_ptr<NSXPCConnection> NSXPCConnection::initWithMachServiceName_options(
    const std::shared_ptr<NSString>& name, NSXPCConnectionOptions options) {
  return xpcProvider().load()->connection(name, options);
}

ProviderSlot<XPCProvider>& xpcProvider() {
  static auto* const slot =
      new ProviderSlot<XPCProvider>(std::make_shared<xpc::SocketXPCProvider>());
  return *slot;
}

}  // namespace platform
