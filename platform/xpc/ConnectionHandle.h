// SPDX-License-Identifier: Apache-2.0

// An application's handle to a connection: when it goes, the connection ends.
//
// Threading, Errors, Order: as NSXPCConnection.h.
// Ownership: the handle holds the core, never the other way round.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/xpc/ConnectionCore.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/NSXPCInterface.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

class ConnectionHandle final : public NSXPCConnection {
 public:
  explicit ConnectionHandle(std::shared_ptr<ConnectionCore> core);
  ConnectionHandle(const ConnectionHandle&) = delete;
  ConnectionHandle& operator=(const ConnectionHandle&) = delete;
  ~ConnectionHandle() override;

  void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) override;
  void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) override;
  void setInterruptionHandler(std::function<void()> handler) override;
  void setInvalidationHandler(std::function<void()> handler) override;
  void resume() override;
  void invalidate() override;
  [[nodiscard]] uid_t effectiveUserIdentifier() const override;
  [[nodiscard]] pid_t processIdentifier() const override;
  [[nodiscard]] int processDescriptor() const override;
  [[nodiscard]] std::size_t unsentBytes() const override;
  [[nodiscard]] std::size_t unsentBytesOfUser() const override;
  bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) override;
  [[nodiscard]] std::uint64_t messagesDropped() const override;
  void callOnQueue(std::function<void()> action) override;
  [[nodiscard]] std::shared_ptr<XPCMessageBatch> makeBatch() override;

 protected:
  void setExportedObject(XPCExportedObject object) override;
  std::shared_ptr<void> remoteObjectProxy(const XPCProtocol& protocol,
                                          XPCErrorHandler handler) override;

 private:
  const std::shared_ptr<ConnectionCore> core_;
};

}  // namespace platform::xpc
