#include "tests/stress/RaceRouter.h"

#include <stdlib.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

#include "platform/foundation/NSError.h"

namespace stress {
namespace {

using platform::NSXPCInterface;
using platform::ServiceConnectResult;

/// Every name leads to one socket.
class OneEndpoint final : public platform::ServiceEndpoints {
 public:
  explicit OneEndpoint(std::string path) : path_(std::move(path)) {}
  ServiceConnectResult connectToService(std::string_view) override {
    using Outcome = ServiceConnectResult::Outcome;
    const int socket =
        platform::connectUnixSocket(path_, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0) return {Outcome::TryAgain, -1, "the endpoint is busy"};
    return {Outcome::Connected, socket, {}};
  }

 private:
  const std::string path_;
};

std::shared_ptr<platform::NSError> refusal(std::uint64_t drawn) {
  constexpr std::int64_t kNotPermitted = -536870174;
  constexpr std::int64_t kNoDevice = -536870208;
  return platform::NSError::errorWithDomain_code_userInfo(
      platform::str("NSOSStatusErrorDomain"), drawn % 2 == 0 ? kNotPermitted : kNoDevice, nullptr);
}

std::shared_ptr<platform::NSData> report() {
  return platform::NSData::dataWithBytes(std::vector<std::uint8_t>{1, 2, 3});
}

}  // namespace

class RaceSession final : public WLHIDEventRouterProtocol,
                          public std::enable_shared_from_this<RaceSession> {
 public:
  RaceSession(std::weak_ptr<RaceRouter> router,
              std::shared_ptr<platform::NSXPCConnection> connection)
      : router_(std::move(router)), connection_(std::move(connection)) {}

  /// All but the resume, behind which anything may come.
  void prepare() {
    connection_->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()));
    connection_->setExportedObject<WLHIDEventRouterProtocol>(shared_from_this());
    connection_->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol()));
    client_ = connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterClientProtocol>({});
    connection_->setInvalidationHandler([router = router_, self = weak_from_this()] {
      if (const auto owner = router.lock()) owner->ended(self);
    });
  }
  void resume() const { connection_->resume(); }

  void startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
      std::uint64_t, std::uint64_t, const std::shared_ptr<platform::NSDictionary>&,
      const std::shared_ptr<platform::NSDictionary>&, StartReply reply) override {
    if (const auto router = router_.lock()) router->answer(shared_from_this(), std::move(reply));
  }
  void stopRoutingService() override { isRouting_ = false; }

  void setRouting() { isRouting_ = true; }
  [[nodiscard]] bool isRouting() const { return isRouting_; }
  void deliver(std::uint32_t reportID) const {
    client_->receivedData_forReportID(report(), reportID);
  }
  void sayFarewell() const { connection_->invalidate(); }

 private:
  const std::weak_ptr<RaceRouter> router_;
  const std::shared_ptr<platform::NSXPCConnection> connection_;
  std::shared_ptr<WLHIDEventRouterClientProtocol> client_;
  std::atomic<bool> isRouting_{false};
};

std::shared_ptr<RaceRouter> RaceRouter::make() {
  std::shared_ptr<RaceRouter> router(new RaceRouter);
  std::string pattern = (std::filesystem::temp_directory_path() / "wlhid-stress-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::runtime_error("cannot make a temporary directory");
  router->directory_ = pattern;
  const std::string path = pattern + "/router.sock";
  const int descriptor = platform::listenUnixSocket(path, SOCK_STREAM | SOCK_CLOEXEC, 128, 0600);
  if (descriptor < 0) throw std::runtime_error("cannot listen at " + path);
  router->listener_ = platform::NSXPCListener::initWithListeningDescriptor(descriptor);
  router->listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(router));
  router->listener_->resume();
  router->previousEndpoints_ =
      platform::serviceEndpoints().exchange(std::make_shared<OneEndpoint>(path));
  return router;
}

