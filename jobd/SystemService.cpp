// SPDX-License-Identifier: Apache-2.0

#include "jobd/SystemService.h"

#include <cerrno>
#include <csignal>

#include "jobd/ImageTrust.h"
#include "jobd/SystemDaemon.h"
#include "platform/services/ServiceError.h"
#include "platform/xpc/PassedDescriptors.h"

#ifdef WLHID_SYSTEM_BUS
#include "jobd/PolkitAuthority.h"
#include "jobd/RouterUnit.h"
#endif

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

/// Before the bus's thread starts: the signals are the loop's.
void blockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

#ifdef WLHID_SYSTEM_BUS
/// The system's authorities, over the bus.
class Authorities {
 public:
  explicit Authorities(EventLoop& loop)
      : mailbox_(loop), polkit_(mailbox_, bus_), router_(bus_, "wlhid-router") {}

  void connect(SystemSeams& seams) {
    seams.authority = [this](const Question& question, const Decided& decided) {
      polkit_.decide(question, decided);
    };
    seams.stopRouter = [this](const SystemSeams::Stopped& stopped) {
      router_.stop([this, stopped](const std::string& problem) {
        mailbox_.post([stopped, problem] { stopped(problem); });
      });
    };
    seams.askRouter = [this](const SystemSeams::Told& told) {
      router_.ask([this, told](const RouterReport& router) {
        mailbox_.post([told, router] { told(router); });
      });
    };
  }

 private:
  Mailbox mailbox_;
  platform::system::SystemBus bus_;
  PolkitAuthority polkit_;
  RouterUnit router_;
};
#endif

}  // namespace

void serveSystem() {
  blockSignals();
  const platform::SystemRoot root("/");
  EventLoop loop;
  SystemSeams seams;
  seams.trust = trustByKeys(root);
#ifdef WLHID_SYSTEM_BUS
  Authorities authorities(loop);
  authorities.connect(seams);
#endif
  SystemDaemon daemon(loop, root, RootDirectories::openSystem(root), passedSocket(),
                      std::move(seams));
  loop.run();
}

}  // namespace jobd
