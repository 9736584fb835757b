// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/NSXPCListener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>
#include <utility>

#include "platform/foundation/ForkMark.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/PrintableText.h"
#include "platform/xpc/ConnectionHandle.h"
#include "platform/xpc/Pacing.h"
#include "platform/xpc/PassedDescriptors.h"
#include "platform/xpc/QueueThread.h"

namespace platform {
namespace {

/// What the listener's thread needs; the thread may outlive the listener while the delegate is
/// being called.
class ListenerCore {
 public:
  ListenerCore(int socket, int wake) : socket_(socket), wake_(wake) {}
  ListenerCore(const ListenerCore&) = delete;
  ListenerCore& operator=(const ListenerCore&) = delete;
  ~ListenerCore() {
    closeDescriptors();
    if (nextWake_ >= 0) ::close(nextWake_);
  }

  /// Takes effect when the thread starts.
  void setLimits(const NSXPCListenerLimits& limits) {
    admissions_ = std::make_shared<xpc::Admissions>(limits);
  }
  void setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate) {
    if (isInherited()) return;
    const std::lock_guard lock(mutex_);
    delegate_.swap(delegate);
  }
  void stop() {
    const bool first = !stopped_.exchange(true);
    if (!isInherited()) {
      ::eventfd_write(wake_, 1);
    } else if (first) {
      closeDescriptors();
    }
  }
  /// A process that inherited the listener through fork() leaves its parent's connections alone.
  [[nodiscard]] bool isInherited() const { return mark_.isInherited(); }
  void run(const std::weak_ptr<NSXPCListener>& listener) {
    unsigned shortages = 0;
    while (!stopped_.load() && !isInherited()) {
      const int connected = acceptOne();
      if (connected >= 0) {
        shortages = 0;
        offerOrClose(listener, connected);
      } else if (errno == EAGAIN) {
        waitFor(true, -1);
      } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The connection stays queued and the socket readable, so polling it would not wait.
        if (shortages == 0)
          NSLogString("a listener is out of descriptors, threads or memory; connections wait");
        waitFor(false, static_cast<int>(xpc::pauseBeforeAttempt(++shortages).count()));
      } else if (errno != EINTR && errno != ECONNABORTED && errno != EPROTO) {
        return NSLogString("a listener's socket has failed; no further connection is accepted");
      }
    }
  }

 private:
  void closeDescriptors() {
    for (int* const descriptor : {&socket_, &wake_}) {
      if (*descriptor >= 0) ::close(std::exchange(*descriptor, -1));
    }
  }
  /// Everything else that a connection needs is allocated before its socket is accepted: without a
  /// wake-up descriptor or a thread it would hang forever, while one in the kernel's queue just
  /// waits.
  int acceptOne() {
    if (nextWake_ < 0) nextWake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (nextWake_ < 0) return -1;
    if (!nextThread_) nextThread_ = xpc::PreparedThread::make();
    if (!nextThread_) {
      errno = ENOMEM;
      return -1;
    }
    return ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  }
  void waitFor(bool connection, int milliseconds) {
    pollfd watched[2] = {{wake_, POLLIN, 0}, {connection ? socket_ : -1, POLLIN, 0}};
    ::poll(watched, 2, milliseconds);
  }
  /// A lack of memory costs one connection, not the listener.
  void offerOrClose(const std::weak_ptr<NSXPCListener>& listener, int connected) {
    try {
      offer(listener, connected);
    } catch (const std::bad_alloc&) {
    }
  }
  void offer(const std::weak_ptr<NSXPCListener>& weakListener, int connected) {
    const auto core = xpc::ConnectionCore::accepted(connected, std::exchange(nextWake_, -1),
                                                    std::move(nextThread_));
    const auto connection = std::make_shared<xpc::ConnectionHandle>(core);
    const auto listener = weakListener.lock();
    const bool isWanted = admit(core) && listener && !stopped_.load();
    if (!isWanted || !ask(listener, connection)) connection->invalidate();
  }
  bool admit(const std::shared_ptr<xpc::ConnectionCore>& core) {
    const auto peer = core->peer();
    auto answer = admissions_->admit(peer.user, core);
    if (const auto ended = answer.ended.lock()) ended->invalidate();
    if (!answer.place) {
      if (*answer.refusal != 0)
        NSLog("refused: process %d of user %u: %s", peer.processID, peer.user, answer.refusal);
      return false;
    }
    core->setPlace(std::move(answer.place));
    return true;
  }
  bool ask(const std::shared_ptr<NSXPCListener>& listener,
           const std::shared_ptr<NSXPCConnection>& connection) {
    std::shared_ptr<NSXPCListenerDelegate> delegate;
    {
      const std::lock_guard lock(mutex_);
      delegate = delegate_.lock();
    }
    try {
      return delegate && delegate->listener_shouldAcceptNewConnection(listener, connection);
    } catch (const std::exception& exception) {
      NSLogString(printableLine("a listener's delegate threw: " + std::string(exception.what())));
    } catch (...) {
      NSLogString("a listener's delegate threw");
    }
    return false;
  }

  int socket_;
  int wake_;
  int nextWake_ = -1;  ///< like nextThread_, for the next connection; the listener thread's alone
  xpc::PreparedThread nextThread_;
  const ForkMark mark_;
  std::shared_ptr<xpc::Admissions> admissions_ =
      std::make_shared<xpc::Admissions>(NSXPCListenerLimits());
  std::atomic<bool> stopped_{false};
  std::mutex mutex_;
  std::weak_ptr<NSXPCListenerDelegate> delegate_;
};

class SocketListener final : public NSXPCListener,
                             public std::enable_shared_from_this<SocketListener> {
 public:
  explicit SocketListener(std::shared_ptr<ListenerCore> core) : core_(std::move(core)) {}
  SocketListener(const SocketListener&) = delete;
  SocketListener& operator=(const SocketListener&) = delete;
  ~SocketListener() override { core_->stop(); }

  void setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate) override {
    core_->setDelegate(std::move(delegate));
  }
  void setLimits(const NSXPCListenerLimits& limits) override {
    if (!started_.load()) core_->setLimits(limits);
  }
  void resume() override {
    if (core_->isInherited() || started_.exchange(true)) return;
    if (!xpc::startDetachedThread("xpc listener",
                                  [core = core_, self = weak_from_this()] { core->run(self); })) {
      started_.store(false);
      NSLogString("a listener could not start its thread; resume it again");
    }
  }
  void invalidate() override { core_->stop(); }

 private:
  const std::shared_ptr<ListenerCore> core_;
  std::atomic<bool> started_{false};
};

/// Takes ownership of `descriptor` even if it fails.
std::shared_ptr<NSXPCListener> listenerOn(int descriptor) {
  const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake < 0) {
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return nullptr;
  }
  return std::make_shared<SocketListener>(std::make_shared<ListenerCore>(descriptor, wake));
}

}  // namespace

std::shared_ptr<NSXPCListener> NSXPCListener::initWithMachServiceName(
    const std::shared_ptr<NSString>& service) {
  if (!service) {
    errno = ENOENT;
    return nullptr;
  }
  const int descriptor = xpc::takePassedDescriptor(service->UTF8String());
  return descriptor < 0 ? nullptr : listenerOn(descriptor);
}

std::shared_ptr<NSXPCListener> NSXPCListener::initWithListeningDescriptor(int descriptor) {
  if (!xpc::isListeningStreamSocket(descriptor) || !xpc::prepareDescriptor(descriptor))
    return nullptr;
  return listenerOn(descriptor);
}

std::size_t liveConnectionCount() {
  return xpc::ConnectionCore::liveCount();
}

}  // namespace platform
