// SPDX-License-Identifier: Apache-2.0

// The input of a device, for C.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "WLHIDAccess/Input.h"
#include "c/EventQueue.h"
#include "c/Failures.h"
#include "c/Records.h"

namespace {

using namespace wlhid::abi;  // NOLINT: what follows is the C interface of it
using wlhid::InputState;

static_assert(static_cast<int>(InputState::Connecting) == WLHID_CONNECTING);
static_assert(static_cast<int>(InputState::Routing) == WLHID_ROUTING);
static_assert(static_cast<int>(InputState::Stopped) == WLHID_STATE_STOPPED);

/// An event with all that its structure points to. The bytes of all values are in one vector.
struct InputEvent {
  wlhid_event event{};
  std::vector<std::uint8_t> bytes;
  std::vector<wlhid_value> values;
  std::string text;

  /// Only where it stays: the structure points into this object.
  void fill(wlhid_event* returned) const {
    *returned = event;
    returned->text = text.c_str();
    returned->bytes = event.kind == WLHID_EVENT_REPORT ? bytes.data() : nullptr;
    returned->values = values.data();
    returned->value_count = values.size();
  }
};
using Queue = EventQueue<InputEvent>;

void append(std::vector<std::uint8_t>& bytes, std::span<const std::byte> more) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(more.data());
  bytes.insert(bytes.end(), first, first + more.size());
}

InputEvent eventOf(const wlhid::Report& report) {
  InputEvent event;
  event.event.kind = WLHID_EVENT_REPORT;
  event.event.report_id = report.id;
  event.event.time_ns = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(report.time.time_since_epoch()).count());
  append(event.bytes, report.bytes);
  event.event.size = report.bytes.size();
  return event;
}

InputEvent eventOf(std::span<const wlhid::Value> values) {
  InputEvent event;
  event.event.kind = WLHID_EVENT_VALUES;
  for (const wlhid::Value& each : values) append(event.bytes, each.bytes);
  std::size_t begin = 0;
  for (const wlhid::Value& each : values) {
    event.values.push_back({each.usage.page, each.usage.id, each.reportID, 0, each.cookie,
                            each.value, event.bytes.data() + begin, each.bytes.size()});
    begin += each.bytes.size();
  }
  if (!values.empty()) event.event.report_id = values.front().reportID;
  return event;
}

InputEvent eventOf(const wlhid::Status& status) {
  InputEvent event;
  event.event.kind = WLHID_EVENT_STATUS;
  event.event.state = static_cast<std::uint32_t>(status.state);
  event.event.code = status.error ? codeOf(*status.error) : WLHID_OK;
  event.event.since = std::chrono::system_clock::to_time_t(status.since);
  event.event.device = status.device ? status.device->id : 0;
  event.text = status.text;
  return event;
}

wlhid::InputHandlers bringingTo(const std::shared_ptr<Queue>& queue) {
  return {
      .report = [queue](const wlhid::Report& report) { queue->bring(eventOf(report)); },
      .values = [queue](std::span<const wlhid::Value> values) { queue->bring(eventOf(values)); },
      .status = [queue](const wlhid::Status& status) { queue->bring(eventOf(status)); }};
}

wlhid::InputOptions optionsOf(const wlhid_input_options& options) {
  wlhid::InputOptions result;
  result.device = options.device;
  result.which = filterOf(&options.filter);
  result.isExclusive = options.is_exclusive != 0;
  const std::size_t count = options.usages == nullptr ? 0 : options.usage_count;
  for (const wlhid_usage& each : std::span(options.usages, count))
    result.usages.push_back({each.page, each.id});
  return result;
}

}  // namespace

/// The queue closes first: a callback that waits in it would hold up the input's end.
struct wlhid_input {
  explicit wlhid_input(wlhid::InputOptions options)
      : input(std::move(options), bringingTo(queue)) {}
  wlhid_input(const wlhid_input&) = delete;
  wlhid_input& operator=(const wlhid_input&) = delete;
  ~wlhid_input() { queue->close(); }

  const std::shared_ptr<Queue> queue = std::make_shared<Queue>();
  wlhid::Input input;
};

int wlhid_input_open(const wlhid_input_options* options, wlhid_input** returned) {
  if (options == nullptr) return badArgument("options");
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    *returned = new wlhid_input(optionsOf(*options));
    return WLHID_OK;
  });
}

int wlhid_input_fd(const wlhid_input* input) {
  return input == nullptr ? -1 : input->queue->descriptor();
}

int wlhid_input_next(wlhid_input* input, wlhid_event* returned) {
  if (input == nullptr) return badArgument("input");
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    const InputEvent* const event = input->queue->take();
    if (event == nullptr) return WLHID_AGAIN;
    event->fill(returned);
    return WLHID_OK;
  });
}

int wlhid_input_retry(wlhid_input* input) {
  if (input == nullptr) return badArgument("input");
  return guarded([&] {
    input->input.retry();
    return WLHID_OK;
  });
}

void wlhid_input_close(wlhid_input* input) {
  delete input;
}
