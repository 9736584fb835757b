// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/InputDevices.h"

#include <future>
#include <mutex>
#include <utility>

#include "input/DeviceRecords.h"
#include "input/DirectoryConnection.h"
#include "input/InstallationWatch.h"
#include "input/Strand.h"

namespace wlhid {

namespace {

using platform::NSError;

/// One question to the directory, on a connection of its own.
template <class Result>
class Question {
 public:
  using Answer = std::function<void(Result result, const std::shared_ptr<NSError>& error)>;

  Result ask(std::chrono::milliseconds limit,
             const std::function<void(WLHIDDeviceDirectoryProtocol&, const Answer&)>& send) {
    const auto connection = connectionToDirectory();
    if (connection == nullptr)
      throw Error(kErrorDomain, static_cast<std::int64_t>(ErrorCode::NotThere),
                  "The router cannot be asked: no connection can be made.");
    connection->resume();
    const auto router = connection->remoteObjectProxyWithErrorHandler<WLHIDDeviceDirectoryProtocol>(
        [slot = slot_](const std::shared_ptr<NSError>& error) {
          slot->give({nullptr, error});
        });
    auto answer = slot_->promise.get_future();
    if (router != nullptr)
      send(*router, [slot = slot_](Result result, const std::shared_ptr<NSError>& error) {
        slot->give({std::move(result), error});
      });
    const bool isAnswered = answer.wait_for(limit) == std::future_status::ready;
    connection->invalidate();
    return resultOf(isAnswered ? answer.get() : Given{}, isAnswered);
  }

 private:
  struct Given {
    Result result;
    std::shared_ptr<NSError> error;
  };
  struct Slot {
    std::promise<Given> promise;
    std::once_flag once;
    void give(Given given) {
      std::call_once(once, [&] { promise.set_value(std::move(given)); });
    }
  };

  static Result resultOf(Given given, bool isAnswered) {
    if (!isAnswered)
      throw Error(kErrorDomain, static_cast<std::int64_t>(ErrorCode::NoAnswer),
                  "The router has not answered in time. Try again.");
    if (given.error != nullptr) throw Error(given.error);
    if (given.result == nullptr)
      throw Error(kErrorDomain, static_cast<std::int64_t>(ErrorCode::BadAnswer),
                  "The router's answer is not a list of devices. Install the current router.");
    return std::move(given.result);
  }

  const std::shared_ptr<Slot> slot_ = std::make_shared<Slot>();
};

}  // namespace

std::vector<Device> devices(const DeviceFilter& filter, std::chrono::milliseconds limit) {
  using List = std::shared_ptr<platform::NSArray>;
  const List list = Question<List>().ask(limit, [&](auto& router, const auto& answer) {
    router.watchDevicesMatching_excluding_reply(arrayOf(filter.matching), arrayOf(filter.excluding),
                                                answer);
  });
  return devicesIn(*list);
}

std::vector<std::byte> reportDescriptor(std::uint64_t id, std::chrono::milliseconds limit) {
  using Data = std::shared_ptr<platform::NSData>;
  const Data data = Question<Data>().ask(limit, [&](auto& router, const auto& answer) {
    router.reportDescriptorOfDevice_reply(id, answer);
  });
  const auto bytes = std::as_bytes(data->span());
  return {bytes.begin(), bytes.end()};
}

class WLHID_NO_EXPORT DeviceWatch::Implementation
    : public std::enable_shared_from_this<Implementation> {
 public:
  explicit Implementation(DeviceWatchHandlers handlers) : handlers_(std::move(handlers)) {}

  void begin(DeviceFilter filter) {
    DirectoryConnection::Events events;
    events.listed = [this](const std::vector<Device>& devices, bool isFirst) {
      if (isFirst) tell(handlers_.listed, devices);
    };
    events.arrived = [this](const Device& device) { tell(handlers_.arrived, device); };
    events.changed = [this](const Device& device) { tell(handlers_.changed, device); };
    events.departed = [this](const Device& device) { tell(handlers_.departed, device); };
    events.lost = [this](Loss, const std::string& why) { tell(handlers_.unavailable, why); };
    directory_ =
        std::make_shared<DirectoryConnection>(Loop::shared(), std::move(filter), std::move(events));
    Loop::shared().post([self = shared_from_this()] { self->directory_->begin(); });
    installation_ = InstallationWatch::shared().subscribe([weak = std::weak_ptr(directory_)] {
      if (const auto directory = weak.lock()) directory->hurry();
    });
  }
  /// The connection's end, on its thread, is the last that needs this object.
  void end() {
    strand_->close();
    installation_ = nullptr;
    Loop::shared().post([self = shared_from_this()] { self->directory_->end(); });
  }

 private:
  template <class Handler, class Argument>
  void tell(const Handler& handler, const Argument& argument) {
    if (!handler) return;
    strand_->post([self = shared_from_this(), &handler, argument] { handler(argument); });
  }

  const DeviceWatchHandlers handlers_;
  const std::shared_ptr<Strand> strand_ = std::make_shared<Strand>();
  std::shared_ptr<DirectoryConnection> directory_;
  std::shared_ptr<void> installation_;
};

DeviceWatch::DeviceWatch(DeviceWatchHandlers handlers, DeviceFilter filter)
    : implementation_(std::make_shared<Implementation>(std::move(handlers))) {
  implementation_->begin(std::move(filter));
}

DeviceWatch::~DeviceWatch() {
  implementation_->end();
}

}  // namespace wlhid
