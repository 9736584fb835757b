// SPDX-License-Identifier: Apache-2.0

#include <utility>

#include "WLHIDAccess/InputRouter.h"
#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/services/Authorization.h"

namespace wlhid {

namespace {

class ChosenBundle final : public platform::ForwardingFoundationProvider {
 public:
  ChosenBundle(std::shared_ptr<platform::FoundationProvider> next, const std::string& directory)
      : ForwardingFoundationProvider(std::move(next)),
        directory_(platform::NSString::stringWithUTF8(directory)) {}
  std::shared_ptr<platform::NSString> mainBundlePath() override { return directory_; }

 private:
  const std::shared_ptr<platform::NSString> directory_;
};

/// What is asked for and what for, so that a removal needs no more than the right to remove.
struct Change {
  void (*method)(const std::shared_ptr<platform::NSString>&,
                 const WLHIDEventRouterClient::CompletionHandler&);
  platform::ChangePurpose purpose;
};

constexpr Change kInstallation{&WLHIDEventRouterClient::installWithPrompt_completionHandler,
                               platform::ChangePurpose::Install};
constexpr Change kRemoval{&WLHIDEventRouterClient::uninstallWithPrompt_completionHandler,
                          platform::ChangePurpose::Remove};

/// Puts back what the application had chosen for its own requests.
class ChosenPurpose {
 public:
  explicit ChosenPurpose(platform::ChangePurpose purpose)
      : before_(platform::authorizationPurpose()) {
    platform::setAuthorizationPurpose(purpose);
  }
  ~ChosenPurpose() { platform::setAuthorizationPurpose(before_); }
  ChosenPurpose(const ChosenPurpose&) = delete;
  ChosenPurpose& operator=(const ChosenPurpose&) = delete;

 private:
  const platform::ChangePurpose before_;
};

void change(const Change& what, const std::string& prompt) {
  const ChosenPurpose chosen(what.purpose);
  std::shared_ptr<Error> failure;
  const auto words = prompt.empty() ? nullptr : platform::NSString::stringWithUTF8(prompt);
  what.method(words, [&](bool success, const std::shared_ptr<platform::NSError>& error) {
    if (success) return;
    failure = error != nullptr ? std::make_shared<Error>(error)
                               : std::make_shared<Error>(
                                     kErrorDomain, static_cast<std::int64_t>(ErrorCode::NotChanged),
                                     "Nothing was removed: there is no router of this "
                                     "application's version, or it could not be removed.");
  });
  if (failure != nullptr) throw Error(*failure);
}

void changeElsewhere(const Change& what, const std::string& prompt, const Executor& executor,
                     Done done) {
  executor([&what, prompt, done = std::move(done)] {
    try {
      change(what, prompt);
    } catch (const Error& error) {
      if (done) done(&error);
      return;
    }
    if (done) done(nullptr);
  });
}

platform::OSStatus statusOf(Consent consent) {
  switch (consent) {
    case Consent::Given:
      return platform::errAuthorizationSuccess;
    case Consent::Denied:
      return platform::errAuthorizationDenied;
    case Consent::Canceled:
      return platform::errAuthorizationCanceled;
    case Consent::Impossible:
      break;
  }
  return platform::errAuthorizationInteractionNotAllowed;
}

}  // namespace

void Router::install(const std::string& prompt) {
  change(kInstallation, prompt);
}

void Router::remove(const std::string& prompt) {
  change(kRemoval, prompt);
}

void Router::install(const std::string& prompt, const Executor& executor, Done done) {
  changeElsewhere(kInstallation, prompt, executor, std::move(done));
}

void Router::remove(const std::string& prompt, const Executor& executor, Done done) {
  changeElsewhere(kRemoval, prompt, executor, std::move(done));
}

void Router::useBundle(const std::string& directory) {
  auto& provider = platform::foundationProvider();
  provider.exchange(std::make_shared<ChosenBundle>(provider.load(), directory));
}

void Router::setConsentAgent(ConsentAgent agent) {
  if (!agent) return platform::setAuthorizationAgent(nullptr);
  platform::setAuthorizationAgent([agent = std::move(agent)](std::string_view prompt) {
    return statusOf(agent(std::string(prompt)));
  });
}

}  // namespace wlhid
