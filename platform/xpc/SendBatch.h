// SPDX-License-Identifier: Apache-2.0

// Messages that are encoded in place and sent together.
//
// Threading, Order: as XPCMessageBatch.
// Ownership: the batch and its proxies' sinks share the messages.
// Errors: std::bad_alloc from a message, which is then not in the batch.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/xpc/BatchedFrames.h"
#include "platform/xpc/NSXPCConnection.h"
#include "platform/xpc/SendBacklog.h"
#include "platform/xpc/XPCProtocol.h"

namespace platform::xpc {

class ConnectionCore;

class SendBatch final : public XPCMessageBatch, public std::enable_shared_from_this<SendBatch> {
 public:
  explicit SendBatch(std::shared_ptr<ConnectionCore> core) : core_(std::move(core)) {}
  void send() override;

 protected:
  std::shared_ptr<void> proxy(const XPCProtocol& protocol, XPCErrorHandler handler) override;

 private:
  class Sink;
  template <class Arguments>
  void add(std::size_t method, const Arguments& arguments, const SharedErrorHandler& errorHandler);

  const std::shared_ptr<ConnectionCore> core_;
  BatchedFrames waiting_;
};

}  // namespace platform::xpc
