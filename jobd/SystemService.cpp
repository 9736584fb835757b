// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemService.h"

#include <cerrno>

#include "jobd/ImageTrust.h"
#include "jobd/SystemDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/xpc/PassedDescriptors.h"

namespace jobd {
namespace {

constexpr const char* kSocketName = "jobd";  // FileDescriptorName= in the socket's unit

platform::FileDescriptor passedSocket() {
  platform::FileDescriptor socket(platform::xpc::takePassedDescriptor(kSocketName));
  if (!socket)
    throw platform::fileSystemError(
        "no socket was passed: systemd starts this program (wlhid-jobd.socket)", errno);
  return socket;
}

}  // namespace

void serveSystem() {
  const platform::SystemRoot root("/");
  EventLoop loop;
  SystemSeams seams;
  seams.trust = trustByKeys(root);
  SystemDaemon daemon(loop, root, RootDirectories::openSystem(root), passedSocket(),
                      std::move(seams));
  loop.run();
}

}  // namespace jobd
