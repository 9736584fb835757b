// SPDX-License-Identifier: Apache-2.0

#include "jobd/GrantChanges.h"

#include <exception>
#include <string>

#include "jobd/GrantFile.h"
#include "platform/foundation/Format.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemPlaces.h"

namespace jobd {
namespace {

using platform::ControlReply;
using platform::LogLine;
using platform::PeerCredentials;
using platform::ServiceErrorCode;

ControlReply refusal(const Decision& decision) {
  using Kind = Decision::Kind;
  if (decision.kind == Kind::Canceled)
    return controlReply(ServiceErrorCode::Canceled, "the question was dismissed");
  const bool nobodyAsks = decision.kind == Kind::InteractionNotAllowed;
  const std::string what = nobodyAsks ? "an administrator has to agree, and nobody can be asked"
                                      : "the caller may not change what is granted";
  return controlReply(
      nobodyAsks ? ServiceErrorCode::InteractionNotAllowed : ServiceErrorCode::NotPermitted,
      decision.reason.empty() ? what : what + ": " + decision.reason);
}

LogLine lineOf(const PeerCredentials& caller, const GrantChange& change) {
  const auto& [grant, isRevocation] = change;
  const std::string what =
      platform::stringWithFormat("%s (%04x:%04x:%04x)", grant.name, grant.device.bus,
                                 grant.device.vendor, grant.device.product);
  return isRevocation
             ? LogLine::of<row::grantRevoked>(caller.process, caller.user, grant.user, what)
             : LogLine::of<row::deviceGranted>(caller.process, caller.user, grant.user, what);
}

void apply(int root, const GrantChange& change) {
  const GrantFile file(root);
  if (change.isRevocation)
    file.revoke(change.grant);
  else
    file.grant(change.grant);
}

ControlReply attempt(int root, const GrantChange& change) try {
  apply(root, change);
  return controlReply();
} catch (const platform::ServiceError& error) {
  return controlReply(error.code(), error.what());
} catch (const std::exception& error) {
  return controlReply(ServiceErrorCode::FileSystem, error.what());
}

}  // namespace

void changeGrants(int rootDirectory, const GrantSeams& seams, const Caller& caller,
                  const platform::ControlRequest& request, const ControlServer::Reply& reply) {
  using Operation = platform::ControlRequest::Operation;
  const GrantChange change{*request.grant, request.operation == Operation::Revoke};
  Question question{caller.credentials, std::string(platform::kSystemJobLabel), Right::Grant, {}};
  question.change = change;
  question.presence = caller.presence;
  seams.authority(question, [=, who = caller.credentials,
                             note = seams.note](const Decision& decision) {
    const ControlReply answer =
        decision.kind == Decision::Kind::Yes ? attempt(rootDirectory, change) : refusal(decision);
    note(answer.succeeded() ? lineOf(who, change)
                            : LogLine::of<row::grantDenied>(who.process, who.user, answer.message));
    reply(answer);
  });
}

}  // namespace jobd
