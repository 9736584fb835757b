// SPDX-License-Identifier: Apache-2.0

// Devices, for C.
#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include "c/EventQueue.h"
#include "c/Failures.h"
#include "c/Records.h"

namespace {

using wlhid::Device;
using namespace wlhid::abi;  // NOLINT: what follows is the C interface of it

constexpr std::chrono::milliseconds kDefaultLimit{10'000};

struct WatchEvent {
  wlhid_watch_kind kind = WLHID_WATCH_LISTED;
  std::shared_ptr<const DeviceRecord> device;
  std::string text;
};
using Queue = EventQueue<WatchEvent>;

/// What a watch tells, as events.
wlhid::DeviceWatchHandlers bringingTo(const std::shared_ptr<Queue>& queue) {
  const auto bring = [queue](wlhid_watch_kind kind) {
    return [queue, kind](const Device& device) {
      queue->bring({kind, std::make_shared<const DeviceRecord>(device), {}});
    };
  };
  return {.listed =
              [queue, arrived = bring(WLHID_WATCH_ARRIVED)](const std::vector<Device>& devices) {
                for (const Device& each : devices) arrived(each);
                queue->bring({WLHID_WATCH_LISTED, nullptr, {}});
              },
          .arrived = bring(WLHID_WATCH_ARRIVED),
          .changed = bring(WLHID_WATCH_CHANGED),
          .departed = bring(WLHID_WATCH_DEPARTED),
          .unavailable =
              [queue](const std::string& why) {
                queue->bring({WLHID_WATCH_UNAVAILABLE, nullptr, why});
              }};
}

}  // namespace

struct wlhid_devices {
  std::deque<DeviceRecord> records;
};

/// The queue closes first: a callback that waits in it would hold up the watch's end.
struct wlhid_watch {
  explicit wlhid_watch(wlhid::DeviceFilter filter) : watch(bringingTo(queue), std::move(filter)) {}
  wlhid_watch(const wlhid_watch&) = delete;
  wlhid_watch& operator=(const wlhid_watch&) = delete;
  ~wlhid_watch() { queue->close(); }

  const std::shared_ptr<Queue> queue = std::make_shared<Queue>();
  const wlhid::DeviceWatch watch;
};

int wlhid_devices_list(const wlhid_filter* filter, int timeout_ms, wlhid_devices** returned) {
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    const auto limit = timeout_ms < 0 ? kDefaultLimit : std::chrono::milliseconds(timeout_ms);
    auto devices = std::make_unique<wlhid_devices>();
    for (Device& each : wlhid::devices(filterOf(filter), limit))
      devices->records.emplace_back(std::move(each));
    *returned = devices.release();
    return WLHID_OK;
  });
}

size_t wlhid_devices_count(const wlhid_devices* devices) {
  return devices == nullptr ? 0 : devices->records.size();
}

const wlhid_device* wlhid_devices_at(const wlhid_devices* devices, size_t index) {
  return index < wlhid_devices_count(devices) ? &devices->records[index].record() : nullptr;
}

void wlhid_devices_free(wlhid_devices* devices) {
  delete devices;
}

int wlhid_report_descriptor(uint64_t id, uint8_t* buffer, size_t size, size_t* returned_size) {
  if (returned_size == nullptr) return badArgument("returned_size");
  if (buffer == nullptr && size > 0) return badArgument("buffer");
  return guarded([&] {
    const auto descriptor = wlhid::reportDescriptor(id);
    if (size > 0) std::memcpy(buffer, descriptor.data(), std::min(size, descriptor.size()));
    *returned_size = descriptor.size();
    return WLHID_OK;
  });
}

int wlhid_watch_open(const wlhid_filter* filter, wlhid_watch** returned) {
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    *returned = new wlhid_watch(filterOf(filter));
    return WLHID_OK;
  });
}

int wlhid_watch_fd(const wlhid_watch* watch) {
  return watch == nullptr ? -1 : watch->queue->descriptor();
}

int wlhid_watch_next(wlhid_watch* watch, wlhid_watch_event* returned) {
  if (watch == nullptr) return badArgument("watch");
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    const WatchEvent* const event = watch->queue->take();
    if (event == nullptr) return WLHID_AGAIN;
    *returned = {};
    returned->kind = event->kind;
    returned->device = event->device == nullptr ? nullptr : &event->device->record();
    returned->text = event->text.c_str();
    return WLHID_OK;
  });
}

void wlhid_watch_close(wlhid_watch* watch) {
  delete watch;
}
