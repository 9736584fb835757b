// SPDX-License-Identifier: Apache-2.0

#include "jobd/ControlServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"
#include "platform/services/UnixSocket.h"

namespace jobd {
namespace {

using platform::ServiceErrorCode;

constexpr const char* kEndpointName = "jobd.sock";

platform::ControlReply refusal(const std::string& label, const Decision& decision) {
  using Kind = Decision::Kind;
  if (decision.kind == Kind::Canceled)
    return controlReply(ServiceErrorCode::Canceled, "the question was dismissed");
  const bool nobodyAsks = decision.kind == Kind::InteractionNotAllowed;
  const std::string what =
      nobodyAsks ? "a person has to allow changing the job " + label + ", and nobody can be asked"
                 : "the caller may not change the job " + label;
  return controlReply(
      nobodyAsks ? ServiceErrorCode::InteractionNotAllowed : ServiceErrorCode::NotPermitted,
      decision.reason.empty() ? what : what + ": " + decision.reason);
}

}  // namespace

ControlServer::ControlServer(EventLoop& loop, int runDirectory, Authority authority,
                             Handler handler, std::function<void()> quiet,
                             const ControlLimits& limits)
    : loop_(loop),
      runDirectory_(runDirectory),
      authority_(std::move(authority)),
      handler_(std::move(handler)),
      quiet_(std::move(quiet)),
      limits_(limits) {
  listen();
}

ControlServer::ControlServer(EventLoop& loop, platform::FileDescriptor listening,
                             Authority authority, Handler handler, std::function<void()> quiet,
                             const ControlLimits& limits)
    : loop_(loop),
      authority_(std::move(authority)),
      handler_(std::move(handler)),
      quiet_(std::move(quiet)),
      limits_(limits),
      socket_(std::move(listening)),
      watch_(loop_.watch(socket_.get(), EPOLLIN, [this] { acceptAll(); })) {}

/// On a user's root the daemon runs as the owner, and serves only that user and the superuser.
std::optional<platform::PeerCredentials> ControlServer::admissibleCaller(int socket) const {
  const auto caller = platform::peerCredentials(socket);
  const bool isOpenToAll = runDirectory_ < 0;
  if (!caller || (!isOpenToAll && caller->user != 0 && caller->user != ::geteuid()))
    return std::nullopt;
  return caller;
}

void ControlServer::listen() {
  socket_ = platform::listenUnixSocketAt(runDirectory_, kEndpointName, SOCK_STREAM | SOCK_NONBLOCK,
                                         64, 0600);
  if (!socket_) throw platform::fileSystemError("cannot open the control endpoint", errno);
  struct stat status {};
  if (::fstatat(runDirectory_, kEndpointName, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }
  watch_ = loop_.watch(socket_.get(), EPOLLIN, [this] { acceptAll(); });
}

bool ControlServer::isInPlace() const {
  if (runDirectory_ < 0) return false;
  struct stat status {};
  return ::fstatat(runDirectory_, kEndpointName, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == device_ && status.st_ino == inode_;
}

void ControlServer::removeEndpoint() const {
  if (isInPlace()) ::unlinkat(runDirectory_, kEndpointName, 0);
}

bool ControlServer::closeIfUnused() {
  removeEndpoint();
  acceptAll();
  if (isQuiet()) return true;
  if (runDirectory_ < 0) return false;
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
    const auto caller = admissibleCaller(socket.get());
    if (caller && makeRoomFor(caller->user)) admit(std::move(socket), *caller);
  }
}

std::map<uid_t, std::size_t> ControlServer::connectionCounts() const {
  std::map<uid_t, std::size_t> counts;
  for (const auto& [id, connection] : connections_) ++counts[connection.caller.user];
  return counts;
}

bool ControlServer::hasRoomFor(uid_t user) const {
  return connections_.size() < limits_.connections &&
         connectionCounts()[user] < limits_.connectionsPerUser;
}

bool ControlServer::makeRoomFor(uid_t user) {
  if (hasRoomFor(user)) return true;
  readPendingRequests();
  if (hasRoomFor(user)) return true;
  auto counts = connectionCounts();
  if (counts[user] >= limits_.connectionsPerUser) return dropIdleOf(user);
  const auto most =
      std::max_element(counts.begin(), counts.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  return dropIdleOf(most->first);
}

/// Reads requests that are waiting in their sockets, and ends of connections, so that no caller
/// that has sent its request is mistaken for idle.
void ControlServer::readPendingRequests() {
  std::vector<std::uint64_t> ids;
  for (const auto& [id, connection] : connections_) ids.push_back(id);
  for (const auto id : ids) readPendingRequest(id);
}

/// Reads at most one request, so that a caller who sends one after another cannot keep the others
/// waiting.
void ControlServer::readPendingRequest(std::uint64_t id) {
  for (;;) {
    const auto found = connections_.find(id);
    if (found == connections_.end() || !found->second.watch) return;
    pollfd entry{found->second.socket.get(), POLLIN, 0};
    if (::poll(&entry, 1, 0) <= 0) return;
    if (readRequest(id) != platform::FrameReader::State::NeedMore) return;
  }
}

/// Drops the user's oldest connection that has not sent its whole request; one with a permission
/// only if there is no other. False if all of them are waiting for replies.
bool ControlServer::dropIdleOf(uid_t user) {
  const Connections::value_type* idle = nullptr;
  for (const auto& each : connections_) {
    if (each.second.caller.user != user || !each.second.watch) continue;
    if (idle == nullptr || (idle->second.permission && !each.second.permission)) idle = &each;
  }
  if (idle == nullptr) return false;
  connections_.erase(idle->first);
  return true;
}

void ControlServer::admit(platform::FileDescriptor socket,
                          const platform::PeerCredentials& caller) {
  const std::uint64_t id = nextId_++;
  Connection& connection = connections_[id];
  connection.caller = caller;
  connection.socket = std::move(socket);
  awaitRequest(id, limits_.requestTimeout);
}

void ControlServer::awaitRequest(std::uint64_t id, std::chrono::milliseconds timeout) {
  Connection& connection = connections_.at(id);
  connection.reader = {};
  connection.watch = loop_.watch(connection.socket.get(), EPOLLIN, [this, id] { readRequest(id); });
  connection.timeout = loop_.after(timeout, [this, id] { drop(id); });
}

platform::FrameReader::State ControlServer::readRequest(std::uint64_t id) {
  using State = platform::FrameReader::State;
  const auto found = connections_.find(id);
  if (found == connections_.end()) return State::Ended;
  const State state = found->second.reader.readFrom(found->second.socket.get());
  if (state == State::Complete)
    dispatch(id, found->second);
  else if (state != State::NeedMore)
    drop(id);
  return state;
}

void ControlServer::dispatch(std::uint64_t id, Connection& connection) {
  connection.watch.end();
  connection.timeout.end();
  connection.presence = std::make_shared<CallerPresence>(loop_, connection.socket.get());
  const auto request = platform::decodeControlRequest(connection.reader.content());
  if (!request) {
    drop(id);
    return;
  }
  using Operation = platform::ControlRequest::Operation;
  if (request->operation == Operation::Authorize) {
    authorize(id, *request);
    return;
  }
  const bool changesJob =
      request->operation == Operation::Bless || request->operation == Operation::Remove;
  if (changesJob && !(connection.permission && connection.permission->use(*request))) {
    connection.permission.reset();
    answer(id,
           controlReply(ServiceErrorCode::NotPermitted,
                        "this change is not authorized, or its authorization has been used up"));
    return;
  }
  handler_({connection.caller, connection.presence}, *request, connection.reader.takeDescriptor(),
           [this, id](const platform::ControlReply& reply) { answer(id, reply); });
}

/// Permission is granted once per connection: for more, the caller must ask the authority again.
void ControlServer::authorize(std::uint64_t id, const platform::ControlRequest& request) {
  if (!platform::SystemRoot::isValidLabel(request.label)) {
    answer(id, controlReply(ServiceErrorCode::InvalidArgument, "this is not a valid job label"));
    return;
  }
  Connection& connection = connections_.at(id);
  if (connection.permission) {
    connection.permission.reset();
    answer(id, controlReply(ServiceErrorCode::NotPermitted,
                            "this connection has already had its authorization"));
    return;
  }
  const bool removes = request.purpose == platform::ChangePurpose::Remove;
  Question question{connection.caller, request.label, removes ? Right::Remove : Right::Install,
                    request.prompt};
  question.presence = connection.presence;
  authority_(question, [this, id, request](const Decision& decision) {
    takeDecision(id, request, decision);
  });
}

void ControlServer::takeDecision(std::uint64_t id, const platform::ControlRequest& request,
                                 const Decision& decision) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  const bool mayChange = decision.kind == Decision::Kind::Yes;
  if (mayChange) found->second.permission.emplace(request.label, request.purpose);
  answer(id, mayChange ? controlReply() : refusal(request.label, decision));
}

/// Never waits: a reply fits into the socket's buffer, and is lost if the caller does not read it.
void ControlServer::answer(std::uint64_t id, const platform::ControlReply& reply) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  Connection& connection = found->second;
  connection.endRequest();
  const bool staysOpen = connection.permission && !connection.permission->isUsedUp();
  if (platform::sendFrame(connection.socket.get(), encode(reply), -1) && staysOpen)
    awaitRequest(id, limits_.permissionLifetime);
  else
    drop(id);
}

void ControlServer::drop(std::uint64_t id) {
  connections_.erase(id);
  if (connections_.empty() && quiet_) quiet_();
}

platform::ControlReply controlReply(platform::ServiceErrorCode code, const std::string& message) {
  platform::ControlReply reply;
  reply.code = code;
  reply.message = message;
  reply.daemonProcessIdentifier = ::getpid();
  return reply;
}

}  // namespace jobd
