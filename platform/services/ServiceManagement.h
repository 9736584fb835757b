// SPDX-License-Identifier: Apache-2.0

// Privileged helper jobs: looking them up, installing and removing them.
//
// A crash at any point of a bless leaves either the old helper or the new one, complete.
//
// Threading: any thread; each call is synchronous and may wait for the job daemon (at most 30 s)
//   and for the user.
// Ownership: an AuthorizationRef lives as long as the process.
// Errors: returned as NSError through `returnError` (may be null), in
//   "WLServiceManagementErrorDomain", with a localized description that names the file and the
//   cause.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/ProviderSlot.h"
#include "platform/services/Authorization.h"

namespace platform {

/// The domain of jobs that run with the system's rights.
inline constexpr std::string_view kSMDomainSystemLaunchd = "kSMDomainSystemLaunchd";
inline constexpr std::string_view WLServiceManagementErrorDomain = "WLServiceManagementErrorDomain";

/// The job's dictionary ("Label", "ProgramArguments", "MachServices"), read afresh; null if the
/// domain has no such job, or its file names a program other than the helper that is run for it.
std::shared_ptr<NSDictionary> SMJobCopyDictionary(std::string_view domain,
                                                  const std::shared_ptr<NSString>& label);

/// Removes the job: its endpoints, its process, its executable and its job file. With `wait`,
/// returns after the job's process has exited.
bool SMJobRemove(std::string_view domain, const std::shared_ptr<NSString>& label,
                 const AuthorizationRef& authorization, bool wait,
                 std::shared_ptr<NSError>* returnError);

/// Copies the helper from the main bundle's "Contents/Library/LaunchServices/<label>" into place
/// and submits the job that its embedded launchd property list describes.
bool SMJobBless(std::string_view domain, const std::shared_ptr<NSString>& label,
                const AuthorizationRef& authorization, std::shared_ptr<NSError>* returnError);

class ServicesProvider {
 public:
  virtual ~ServicesProvider() = default;
  virtual std::shared_ptr<NSDictionary> jobCopyDictionary(
      std::string_view domain, const std::shared_ptr<NSString>& label) = 0;
  virtual bool jobRemove(std::string_view domain, const std::shared_ptr<NSString>& label,
                         const AuthorizationRef& authorization, bool wait,
                         std::shared_ptr<NSError>* returnError) = 0;
  virtual bool jobBless(std::string_view domain, const std::shared_ptr<NSString>& label,
                        const AuthorizationRef& authorization,
                        std::shared_ptr<NSError>* returnError) = 0;
  virtual OSStatus authorizationCreate(const AuthorizationRights* rights,
                                       const AuthorizationEnvironment* environment,
                                       AuthorizationFlags flags,
                                       AuthorizationRef* returnAuthorization) = 0;
};

/// The process's services: those of SystemRoot::current() unless a scripted platform replaces them.
/// Never destroyed.
ProviderSlot<ServicesProvider>& servicesProvider();

}  // namespace platform
