// Which router the tool carries and which is installed.
//
// Threading: any thread.
// Errors: what cannot be read is empty, and the reason is told.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace tool {

/// How far the reading of a router's executable came.
enum class CopyState {
  NoPath,          ///< it is not known where it would be
  Unreadable,      ///< there is no such file, or it cannot be read
  NoEmbeddedList,  ///< no section __TEXT,__info_plist
  BadList,         ///< the section holds no property list
  NoVersion,       ///< the list has no version
  Complete,
};

struct RouterCopy {
  std::string path;
  std::string version;  ///< empty: no such file, or it carries no version
  CopyState state = CopyState::NoPath;
  std::string problem;                               ///< why it is not complete; empty when it is
  std::shared_ptr<platform::NSObject> versionValue;  ///< as it stands in the list, or null
};

struct RouterVersions {
  RouterCopy bundle;                    ///< the copy that an install would put in place
  std::optional<RouterCopy> installed;  ///< nothing: there is no job
  std::string jobProblem;               ///< why there is none; empty when there is one
  std::vector<std::string> services;    ///< the names under which the job is reached
};

/// Read afresh.
[[nodiscard]] RouterVersions readRouterVersions();
/// Whether version `a` comes after `b`: number by number ("1.10" after "1.9"). Versions that are
/// not made of numbers are never newer.
[[nodiscard]] bool isNewer(std::string_view a, std::string_view b);
/// Whether an install would put an older version in the place of a newer one.
[[nodiscard]] bool isDowngrade(const RouterVersions& versions);
/// What `install` must be called with to put the own copy in place.
[[nodiscard]] std::vector<std::string> installArguments(const RouterVersions& versions);

}  // namespace tool
