// SPDX-License-Identifier: Apache-2.0

#include "platform/services/Control.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"

namespace platform {
namespace {

using Object = std::shared_ptr<NSObject>;
using Operation = ControlRequest::Operation;

constexpr std::array<std::pair<Operation, std::string_view>, 6> kOperationNames{
    {{Operation::Authorize, "authorize"},
     {Operation::Bless, "bless"},
     {Operation::Remove, "remove"},
     {Operation::Status, "status"},
     {Operation::Grant, "grant"},
     {Operation::Revoke, "revoke"}}};

constexpr std::string_view kInstallPurpose = "install";
constexpr std::string_view kRemovePurpose = "remove";

/// A request without a purpose is one to install.
std::optional<ChangePurpose> purposeNamed(const std::string& name) {
  if (name.empty() || name == kInstallPurpose) return ChangePurpose::Install;
  if (name == kRemovePurpose) return ChangePurpose::Remove;
  return std::nullopt;
}

bool isAboutGrants(Operation operation) {
  return operation == Operation::Grant || operation == Operation::Revoke;
}

/// In the form of the file with one grant in it.
std::optional<DeviceGrant> grantFrom(const NSDictionary& dictionary) {
  const auto data = objectCast<NSData>(dictionary.objectForKey("grant"));
  const auto grants = data ? parseDeviceGrants(data->span(), nullptr) : std::nullopt;
  if (!grants || grants->size() != 1) return std::nullopt;
  return grants->front();
}

/// For text of unknown origin: drops what is not ASCII from invalid UTF-8, rather than the message.
Object textObject(const std::string& text) {
  if (auto string = NSString::stringWithUTF8(text)) return string;
  std::string ascii;
  std::copy_if(text.begin(), text.end(), std::back_inserter(ascii),
               [](char c) { return static_cast<signed char>(c) > 0; });
  return NSString::stringWithUTF8(ascii);
}
Object number(std::int64_t value) {
  return NSNumber::numberWithLongLong(value);
}

std::vector<std::uint8_t> frameOf(const std::shared_ptr<NSDictionary>& dictionary) {
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      dictionary, NSPropertyListFormat::Binary, nullptr);
  const auto content = data->span();
  std::vector<std::uint8_t> frame(4 + content.size());
  std::copy(content.begin(), content.end(), frame.begin() + 4);
  for (std::size_t i = 0; i < 4; ++i)
    frame[i] = static_cast<std::uint8_t>(content.size() >> (8 * i));
  return frame;
}

std::shared_ptr<NSDictionary> dictionaryOf(std::span<const std::uint8_t> content) {
  return objectCast<NSDictionary>(
      NSPropertyListSerialization::propertyListWithData_options_format_error(
          NSData::dataWithBytes(content), 0, nullptr, nullptr));
}

std::string textFor(const NSDictionary& dictionary, std::string_view key) {
  const auto value = objectCast<NSString>(dictionary.objectForKey(key));
  return value ? value->UTF8String() : std::string();
}
std::int64_t numberFor(const NSDictionary& dictionary, std::string_view key) {
  const auto value = objectCast<NSNumber>(dictionary.objectForKey(key));
  return value ? value->longLongValue() : 0;
}

Object statusObject(const JobStatus& job) {
  std::vector<Object> services;
  for (const auto& service : job.services) services.push_back(textObject(service));
  return NSDictionary::dictionaryWithEntries(
      {{str("label"), textObject(job.label)},
       {str("services"), NSArray::arrayWithObjects(std::move(services))},
       {str("pid"), number(job.processIdentifier)},
       {str("starts"), number(job.starts)},
       {str("heldBack"), number(job.heldBackMilliseconds)},
       {str("lastEnd"), textObject(job.lastEnd)}});
}

JobStatus statusFrom(const NSDictionary& dictionary) {
  JobStatus job;
  job.label = textFor(dictionary, "label");
  if (const auto services = objectCast<NSArray>(dictionary.objectForKey("services"))) {
    for (std::size_t i = 0; i < services->count(); ++i) {
      if (const auto name = objectCast<NSString>(services->objectAtIndex(i)))
        job.services.push_back(name->UTF8String());
    }
  }
  job.processIdentifier = numberFor(dictionary, "pid");
  job.starts = numberFor(dictionary, "starts");
  job.heldBackMilliseconds = numberFor(dictionary, "heldBack");
  job.lastEnd = textFor(dictionary, "lastEnd");
  return job;
}

FileDescriptor descriptorOf(msghdr& message) {
  FileDescriptor first;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int descriptor = -1;
      std::memcpy(&descriptor, CMSG_DATA(header) + i * sizeof(int), sizeof(int));
      if (first)
        FileDescriptor unwanted(descriptor);
      else
        first.reset(descriptor);
    }
  }
  return first;
}

}  // namespace

