// SPDX-License-Identifier: Apache-2.0

// The administrator's lasting grants, as the job daemon keeps them in /var/lib/wlhid/grants.plist
// (platform/services/DeviceGrants.h).
//
// They are looked up anew for each question, and about once a second for each routing that rests on
// one; the file is read only if it has changed. Only a file counts that nobody but the superuser
// can have written, and only as a whole.
//
// Threading: any thread. Reading may wait for a disk.
// Errors: a file that cannot be used grants nothing, and is logged once each time it changes. No
//   file is no error.
#pragma once

#include <sys/types.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/services/DeviceGrants.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemRoot.h"
#include "router/DeviceFiles.h"
#include "router/RouterLog.h"

namespace router {

class Grants {
 public:
  /// `owner`: whom the file must belong to.
  Grants(platform::SystemRoot root, RouterLog log, uid_t owner = 0)
      : root_(std::move(root)), log_(std::move(log)), owner_(owner) {}

  [[nodiscard]] bool covers(uid_t user, const platform::DeviceIdentity& device);

 private:
  struct File {
    platform::FileDescriptor descriptor;
    FileStamp stamp;
  };
  struct Known {
    std::optional<FileStamp> stamp{};  // none if there is no usable file
    bool isSettled = false;            // whether each later change shows in the stamp
    std::vector<platform::DeviceGrant> grants{};
    std::string problem{};
  };

  [[nodiscard]] std::optional<File> open() const;
  void checkIsOwners(int descriptor, const std::string& name) const;
  [[nodiscard]] Known read(const File& file) const;
  [[nodiscard]] Known look(const Known& before) const;

  const platform::SystemRoot root_;
  const RouterLog log_;
  const uid_t owner_;
  std::mutex mutex_;
  Known known_;
};

}  // namespace router
