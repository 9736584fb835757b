// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/RouterService.h"

#include <future>
#include <mutex>
#include <string>
#include <utility>

#include "platform/foundation/Format.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"

namespace tool {

namespace {

using platform::NSXPCConnection;
using router::RouterControlProtocol;

/// Somebody may have to find a password.
constexpr std::chrono::seconds kPersonLimit{300};

/// A connection that fails says nothing to a person.
std::string causeOf(const std::shared_ptr<platform::NSError>& error) {
  const bool isConnections =
      error != nullptr && (error->code() == platform::NSXPCConnectionInvalid ||
                           error->code() == platform::NSXPCConnectionInterrupted);
  if (!isConnections) return describeError(error);
  return "none answers at " + std::string(router::kControlService) +
         " (see why: " + commandLine({"doctor"}) + ")";
}

}  // namespace

RouterService::RouterService()
    : connection_(NSXPCConnection::initWithMachServiceName_options(
          platform::str(router::kControlService), 0)) {
  if (connection_ == nullptr) throw Failure("the router cannot be asked: no connection");
  connection_->setRemoteObjectInterface(
      platform::NSXPCInterface::interfaceWithProtocol(RouterControlProtocol::protocol()));
  connection_->resume();
}

RouterService::~RouterService() {
  connection_->invalidate();
}

RouterService::Answer RouterService::ask(
    std::chrono::milliseconds limit,
    const std::function<void(RouterControlProtocol&, const Answered&)>& send) const {
  struct Slot {
    std::promise<Answer> promise;
    std::once_flag once;
  };
  const auto slot = std::make_shared<Slot>();
  auto answer = slot->promise.get_future();
  const Answered answered = [slot](Answer given) {
    std::call_once(slot->once, [&] { slot->promise.set_value(std::move(given)); });
  };
  const auto router = connection_->remoteObjectProxyWithErrorHandler<RouterControlProtocol>(
      [answered](const std::shared_ptr<platform::NSError>& error) {
        answered({nullptr, error});
      });
  if (router == nullptr) throw Failure("the router cannot be asked: no connection");
  send(*router, answered);
  if (answer.wait_for(limit) != std::future_status::ready)
    throw Failure("the router has not answered within " +
                  platform::stringWithFormat("%g s", std::chrono::duration<double>(limit).count()));
  return answer.get();
}

std::shared_ptr<platform::NSDictionary> RouterService::askFor(
    void (RouterControlProtocol::*what)(RouterControlProtocol::Reply),
    std::chrono::milliseconds limit) const {
  Answer answer = ask(limit, [what](RouterControlProtocol& router, const Answered& answered) {
    (router.*what)([answered](const auto& dictionary, const auto& error) {
      answered({dictionary, error});
    });
  });
  if (answer.error != nullptr || answer.dictionary == nullptr)
    throw Failure("the router cannot be asked: " + causeOf(answer.error));
  return std::move(answer.dictionary);
}

router::RouterStatus RouterService::status(std::chrono::milliseconds limit) const {
  auto status = router::routerStatusIn(*askFor(&RouterControlProtocol::statusWithReply, limit));
  if (!status) throw Failure("the router has answered something that is not a status");
  status->isRunning = true;
  return std::move(*status);
}

std::vector<router::ListedDevice> RouterService::devices() const {
  return router::listedDevicesIn(*askFor(&RouterControlProtocol::devicesWithReply));
}

std::optional<router::ReportArrivals> RouterService::arrivalsOf(
    std::uint64_t registryEntryID) const {
  constexpr std::chrono::milliseconds kLimit{250};
  try {
    const Answer answer =
        ask(kLimit, [registryEntryID](RouterControlProtocol& router, const Answered& answered) {
          router.arrivalsOfDevice_reply(registryEntryID,
                                        [answered](const auto& dictionary, const auto& error) {
                                          answered({dictionary, error});
                                        });
        });
    if (answer.dictionary != nullptr) return router::arrivalsIn(*answer.dictionary);
  } catch (const Failure&) {  // it is slow
  }
  return std::nullopt;
}

void RouterService::endSession(std::uint64_t number) const {
  const Answer answer = ask(kPersonLimit, [number](RouterControlProtocol& router,
                                                   const Answered& answered) {
    router.endSession_reply(number, [answered](const auto& error) { answered({nullptr, error}); });
  });
  if (answer.error != nullptr) throw Failure("the session was not ended: " + causeOf(answer.error));
}

}  // namespace tool
