#include "router/RouterStatus.h"

#include <signal.h>

#include <cerrno>
#include <limits>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/PrintableText.h"
#include "router-client/WLHIDEventRouterProtocols.h"
#include "router/AtomicFile.h"

namespace router {

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::NSPropertyListFormat;
using platform::NSPropertyListSerialization;
using platform::NSString;
using platform::objectCast;
using platform::str;

NSDictionary::Entry number(std::string_view key, std::uint64_t value) {
  return {str(key), NSNumber::numberWithUnsignedLongLong(value)};
}

std::shared_ptr<NSObject> objectOf(const SessionStatus& session) {
  std::vector<NSDictionary::Entry> entries{
      number("PID", static_cast<std::uint64_t>(session.pid)), number("UID", session.uid),
      number("Delivered", session.delivered), number("Lost", session.lost)};
  if (session.device) {
    entries.push_back(number("Device", *session.device));
    entries.emplace_back(str("DeviceName"), str(platform::printableLine(session.deviceName)));
    entries.emplace_back(str("Exclusive"), NSNumber::numberWithBool(session.exclusive));
  }
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::shared_ptr<NSObject> objectOf(const RouterStatus& status) {
  std::vector<std::shared_ptr<NSObject>> sessions;
  for (const SessionStatus& session : status.sessions) sessions.push_back(objectOf(session));
  return NSDictionary::dictionaryWithEntries(
      {number("PID", static_cast<std::uint64_t>(status.pid)),
       {str("Version"), str(platform::printableLine(status.version))},
       number("Lost", status.lost),
       {str("Sessions"), NSArray::arrayWithObjects(std::move(sessions))}});
}

/// A missing or foreign value reads as nothing.
std::optional<std::uint64_t> numberIn(const NSDictionary& dictionary, std::string_view key) {
  const auto value = objectCast<NSNumber>(dictionary.objectForKey(key));
  return value == nullptr ? std::nullopt : std::optional(value->unsignedLongLongValue());
}

std::string textIn(const NSDictionary& dictionary, std::string_view key) {
  const auto text = objectCast<NSString>(dictionary.objectForKey(key));
  return text == nullptr ? std::string() : text->UTF8String();
}

/// −1 for what is no process.
pid_t processIn(const NSDictionary& dictionary) {
  const auto value = numberIn(dictionary, "PID");
  if (!value || *value > static_cast<std::uint64_t>(std::numeric_limits<pid_t>::max())) return -1;
  return static_cast<pid_t>(*value);
}

SessionStatus sessionIn(const NSDictionary& dictionary) {
  SessionStatus session;
  session.pid = processIn(dictionary);
  session.uid = static_cast<uid_t>(numberIn(dictionary, "UID").value_or(0));
  session.device = numberIn(dictionary, "Device");
  session.deviceName = textIn(dictionary, "DeviceName");
  const auto exclusive = objectCast<NSNumber>(dictionary.objectForKey("Exclusive"));
  session.exclusive = exclusive != nullptr && exclusive->boolValue();
  session.delivered = numberIn(dictionary, "Delivered").value_or(0);
  session.lost = numberIn(dictionary, "Lost").value_or(0);
  return session;
}

}  // namespace

std::filesystem::path routerStatusFile(const platform::SystemRoot& root) {
  return root.path() / "var/run" / (std::string(WLHIDEventRouterLabel) + ".status.plist");
}

std::optional<RouterStatus> readRouterStatus(const platform::SystemRoot& root) {
  const auto path = NSString::stringWithUTF8(routerStatusFile(root).string());
  const auto data = platform::NSData::dataWithContentsOfFile(path);
  if (data == nullptr) return std::nullopt;
  const auto list = objectCast<NSDictionary>(
      NSPropertyListSerialization::propertyListWithData_options_format_error(data, 0, nullptr,
                                                                             nullptr));
  if (list == nullptr) return std::nullopt;
  RouterStatus status;
  status.pid = processIn(*list);
  if (status.pid <= 0) return std::nullopt;
  status.version = textIn(*list, "Version");
  status.lost = numberIn(*list, "Lost").value_or(0);
  if (const auto sessions = objectCast<NSArray>(list->objectForKey("Sessions"))) {
    sessions->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
      if (const auto session = objectCast<NSDictionary>(member))
        status.sessions.push_back(sessionIn(*session));
    });
  }
  return status;
}

bool isRunning(const RouterStatus& status) {
  return status.pid > 0 && (::kill(status.pid, 0) == 0 || errno == EPERM);
}

void writeRouterStatus(const platform::SystemRoot& root, const RouterStatus& status) {
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      objectOf(status), NSPropertyListFormat::XML, nullptr);
  writeFileAtomically(routerStatusFile(root), data->span());
}

void removeRouterStatus(const platform::SystemRoot& root, pid_t pid) {
  const auto status = readRouterStatus(root);
  if (!status || status->pid != pid) return;
  std::error_code ignored;
  std::filesystem::remove(routerStatusFile(root), ignored);
}

}  // namespace router
