// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PolkitMessages.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/foundation/PrintableText.h"
#include "platform/system/PromptText.h"

namespace platform::system {
namespace {

constexpr std::size_t kMaximumDetails = 16;
constexpr std::size_t kMaximumDetailCharacters = 200;
constexpr std::size_t kMaximumMessageCharacters = 600;

constexpr std::uint32_t kAllowUserInteraction = 1;

bool isDetailKey(std::string_view key) {
  return !key.empty() && std::ranges::all_of(key, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

BusMessage makeCall(sd_bus* connection, const char* method) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, "org.freedesktop.PolicyKit1",
                                     "/org/freedesktop/PolicyKit1/Authority",
                                     "org.freedesktop.PolicyKit1.Authority", method) < 0)
    return nullptr;
  return BusMessage(made);
}

bool appendSubject(sd_bus_message* message, const PeerProcess& process) {
  return sd_bus_message_append(message, "(sa{sv})", "unix-process", 3, "pid", "u",
                               static_cast<std::uint32_t>(process.processID()), "start-time", "t",
                               process.startTime(), "uid", "i",
                               static_cast<std::int32_t>(process.user())) >= 0;
}

bool appendDetail(sd_bus_message* message, const std::string& key, const std::string& value) {
  return sd_bus_message_append(message, "{ss}", key.c_str(), value.c_str()) >= 0;
}

bool appendDetails(sd_bus_message* message, const PolkitQuestion& question) {
  if (sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "{ss}") < 0) return false;
  for (const auto& [key, value] : question.details)
    if (!appendDetail(message, key, printableLine(value, kMaximumDetailCharacters))) return false;
  if (!question.message.empty() && !appendDetail(message, "polkit.message",
                                                 withoutPlaceholders(printableLine(
                                                     question.message, kMaximumMessageCharacters))))
    return false;
  return sd_bus_message_close_container(message) >= 0;
}

struct Reply {
  int isAuthorized = 0;
  int isChallenge = 0;
  bool wasDismissed = false;
};

bool readReply(sd_bus_message* message, Reply& reply) {
  if (sd_bus_message_has_signature(message, "(bba{ss})") <= 0 ||
      sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, "bba{ss}") < 0 ||
      sd_bus_message_read(message, "bb", &reply.isAuthorized, &reply.isChallenge) < 0 ||
      sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{ss}") < 0)
    return false;
  const char* key = nullptr;
  const char* value = nullptr;
  int result = 0;
  while ((result = sd_bus_message_read(message, "{ss}", &key, &value)) > 0)
    if (std::strcmp(key, "polkit.dismissed") == 0) reply.wasDismissed = true;
  return result == 0;
}

}  // namespace

std::string whyUnaskable(const PolkitQuestion& question) {
  if (question.process.user() > static_cast<uid_t>(INT32_MAX)) return "polkit has no such user";
  if (question.action.empty()) return "the question names no action";
  if (question.details.size() > kMaximumDetails) return "the question has too many details";
  for (const auto& [key, value] : question.details)
    if (!isDetailKey(key)) return "the question has a detail with an unusable name";
  return {};
}

BusMessage composeQuestion(sd_bus* connection, const PolkitQuestion& question,
                           const std::string& cancellation) {
  BusMessage message = makeCall(connection, "CheckAuthorization");
  const std::uint32_t flags = question.mayAskPerson ? kAllowUserInteraction : 0;
  if (message && appendSubject(message.get(), question.process) &&
      sd_bus_message_append(message.get(), "s", question.action.c_str()) >= 0 &&
      appendDetails(message.get(), question) &&
      sd_bus_message_append(message.get(), "us", flags, cancellation.c_str()) >= 0)
    return message;
  return nullptr;
}

BusMessage composeCancellation(sd_bus* connection, const std::string& cancellation) {
  BusMessage message = makeCall(connection, "CancelCheckAuthorization");
  if (message && sd_bus_message_append(message.get(), "s", cancellation.c_str()) >= 0 &&
      sd_bus_message_set_auto_start(message.get(), 0) >= 0 &&
      sd_bus_message_set_expect_reply(message.get(), 0) >= 0)
    return message;
  return nullptr;
}

PolkitAnswer readAnswer(sd_bus_message* message, bool mayAskPerson) {
  Reply reply;
  if (!readReply(message, reply) || (reply.isAuthorized != 0 && reply.isChallenge != 0))
    return {.kind = PolkitAnswer::Kind::Failed, .reason = "polkit's answer is malformed"};
  if (reply.isAuthorized != 0)
    return {.kind = PolkitAnswer::Kind::Yes, .reason = "polkit allows it"};
  if (reply.wasDismissed)
    return {.kind = PolkitAnswer::Kind::Dismissed,
            .reason = "the question was dismissed without an answer"};
  if (reply.isChallenge == 0)
    return {.kind = PolkitAnswer::Kind::No, .reason = "polkit does not allow it"};
  return {.kind = PolkitAnswer::Kind::No,
          .needsPerson = true,
          .reason = mayAskPerson ? "a person must allow it, and the program's login session has no "
                                   "authentication agent to ask one with"
                                 : "a person must allow it"};
}

}  // namespace platform::system