RaceRouter::~RaceRouter() {
  if (listener_) listener_->invalidate();
  if (previousEndpoints_) platform::serviceEndpoints().exchange(previousEndpoints_);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

std::uint64_t RaceRouter::draw() {
  const std::lock_guard lock(mutex_);
  return random_();
}

bool RaceRouter::listener_shouldAcceptNewConnection(
    const std::shared_ptr<platform::NSXPCListener>&,
    const std::shared_ptr<platform::NSXPCConnection>& connection) {
  accepted_.fetch_add(1);
  const Temper temper = temper_;
  if (temper == Temper::Unfriendly || (temper == Temper::Moody && draw() % 50 == 0)) return false;
  const auto self = shared_from_this();
  const auto session = std::make_shared<RaceSession>(self, connection);
  session->prepare();
  {
    const std::lock_guard lock(mutex_);
    sessions_.push_back(session);
  }
  session->resume();
  return true;
}

void RaceRouter::answer(const std::shared_ptr<RaceSession>& session, StartReply reply) {
  const std::uint64_t drawn = temper_ == Temper::Calm ? 0 : draw() % 16;
  if (drawn < 8) {
    session->setRouting();
    reply(nullptr);
    session->deliver(1);
  } else if (drawn < 11) {
    reply(refusal(drawn));
  } else if (drawn < 14) {
    const std::lock_guard lock(mutex_);
    held_.push_back(std::move(reply));
  }
  // Else it is dropped unanswered.
}

void RaceRouter::ended(const std::weak_ptr<RaceSession>& session) {
  const auto over = session.lock();
  const std::lock_guard lock(mutex_);
  std::erase(sessions_, over);
}

std::shared_ptr<RaceSession> RaceRouter::takeOne(Random& random) {
  const std::lock_guard lock(mutex_);
  if (sessions_.empty()) return nullptr;
  const auto at = sessions_.begin() + static_cast<std::ptrdiff_t>(random() % sessions_.size());
  auto session = *at;
  sessions_.erase(at);
  return session;
}

void RaceRouter::killOne(Random& random) {
  const auto session = takeOne(random);  // and with it goes the connection
  if (session) killed_.fetch_add(1);
}

void RaceRouter::endOne(Random& random) {
  if (const auto session = takeOne(random)) session->sayFarewell();
}

void RaceRouter::deliver(Random& random) {
  std::shared_ptr<RaceSession> session;
  {
    const std::lock_guard lock(mutex_);
    if (!sessions_.empty()) session = sessions_[random() % sessions_.size()];
  }
  if (session) session->deliver(2);
}

void RaceRouter::settleOne(Random& random) {
  StartReply reply;
  {
    const std::lock_guard lock(mutex_);
    if (held_.empty()) return;
    std::swap(held_[random() % held_.size()], held_.back());
    reply = std::move(held_.back());
    held_.pop_back();
  }
  const std::uint64_t drawn = random() % 4;
  if (drawn == 0) return;  // dropped
  reply(drawn == 1 ? refusal(random()) : nullptr);
}

void RaceRouter::settleAll() {
  std::vector<StartReply> replies;
  {
    const std::lock_guard lock(mutex_);
    replies.swap(held_);
  }
  for (const StartReply& reply : replies) reply(nullptr);
}

void RaceRouter::deliverToAll(std::uint32_t reportID) {
  std::vector<std::shared_ptr<RaceSession>> all;
  {
    const std::lock_guard lock(mutex_);
    all = sessions_;
  }
  for (const auto& session : all) session->deliver(reportID);
}

std::size_t RaceRouter::routing() const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(
      std::count_if(sessions_.begin(), sessions_.end(),
                    [](const auto& session) { return session->isRouting(); }));
}

std::size_t RaceRouter::connections() const {
  const std::lock_guard lock(mutex_);
  return sessions_.size();
}

}  // namespace stress
