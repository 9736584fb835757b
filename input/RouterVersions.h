// SPDX-License-Identifier: Apache-2.0

// Which router this program carries and which is installed.
//
// Threading: any thread.
// Errors: what cannot be read is empty, with the reason beside it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace wlhid {

/// How far reading a router's executable got.
enum class CopyState {
  NoPath,          ///< its location is unknown
  Unreadable,      ///< missing, or it cannot be read
  NoEmbeddedList,  ///< no section __TEXT,__info_plist
  BadList,         ///< the section is not a property list
  NoVersion,       ///< the list has no version
  Complete,
};

struct RouterCopy {
  std::string path;
  std::string version;  ///< empty: no such file, or it has no version
  CopyState state = CopyState::NoPath;
  std::string problem;                               ///< why it is not complete, or empty
  std::shared_ptr<platform::NSObject> versionValue;  ///< as in the list, or null
};

struct RouterVersions {
  RouterCopy bundle;                    ///< the copy that this program would install
  std::optional<RouterCopy> installed;  ///< nothing: no job
  std::string jobProblem;               ///< why there is no job, or empty
  std::vector<std::string> services;    ///< the names of the job's services
};

/// Reads everything anew.
[[nodiscard]] RouterVersions readRouterVersions();

}  // namespace wlhid
