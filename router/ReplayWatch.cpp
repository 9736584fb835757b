// SPDX-License-Identifier: Apache-2.0

#include "router/ReplayWatch.h"

#include <fcntl.h>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"

namespace router {

namespace {

platform::FileDescriptor opened(const platform::SystemRoot& root) try {
  if (root.directory() < 0) return platform::openRoot(root);
  return platform::FileDescriptor(::fcntl(root.directory(), F_DUPFD_CLOEXEC, 0));
} catch (const platform::ServiceError&) {
  return {};
}

}  // namespace

std::unique_ptr<ReplayWatch> ReplayWatch::begin(const platform::SystemRoot& root) {
  auto directories =
      platform::DirectoryWatch::begin(opened(root), {"etc/hideventrouter/recordings"});
  if (directories == nullptr) return nullptr;
  return std::unique_ptr<ReplayWatch>(new ReplayWatch(std::move(directories)));
}

}  // namespace router
