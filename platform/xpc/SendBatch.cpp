// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/SendBatch.h"

#include <cerrno>

#include "platform/xpc/ConnectionCore.h"

namespace platform::xpc {
namespace {

/// Waiting gains nothing beyond what a socket takes at once.
constexpr std::size_t kMaxWaiting = std::size_t{256} << 10;

}  // namespace

class SendBatch::Sink final : public XPCMessageSink {
 public:
  Sink(std::shared_ptr<SendBatch> batch, SharedTable remote, SharedErrorHandler handler)
      : batch_(std::move(batch)), remote_(std::move(remote)), handler_(std::move(handler)) {}

  void send(std::size_t method, const XPCValues& arguments, XPCReplyHandler reply) override {
    if (!remote_->methods()[method].hasReply) return batch_->add(method, arguments, handler_);
    batch_->core_->failUnencodable(
        EncodingError(EINVAL, "a batch cannot hold a message with a reply"), std::move(reply),
        handler_);
  }
  void sendMessage(std::size_t method, std::span<const XPCArgumentRef> arguments) override {
    batch_->add(method, arguments, handler_);
  }

 private:
  const std::shared_ptr<SendBatch> batch_;
  const SharedTable remote_;
  const SharedErrorHandler handler_;
};

template <class Arguments>
void SendBatch::add(std::size_t method, const Arguments& arguments,
                    const SharedErrorHandler& errorHandler) {
  WireWriter& frames = waiting_.frames;
  const std::size_t before = frames.size();
  try {
    frames.beginFrame(FrameKind::Message, method);
    encodeValues(frames, arguments);
    frames.finishFrame();
    waiting_.messages.push_back({frames.size(), errorHandler});
  } catch (const EncodingError& error) {
    frames.truncate(before);
    return core_->failUnencodable(error, {}, errorHandler);
  } catch (...) {
    frames.truncate(before);
    throw;
  }
  if (frames.size() >= kMaxWaiting) send();
}

void SendBatch::send() {
  if (!waiting_.messages.empty()) core_->sendTogether(waiting_);
  waiting_.clear();
}

std::shared_ptr<void> SendBatch::proxy(const XPCProtocol& protocol, XPCErrorHandler handler) {
  SharedTable remote = core_->remoteTable();
  if (!remote || &remote->protocol() != &protocol) return nullptr;
  auto shared = handler ? std::make_shared<XPCErrorHandler>(std::move(handler)) : nullptr;
  return protocol.makeProxy(
      std::make_shared<Sink>(shared_from_this(), std::move(remote), std::move(shared)));
}

}  // namespace platform::xpc
