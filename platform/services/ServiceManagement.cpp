// SPDX-License-Identifier: Apache-2.0

#include "platform/services/ServiceManagement.h"

#include <fcntl.h>

#include <cerrno>
#include <optional>

#include "platform/foundation/NSBundle.h"
#include "platform/services/Grant.h"
#include "platform/services/InstalledJob.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"

namespace platform {
namespace {

std::shared_ptr<NSError> errorObject(ServiceErrorCode code, const std::string& text) {
  auto description = NSString::stringWithUTF8(text);
  if (!description) description = str("unknown");
  return NSError::errorWithDomain_code_userInfo(
      str(WLServiceManagementErrorDomain), static_cast<std::int64_t>(code),
      NSDictionary::dictionaryWithEntries({{str(NSLocalizedDescriptionKey), description}}));
}

std::string checkedLabel(std::string_view domain, const std::shared_ptr<NSString>& label) {
  if (domain != kSMDomainSystemLaunchd)
    throw ServiceError(ServiceErrorCode::InvalidArgument, "there is no such job domain");
  if (!label || !SystemRoot::isValidLabel(label->UTF8String())) {
    throw ServiceError(ServiceErrorCode::InvalidArgument, "this is not a valid job label");
  }
  return label->UTF8String();
}

void throwIfFailed(const ControlReply& reply) {
  if (!reply.succeeded()) throw ServiceError(reply.code, reply.message);
}

FileDescriptor openBundledHelper(const std::string& label) {
  const auto bundle = NSBundle::mainBundle()->bundlePath();
  if (!bundle)
    throw ServiceError(ServiceErrorCode::FileSystem,
                       "cannot find the bundle's helper: the main bundle's path is unknown");
  const std::string path = bundle->UTF8String() + "/Contents/Library/LaunchServices/" + label;
  FileDescriptor helper(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!helper) throw fileSystemError("cannot open the bundle's helper " + path, errno);
  return helper;
}

/// Runs `body`; a failure gives false and an error object.
template <class Body>
bool reporting(std::shared_ptr<NSError>* returnError, const Body& body) {
  std::shared_ptr<NSError> error;
  try {
    body();
  } catch (const ServiceError& failure) {
    error = errorObject(failure.code(), failure.what());
  } catch (const std::exception& failure) {
    error = errorObject(ServiceErrorCode::DaemonUnavailable, failure.what());
  }
  const bool succeeded = error == nullptr;
  if (returnError != nullptr) *returnError = std::move(error);
  return succeeded;
}

class RootServices final : public ServicesProvider {
 public:
  std::shared_ptr<NSDictionary> jobCopyDictionary(std::string_view domain,
                                                  const std::shared_ptr<NSString>& label) override {
    try {
      return installedJob(SystemRoot::current(), checkedLabel(domain, label), nullptr);
    } catch (const std::exception&) {
      return nullptr;  // a job that cannot be read counts as missing
    }
  }

  bool jobRemove(std::string_view domain, const std::shared_ptr<NSString>& label,
                 const AuthorizationRef& authorization, bool wait,
                 std::shared_ptr<NSError>* returnError) override {
    return reporting(returnError, [&] {
      const ControlRequest request{ControlRequest::Operation::Remove, checkedLabel(domain, label),
                                   wait};
      checkAuthorization(authorization);
      throwIfFailed(askWithAuthorization(authorization, request, -1));
    });
  }

  bool jobBless(std::string_view domain, const std::shared_ptr<NSString>& label,
                const AuthorizationRef& authorization,
                std::shared_ptr<NSError>* returnError) override {
    return reporting(returnError, [&] {
      const ControlRequest request{ControlRequest::Operation::Bless, checkedLabel(domain, label),
                                   true};
      checkAuthorization(authorization);
      const auto helper = openBundledHelper(request.label);
      throwIfFailed(askWithAuthorization(authorization, request, helper.get()));
    });
  }

  OSStatus authorizationCreate(const AuthorizationRights* rights,
                               const AuthorizationEnvironment* environment,
                               AuthorizationFlags flags,
                               AuthorizationRef* returnAuthorization) override {
    return createAuthorization(rights, environment, flags, returnAuthorization);
  }
};

}  // namespace

std::shared_ptr<NSDictionary> SMJobCopyDictionary(std::string_view domain,
                                                  const std::shared_ptr<NSString>& label) {
  return servicesProvider().load()->jobCopyDictionary(domain, label);
}

bool SMJobRemove(std::string_view domain, const std::shared_ptr<NSString>& label,
                 const AuthorizationRef& authorization, bool wait,
                 std::shared_ptr<NSError>* returnError) {
  return servicesProvider().load()->jobRemove(domain, label, authorization, wait, returnError);
}

bool SMJobBless(std::string_view domain, const std::shared_ptr<NSString>& label,
                const AuthorizationRef& authorization, std::shared_ptr<NSError>* returnError) {
  return servicesProvider().load()->jobBless(domain, label, authorization, returnError);
}

ProviderSlot<ServicesProvider>& servicesProvider() {
  static auto* const slot = new ProviderSlot<ServicesProvider>(std::make_shared<RootServices>());
  return *slot;
}

}  // namespace platform
