// Which router the tool carries and which is installed.
//
// Threading: any thread. Ownership: values. Errors: what cannot be read is empty. Order: none.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tool {

struct RouterCopy {
  std::string path;
  std::string version;  ///< empty: no such file, or it carries no version
};

struct RouterVersions {
  RouterCopy bundle;                    ///< the copy that an install would put in place
  std::optional<RouterCopy> installed;  ///< nothing: there is no job
  std::vector<std::string> services;    ///< the names under which the job is reached
};

/// Read afresh.
[[nodiscard]] RouterVersions readRouterVersions();

}  // namespace tool
