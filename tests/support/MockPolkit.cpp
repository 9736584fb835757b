// SPDX-License-Identifier: Apache-2.0

#include "tests/support/MockPolkit.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace testsupport {
namespace {

constexpr const char* kPolkitName = "org.freedesktop.PolicyKit1";
constexpr const char* kAuthorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* kFailed = "org.freedesktop.PolicyKit1.Error.Failed";

/// Reads a variant of exactly this type.
bool readValue(sd_bus_message* message, const char* type, void* value) {
  return sd_bus_message_read(message, "v", type, value) >= 0;
}

/// Why the subject is not acceptable; empty if it is.
std::string readSubject(sd_bus_message* call, MockPolkit::Asked& asked) {
  const char* kind = nullptr;
  if (sd_bus_message_enter_container(call, 'r', "sa{sv}") < 0 ||
      sd_bus_message_read(call, "s", &kind) < 0 || std::string_view(kind) != "unix-process")
    return "the subject is no process";
  std::map<std::string, int> seen;
  sd_bus_message_enter_container(call, 'a', "{sv}");
  while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
    const char* key = nullptr;
    sd_bus_message_read(call, "s", &key);
    const std::string name = key;
    ++seen[name];
    if (name == "pid" && !readValue(call, "u", &asked.processID)) return "the ID is no u";
    if (name == "start-time" && !readValue(call, "t", &asked.startTime)) return "the time is no t";
    if (name == "uid" && !readValue(call, "i", &asked.user)) return "the user is no i";
    sd_bus_message_exit_container(call);
  }
  sd_bus_message_exit_container(call);
  sd_bus_message_exit_container(call);
  const bool isWhole =
      seen == std::map<std::string, int>{{"pid", 1}, {"start-time", 1}, {"uid", 1}};
  return isWhole ? "" : "the subject lacks something or has too much";
}

void readDetails(sd_bus_message* call, MockPolkit::Asked& asked) {
  const char* key = nullptr;
  const char* value = nullptr;
  sd_bus_message_enter_container(call, 'a', "{ss}");
  while (sd_bus_message_read(call, "{ss}", &key, &value) > 0) asked.details[key] = value;
  sd_bus_message_exit_container(call);
}

std::string scoped(sd_bus_message* call, const std::string& cancellation) {
  return std::string(sd_bus_message_get_sender(call)) + ' ' + cancellation;
}

}  // namespace

struct MockPolkit::Handlers {
  static int message(sd_bus_message* call, void* mock, sd_bus_error* /*unused*/) noexcept {
    auto& self = *static_cast<MockPolkit*>(mock);
    constexpr const char* interface = "org.freedesktop.PolicyKit1.Authority";
    if (sd_bus_message_is_method_call(call, interface, "CheckAuthorization") > 0)
      return self.check(call);
    if (sd_bus_message_is_method_call(call, interface, "CancelCheckAuthorization") > 0)
      return self.cancel(call);
    return 0;
  }
};

MockPolkit::MockPolkit(const std::string& address) : bus_({.address = address}) {
  bool isThere = false;
  bus_.run([&] { isThere = appear(); });
  if (!isThere) throw std::runtime_error("the mock of polkit cannot appear on the bus");
}

MockPolkit::~MockPolkit() {
  bus_.run([this] { open_.clear(); });
}

bool MockPolkit::appear() {
  sd_bus* const connection = bus_.connection();
  return connection != nullptr &&
         sd_bus_add_object(connection, nullptr, kAuthorityPath, &Handlers::message, this) >= 0 &&
         sd_bus_request_name(connection, kPolkitName, 0) >= 0;
}

int MockPolkit::refuse(sd_bus_message* call, const std::string& complaint) {
  complaints_.push_back(complaint);
  return sd_bus_reply_method_errorf(call, kFailed, "%s", complaint.c_str());
}

int MockPolkit::check(sd_bus_message* call) {
  Asked asked;
  const char* action = nullptr;
  const char* cancellation = nullptr;
  if (sd_bus_message_has_signature(call, "(sa{sv})sa{ss}us") <= 0)
    return refuse(call, "the question has the wrong type");
  const std::string why = readSubject(call, asked);
  if (!why.empty()) return refuse(call, why);
  sd_bus_message_read(call, "s", &action);
  readDetails(call, asked);
  sd_bus_message_read(call, "us", &asked.flags, &cancellation);
  asked.action = action;
  asked.cancellation = cancellation;
  asked.number = ++count_;
  if (!cancellations_.emplace(scoped(call, asked.cancellation), asked.number).second)
    return refuse(call, "the cancellation ID is in use");
  open_.emplace(asked.number, Message(sd_bus_message_ref(call), &sd_bus_message_unref));
  if (automatic_)
    reply(asked.number, *automatic_);
  else
    asked_.put(std::move(asked));
  return 1;
}

int MockPolkit::cancel(sd_bus_message* call) {
  const char* cancellation = nullptr;
  if (sd_bus_message_read(call, "s", &cancellation) < 0)
    return refuse(call, "the cancellation has the wrong type");
  const auto known = cancellations_.find(scoped(call, cancellation));
  if (known == cancellations_.end()) return refuse(call, "there is no such cancellation ID");
  const auto found = open_.extract(known->second);
  cancellations_.erase(known);
  if (found)
    sd_bus_reply_method_errorf(found.mapped().get(), "org.freedesktop.PolicyKit1.Error.Cancelled",
                               "canceled");
  canceled_.put(cancellation);
  return sd_bus_reply_method_return(call, nullptr);
}

void MockPolkit::reply(std::uint64_t number, Says says) {
  const auto found = open_.extract(number);
  if (!found) return;
  std::erase_if(cancellations_, [&](const auto& each) { return each.second == number; });
  sd_bus_message* const call = found.mapped().get();
  constexpr const char* type = "(bba{ss})";
  switch (says) {
    case Says::Yes:
      sd_bus_reply_method_return(call, type, 1, 0, 0);
      break;
    case Says::No:
      sd_bus_reply_method_return(call, type, 0, 0, 0);
      break;
    case Says::NeedsPerson:
      sd_bus_reply_method_return(call, type, 0, 1, 1, "polkit.result", "auth_admin");
      break;
    case Says::Dismissed:
      sd_bus_reply_method_return(call, type, 0, 0, 1, "polkit.dismissed", "true");
      break;
    case Says::Error:
      sd_bus_reply_method_errorf(call, kFailed, "no\nsuch action");
      break;
    case Says::Nothing:
      sd_bus_reply_method_return(call, nullptr);
      break;
    case Says::WrongTypes:
      sd_bus_reply_method_return(call, "(uua{ss})", 1, 0, 0);
      break;
    case Says::YesAndNeedsPerson:
      sd_bus_reply_method_return(call, type, 1, 1, 0);
      break;
    case Says::BareFlags:
      sd_bus_reply_method_return(call, "bba{ss}", 1, 0, 0);
      break;
  }
}

void MockPolkit::answerAllWith(std::optional<Says> says) {
  bus_.run([&] { automatic_ = says; });
}

void MockPolkit::answer(const Asked& asked, Says says) {
  bus_.run([&] { reply(asked.number, says); });
}

std::vector<std::string> MockPolkit::complaints() {
  std::vector<std::string> copy;
  bus_.run([&] { copy = complaints_; });
  return copy;
}

}  // namespace testsupport
