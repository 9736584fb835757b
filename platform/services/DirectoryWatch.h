// SPDX-License-Identifier: Apache-2.0

// Notices changes in directories below a root, which may be missing, and come, go and be replaced
// meanwhile.
//
// Every directory on the way is watched too, so it also notices changes beside what it is for.
//
// Threading: one thread at a time.
// Ownership: owns two descriptors.
// Errors: what cannot be watched is left out; without any watch there is no object.
// Order: what has changed by the time take() returns is there for whoever looks then; what changes
//   later is noticed by the next take().
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace platform {

class DirectoryWatch {
 public:
  /// `places` are paths relative to the open root. Null if nothing can be watched.
  static std::unique_ptr<DirectoryWatch> begin(FileDescriptor root,
                                               std::vector<std::string> places);

  /// Readable while there is something to take.
  [[nodiscard]] int descriptor() const { return events_.get(); }
  /// Takes what is there. Whether something may have changed.
  bool take();

 private:
  DirectoryWatch(FileDescriptor root, FileDescriptor events, std::vector<std::string> places)
      : root_(std::move(root)), events_(std::move(events)), places_(std::move(places)) {}
  bool watchAll() const;
  void watchOnTheWay(const std::string& place) const;

  const FileDescriptor root_;
  const FileDescriptor events_;
  const std::vector<std::string> places_;
};

}  // namespace platform
