// SPDX-License-Identifier: Apache-2.0

#include "router/policy/SystemAuthority.h"

#include <fcntl.h>

#include <utility>

#include "platform/services/FileDescriptor.h"
#include "router/policy/EndInquiry.h"
#include "router/policy/GrantedInquiries.h"
#include "router/policy/RoutingInquiry.h"

namespace router {
namespace {

using platform::system::PeerProcess;

class SystemPermit final : public RoutingPermit {
 public:
  explicit SystemPermit(std::shared_ptr<RoutingInquiry> inquiry) : inquiry_(std::move(inquiry)) {}
  SystemPermit(const SystemPermit&) = delete;
  SystemPermit& operator=(const SystemPermit&) = delete;
  ~SystemPermit() override { inquiry_->withdraw(); }
  void noteBeginning() override { inquiry_->noteBeginning(); }

 private:
  const std::shared_ptr<RoutingInquiry> inquiry_;
};

class SystemCaller final : public RoutingCaller {
 public:
  SystemCaller(std::shared_ptr<const AuthoritySources> sources,
               std::shared_ptr<QuestionLine> questions, std::shared_ptr<GrantedInquiries> granted,
               PeerProcess process)
      : sources_(std::move(sources)),
        questions_(std::move(questions)),
        granted_(std::move(granted)),
        process_(std::move(process)) {}

  std::unique_ptr<RoutingPermit> ask(const RoutingRequest& request, Decided decided,
                                     Revoked revoked) override {
    auto inquiry = std::make_shared<RoutingInquiry>(sources_, questions_, process_, request,
                                                    std::move(decided), std::move(revoked));
    auto permit = std::make_unique<SystemPermit>(inquiry);
    inquiry->begin();
    if (inquiry->restsOnGrant()) granted_->add(inquiry);
    return permit;
  }
  std::unique_ptr<RoutingPermit> askToEnd(std::uint64_t session, Decided decided) override {
    return EndInquiry::begin(sources_, questions_, {process_, session}, std::move(decided));
  }
  [[nodiscard]] std::string program() const override { return process_.program(); }
  [[nodiscard]] std::string unit() const override { return process_.unit(); }

 private:
  const std::shared_ptr<const AuthoritySources> sources_;
  const std::shared_ptr<QuestionLine> questions_;
  const std::shared_ptr<GrantedInquiries> granted_;
  const PeerProcess process_;
};

AuthoritySources completed(AuthoritySources sources) {
  if (!sources.shownDevice) sources.shownDevice = sources.device;
  return sources;
}

}  // namespace

QuestionLine::Answer answerOf(const platform::system::PolkitAnswer& answer) {
  if (answer.isYes()) return QuestionLine::Answer::Yes;
  return answer.needsPerson ? QuestionLine::Answer::NobodyToAsk : QuestionLine::Answer::No;
}

SystemAuthority::SystemAuthority(AuthoritySources sources, const QuestionLimits& limits)
    : sources_(std::make_shared<const AuthoritySources>(completed(std::move(sources)))),
      questions_(std::make_shared<QuestionLine>(limits, sources_->now)),
      granted_(std::make_shared<GrantedInquiries>()) {}

std::shared_ptr<RoutingCaller> SystemAuthority::callerOf(
    const platform::NSXPCConnection& connection) {
  platform::FileDescriptor process;
  if (const int known = connection.processDescriptor(); known >= 0)
    process = platform::FileDescriptor(::fcntl(known, F_DUPFD_CLOEXEC, 0));
  std::string whyNot;
  auto caller =
      PeerProcess::ofProcess(connection.processIdentifier(), connection.effectiveUserIdentifier(),
                             std::move(process), whyNot);
  return caller ? callerFor(std::move(*caller)) : nullptr;
}

std::optional<Classification> SystemAuthority::classOf(const DeviceDescription& device) const {
  auto found = sources_->shownDevice(device);
  if (!found) return std::nullopt;
  return std::move(found->classification);
}

bool SystemAuthority::hasMemories() {
  return questions_->remembersAnybody();
}

void SystemAuthority::review() {
  granted_->review();
}

std::shared_ptr<RoutingCaller> SystemAuthority::callerFor(PeerProcess process) const {
  return std::make_shared<SystemCaller>(sources_, questions_, granted_, std::move(process));
}

}  // namespace router
