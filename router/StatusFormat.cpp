// SPDX-License-Identifier: Apache-2.0

// The status as an object: see router/RouterStatus.h for the keys.
#include <limits>
#include <utility>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PrintableText.h"
#include "router/DictionaryReading.h"
#include "router/RouterStatus.h"

namespace router {

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::objectCast;
using platform::str;

NSDictionary::Entry number(std::string_view key, std::uint64_t value) {
  return {str(key), NSNumber::numberWithUnsignedLongLong(value)};
}

void addIfKnown(std::vector<NSDictionary::Entry>& entries, std::string_view key,
                const std::string& text) {
  if (!text.empty()) entries.emplace_back(str(key), str(platform::printableLine(text)));
}

std::shared_ptr<NSObject> objectOf(const SessionStatus& session) {
  std::vector<NSDictionary::Entry> entries{
      number("Session", session.number), number("PID", static_cast<std::uint64_t>(session.pid)),
      number("UID", session.uid), number("Delivered", session.delivered),
      number("Lost", session.lost)};
  if (session.device) {
    entries.push_back(number("Device", *session.device));
    entries.emplace_back(str("DeviceName"), str(platform::printableLine(session.deviceName)));
    entries.emplace_back(str("Exclusive"), NSNumber::numberWithBool(session.exclusive));
  }
  addIfKnown(entries, "Program", session.program);
  addIfKnown(entries, "Unit", session.unit);
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

/// −1 if it is not a process ID.
pid_t processIn(const NSDictionary& dictionary) {
  const auto value = numberIn(dictionary, "PID");
  if (!value || *value > static_cast<std::uint64_t>(std::numeric_limits<pid_t>::max())) return -1;
  return static_cast<pid_t>(*value);
}

SessionStatus sessionIn(const NSDictionary& dictionary) {
  SessionStatus session;
  session.number = numberIn(dictionary, "Session").value_or(0);
  session.pid = processIn(dictionary);
  session.uid = static_cast<uid_t>(numberIn(dictionary, "UID").value_or(0));
  session.device = numberIn(dictionary, "Device");
  session.deviceName = textIn(dictionary, "DeviceName");
  const auto exclusive = objectCast<NSNumber>(dictionary.objectForKey("Exclusive"));
  session.exclusive = exclusive != nullptr && exclusive->boolValue();
  session.delivered = numberIn(dictionary, "Delivered").value_or(0);
  session.lost = numberIn(dictionary, "Lost").value_or(0);
  session.program = textIn(dictionary, "Program");
  session.unit = textIn(dictionary, "Unit");
  return session;
}

}  // namespace

std::shared_ptr<NSDictionary> dictionaryOf(const RouterStatus& status) {
  std::vector<std::shared_ptr<NSObject>> sessions;
  for (const SessionStatus& session : status.sessions) sessions.push_back(objectOf(session));
  return NSDictionary::dictionaryWithEntries(
      {number("PID", static_cast<std::uint64_t>(status.pid)),
       {str("Version"), str(platform::printableLine(status.version))},
       number("Lost", status.lost),
       {str("Sessions"), NSArray::arrayWithObjects(std::move(sessions))}});
}

std::optional<RouterStatus> routerStatusIn(const NSDictionary& dictionary) {
  RouterStatus status;
  status.pid = processIn(dictionary);
  if (status.pid <= 0) return std::nullopt;
  status.version = textIn(dictionary, "Version");
  status.lost = numberIn(dictionary, "Lost").value_or(0);
  if (const auto sessions = objectCast<NSArray>(dictionary.objectForKey("Sessions"))) {
    sessions->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
      if (const auto session = objectCast<NSDictionary>(member))
        status.sessions.push_back(sessionIn(*session));
    });
  }
  return status;
}

}  // namespace router