std::vector<std::uint8_t> encode(const ControlRequest& request) {
  const auto* name =
      std::find_if(kOperationNames.begin(), kOperationNames.end(),
                   [&](const auto& entry) { return entry.first == request.operation; });
  std::vector<NSDictionary::Entry> entries{{str("operation"), str(name->second)},
                                           {str("label"), textObject(request.label)},
                                           {str("wait"), NSNumber::numberWithBool(request.wait)}};
  if (request.purpose == ChangePurpose::Remove)
    entries.emplace_back(str("purpose"), str(kRemovePurpose));
  if (!request.prompt.empty()) entries.emplace_back(str("prompt"), textObject(request.prompt));
  if (request.grant)
    entries.emplace_back(str("grant"), NSData::dataWithBytes(encodeDeviceGrants({*request.grant})));
  return frameOf(NSDictionary::dictionaryWithEntries(std::move(entries)));
}

std::vector<std::uint8_t> encode(const ControlReply& reply) {
  std::vector<Object> jobs;
  for (const auto& job : reply.jobs) jobs.push_back(statusObject(job));
  return frameOf(NSDictionary::dictionaryWithEntries(
      {{str("code"), number(static_cast<std::int64_t>(reply.code))},
       {str("message"), textObject(reply.message)},
       {str("jobs"), NSArray::arrayWithObjects(std::move(jobs))},
       {str("daemon"), number(reply.daemonProcessIdentifier)}}));
}

std::optional<ControlRequest> decodeControlRequest(std::span<const std::uint8_t> content) {
  const auto dictionary = dictionaryOf(content);
  if (!dictionary) return std::nullopt;
  const std::string name = textFor(*dictionary, "operation");
  const auto* operation = std::find_if(kOperationNames.begin(), kOperationNames.end(),
                                       [&](const auto& entry) { return entry.second == name; });
  if (operation == kOperationNames.end()) return std::nullopt;
  const auto purpose = purposeNamed(textFor(*dictionary, "purpose"));
  if (!purpose) return std::nullopt;
  const auto wait = objectCast<NSNumber>(dictionary->objectForKey("wait"));
  ControlRequest request{operation->first, textFor(*dictionary, "label"),
                         !wait || wait->boolValue(), *purpose, textFor(*dictionary, "prompt")};
  if (isAboutGrants(request.operation)) {
    request.grant = grantFrom(*dictionary);
    if (!request.grant) return std::nullopt;
  }
  return request;
}

std::optional<ControlReply> decodeControlReply(std::span<const std::uint8_t> content) {
  const auto dictionary = dictionaryOf(content);
  if (!dictionary || !objectCast<NSNumber>(dictionary->objectForKey("code"))) return std::nullopt;
  ControlReply reply;
  reply.code = static_cast<ServiceErrorCode>(numberFor(*dictionary, "code"));
  reply.message = textFor(*dictionary, "message");
  reply.daemonProcessIdentifier = numberFor(*dictionary, "daemon");
  if (const auto jobs = objectCast<NSArray>(dictionary->objectForKey("jobs"))) {
    for (std::size_t i = 0; i < jobs->count(); ++i) {
      if (const auto job = objectCast<NSDictionary>(jobs->objectAtIndex(i)))
        reply.jobs.push_back(statusFrom(*job));
    }
  }
  return reply;
}

std::span<std::uint8_t> FrameReader::unfilled() {
  if (filled_ < length_.size()) return std::span(length_).subspan(filled_);
  return std::span(content_).subspan(filled_ - length_.size());
}

FrameReader::State FrameReader::advance(std::size_t count) {
  filled_ += count;
  if (filled_ == length_.size()) {
    std::size_t size = 0;
    for (std::size_t i = length_.size(); i-- > 0;) size = size << 8U | length_.at(i);
    if (size == 0 || size > kMaximumControlBytes) return State::Malformed;
    content_.resize(size);
  }
  return filled_ == length_.size() + content_.size() ? State::Complete : State::NeedMore;
}

FrameReader::State FrameReader::readFrom(int socket) {
  const auto space = unfilled();
  iovec vector{space.data(), space.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(4 * sizeof(int))> control{};
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t got = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  if (got < 0) return errno == EAGAIN || errno == EINTR ? State::NeedMore : State::Ended;
  if (auto descriptor = descriptorOf(message)) descriptor_ = std::move(descriptor);
  return got == 0 ? State::Ended : advance(static_cast<std::size_t>(got));
}

bool sendFrame(int socket, std::span<const std::uint8_t> frame, int descriptor) {
  while (!frame.empty()) {
    iovec vector{const_cast<std::uint8_t*>(frame.data()), frame.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      cmsghdr* header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int));
      std::memcpy(CMSG_DATA(header), &descriptor, sizeof(int));
    }
    const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return false;
    descriptor = -1;
    frame = frame.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

}  // namespace platform
