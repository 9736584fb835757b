// SPDX-License-Identifier: Apache-2.0

#include "router/policy/RoutingJournal.h"

#include <string>
#include <utility>

#include "platform/foundation/Format.h"

namespace router {
namespace {

using platform::LogLine;
using platform::stringWithFormat;
using Kind = RoutingRecord::Kind;

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::Granted:
      return "granted";
    case Kind::Denied:
      return "denied";
    case Kind::Begun:
      return "begun";
    case Kind::Revoked:
      return "revoked";
    case Kind::Ended:
      return "ended";
  }
  return "";
}

LogLine lineOf(const RoutingRecord& record) {
  const pid_t process = record.caller->processID();
  const uid_t user = record.caller->user();
  const std::uint64_t device = record.device->registryEntryID;
  switch (record.kind) {
    case Kind::Granted:
      return LogLine::of<row::routingGranted>(process, user, device, record.device->name);
    case Kind::Denied:
      return LogLine::of<row::routingDenied>(process, user, device, record.reason);
    case Kind::Begun:
      return LogLine::of<row::routingBegun>(process, user, device, record.device->name);
    case Kind::Revoked:
      return LogLine::of<row::routingRevoked>(process, user, device, record.reason);
    case Kind::Ended:
      break;
  }
  return LogLine::of<row::routingEnded>(process, user, device, record.device->name);
}

LogEntry entryOf(const RoutingRecord& record) {
  LogEntry entry{lineOf(record)};
  entry.isNotable = record.kind == Kind::Denied || record.kind == Kind::Revoked;
  entry.fields = {
      {"WLHID_EVENT", nameOf(record.kind)},
      {"WLHID_USER", std::to_string(record.caller->user())},
      {"WLHID_PROGRAM", record.caller->program()},
      {"WLHID_DEVICE", record.device->name},
      {"WLHID_VENDOR", stringWithFormat("%04x", record.device->vendor)},
      {"WLHID_PRODUCT", stringWithFormat("%04x", record.device->product)},
      {"WLHID_CLASS", record.deviceClass == DeviceClass::Ordinary ? "ordinary" : "sensitive"}};
  if (!record.caller->unit().empty())
    entry.fields.emplace_back("WLHID_UNIT", record.caller->unit());
  return entry;
}

}  // namespace

void RoutingJournal::note(const RoutingRecord& record) {
  noteLeftOut();
  const uid_t user = record.caller->user();
  std::uint64_t leftOut = 0;
  if (!quota_.admits(user, TokenBucket::Clock::now(), &leftOut)) return;
  if (leftOut > 0) add_({LogLine::of<row::linesLeftOut>(leftOut, user), {}, true});
  add_(entryOf(record));
}

void RoutingJournal::noteLeftOut() {
  for (const auto& [user, lines] : quota_.takeLeftOut(TokenBucket::Clock::now()))
    add_({LogLine::of<row::linesLeftOut>(lines, user), {}, true});
}

}  // namespace router
