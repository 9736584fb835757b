#include "jobd/ControlServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/services/ServiceError.h"
#include "platform/services/UnixSocket.h"

namespace jobd {
namespace {

constexpr const char* endpointName = "jobd.sock";

/// The daemon runs as the root's owner; only that user and the superuser are served.
bool mayAsk(int socket) {
  const auto peer = platform::peerCredentials(socket);
  return peer && (peer->user == 0 || peer->user == ::geteuid());
}

}  // namespace

ControlServer::ControlServer(EventLoop& loop, int runDirectory, Handler handler,
                             std::function<void()> quiet)
    : loop_(loop),
      runDirectory_(runDirectory),
      handler_(std::move(handler)),
      quiet_(std::move(quiet)) {
  listen();
}

void ControlServer::listen() {
  socket_ = platform::listenUnixSocketAt(runDirectory_, endpointName, SOCK_STREAM | SOCK_NONBLOCK,
                                         64, 0600);
  if (!socket_) throw platform::fileSystemError("cannot open the control endpoint", errno);
  struct stat status {};
  if (::fstatat(runDirectory_, endpointName, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }
  watch_ = loop_.watch(socket_.get(), EPOLLIN, [this] { acceptAll(); });
}

bool ControlServer::isInPlace() const {
  struct stat status {};
  return ::fstatat(runDirectory_, endpointName, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == device_ && status.st_ino == inode_;
}

void ControlServer::removeEndpoint() const {
  if (isInPlace()) ::unlinkat(runDirectory_, endpointName, 0);
}

bool ControlServer::closeIfUnused() {
  removeEndpoint();
  acceptAll();
  if (isQuiet()) return true;
  watch_.end();
  listen();
  return false;
}

void ControlServer::acceptAll() {
  for (;;) {
    platform::FileDescriptor socket(
        ::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      return;
    }
    if (connections_.size() < maximumConnections && mayAsk(socket.get())) admit(std::move(socket));
  }
}

void ControlServer::admit(platform::FileDescriptor socket) {
  const std::uint64_t id = nextId_++;
  Connection& connection = connections_[id];
  connection.socket = std::move(socket);
  connection.watch = loop_.watch(connection.socket.get(), EPOLLIN, [this, id] { readRequest(id); });
  connection.patience = loop_.after(requestPatience, [this, id] { drop(id); });
}

void ControlServer::readRequest(std::uint64_t id) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  switch (found->second.reader.readFrom(found->second.socket.get())) {
    case platform::FrameReader::State::NeedMore:
      return;
    case platform::FrameReader::State::Complete:
      dispatch(id, found->second);
      return;
    case platform::FrameReader::State::Ended:
    case platform::FrameReader::State::Malformed:
      drop(id);
      return;
  }
}

void ControlServer::dispatch(std::uint64_t id, Connection& connection) {
  connection.watch.end();
  connection.patience.end();
  const auto request = platform::decodeControlRequest(connection.reader.content());
  if (!request) {
    drop(id);
    return;
  }
  handler_(*request, connection.reader.takeDescriptor(),
           [this, id](const platform::ControlReply& reply) {
             const auto found = connections_.find(id);
             if (found == connections_.end()) return;
             // Never waits: a reply fits the socket's buffer, and a caller that does not take it
             // loses it.
             platform::sendFrame(found->second.socket.get(), encode(reply), -1);
             drop(id);
           });
}

void ControlServer::drop(std::uint64_t id) {
  connections_.erase(id);
  if (connections_.empty() && quiet_) quiet_();
}

}  // namespace jobd
