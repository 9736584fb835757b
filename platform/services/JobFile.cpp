// SPDX-License-Identifier: Apache-2.0

#include "platform/services/JobFile.h"

#include <algorithm>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSString.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"

namespace platform {
namespace {

constexpr std::size_t kMaximumArguments = 64;
constexpr std::size_t kMaximumServices = 16;

std::nullopt_t refuse(std::string* reason, const std::string& text) {
  if (reason != nullptr) *reason = text;
  return std::nullopt;
}

std::optional<std::string> text(const std::shared_ptr<NSObject>& object) {
  const auto string = objectCast<NSString>(object);
  if (!string) return std::nullopt;
  return string->UTF8String();
}

/// A service's value is a boolean or a dictionary of options, none of which is used here.
bool isOffered(const std::shared_ptr<NSObject>& value) {
  if (const auto number = objectCast<NSNumber>(value)) return number->boolValue();
  return objectCast<NSDictionary>(value) != nullptr;
}

std::optional<std::vector<std::string>> programArguments(const NSDictionary& job,
                                                         std::string* reason) {
  const auto array = objectCast<NSArray>(job.objectForKey("ProgramArguments"));
  if (!array || array->count() == 0) return refuse(reason, "it has no ProgramArguments");
  if (array->count() > kMaximumArguments) return refuse(reason, "it has too many ProgramArguments");
  std::vector<std::string> arguments;
  for (std::size_t i = 0; i < array->count(); ++i) {
    const auto argument = text(array->objectAtIndex(i));
    if (!argument || argument->find('\0') != std::string::npos)
      return refuse(reason, "one of its ProgramArguments is not a string");
    arguments.push_back(*argument);
  }
  if (arguments.front().empty() || arguments.front().front() != '/') {
    return refuse(reason, "its program is not an absolute path");
  }
  return arguments;
}

ServiceError unwritable(const JobDescription& job) {
  return {ServiceErrorCode::InvalidArgument,
          "a path or argument of the job " + job.label + " cannot be written to its job file"};
}

}  // namespace

std::shared_ptr<NSDictionary> jobDictionary(std::span<const std::uint8_t> bytes,
                                            std::string_view label, std::string* reason) {
  const auto list = NSPropertyListSerialization::propertyListWithData_options_format_error(
      NSData::dataWithBytes(bytes), 0, nullptr, nullptr);
  auto dictionary = objectCast<NSDictionary>(list);
  if (!dictionary) {
    refuse(reason, "it is not a property list with a dictionary");
    return nullptr;
  }
  if (text(dictionary->objectForKey("Label")) != label) {
    refuse(reason, "its Label is not \"" + std::string(label) + "\"");
    return nullptr;
  }
  return dictionary;
}

std::optional<JobDescription> parseJobFile(std::span<const std::uint8_t> bytes,
                                           std::string_view label, std::string* reason) {
  const auto dictionary = jobDictionary(bytes, label, reason);
  if (!dictionary) return std::nullopt;
  auto arguments = programArguments(*dictionary, reason);
  if (!arguments) return std::nullopt;
  auto services = machServices(*dictionary, label, reason);
  if (!services) return std::nullopt;
  return JobDescription{std::string(label), std::move(*arguments), std::move(*services)};
}

bool mayOffer(std::string_view label, std::string_view service) {
  return service == label || (service.starts_with(label) && service[label.size()] == '.');
}

std::optional<std::vector<std::string>> machServices(const NSDictionary& job,
                                                     std::string_view label, std::string* reason) {
  const auto dictionary = objectCast<NSDictionary>(job.objectForKey("MachServices"));
  if (!dictionary) return refuse(reason, "it has no MachServices");
  std::vector<std::string> services;
  for (const auto& [key, value] : dictionary->entries()) {
    const auto name = text(key);
    if (!name || !SystemRoot::isValidLabel(*name))
      return refuse(reason, "one of its MachServices has an invalid name");
    if (*name == "jobd") return refuse(reason, "the service name \"jobd\" is taken");
    if (!mayOffer(label, *name))
      return refuse(reason, "the service " + *name + " is not its own: it may offer " +
                                std::string(label) + " and names below that");
    if (isOffered(value)) services.push_back(*name);
  }
  if (services.empty()) return refuse(reason, "none of its MachServices is enabled");
  if (services.size() > kMaximumServices) return refuse(reason, "it has too many MachServices");
  return services;
}

std::vector<std::uint8_t> encodeJobFile(const JobDescription& job) {
  std::vector<std::shared_ptr<NSObject>> arguments;
  for (const auto& argument : job.arguments) {
    auto text = NSString::stringWithUTF8(argument);
    if (!text) throw unwritable(job);
    arguments.push_back(std::move(text));
  }
  std::vector<NSDictionary::Entry> services;
  for (const auto& service : job.services)
    services.emplace_back(str(service), NSNumber::numberWithBool(true));
  const auto dictionary = NSDictionary::dictionaryWithEntries(
      {{str("Label"), str(job.label)},
       {str("ProgramArguments"), NSArray::arrayWithObjects(std::move(arguments))},
       {str("MachServices"), NSDictionary::dictionaryWithEntries(std::move(services))}});
  const auto data = NSPropertyListSerialization::dataWithPropertyList_format_error(
      dictionary, NSPropertyListFormat::XML, nullptr);
  if (!data) throw unwritable(job);
  return {data->span().begin(), data->span().end()};
}

}  // namespace platform
