// SPDX-License-Identifier: Apache-2.0

// The file of the administrator's lasting grants (platform/services/DeviceGrants.h), which only
// this daemon writes.
//
// Threading: one thread.
// Ownership: the root's descriptor is the caller's.
// Errors: ServiceError; then the file is as before. One that cannot be understood is never
//   overwritten: somebody has to look at it.
// Order: a grant that is there already keeps its place.
#pragma once

#include <vector>

#include "platform/services/DeviceGrants.h"

namespace jobd {

class GrantFile {
 public:
  explicit GrantFile(int rootDirectory) : root_(rootDirectory) {}

  void grant(const platform::DeviceGrant& grant) const;
  /// Throws InvalidArgument if there is no such grant.
  void revoke(const platform::DeviceGrant& grant) const;
  /// Removes what a daemon left that was killed.
  void discardDraft() const;

 private:
  void write(const std::vector<platform::DeviceGrant>& grants) const;

  const int root_;
};

}  // namespace jobd
