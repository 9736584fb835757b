// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SessionLookup.h"

#include <systemd/sd-login.h>

#include <cstdlib>

namespace platform::system {
namespace {

std::optional<std::string> taken(int result, char* text) {
  if (result < 0 || text == nullptr) return std::nullopt;
  std::string copy = text;
  std::free(text);
  return copy;
}

}  // namespace

SessionLookup SessionLookup::ofSystem() {
  return {.sessionOfProcess =
              [](pid_t process) {
                char* session = nullptr;
                const int result = sd_pid_get_session(process, &session);
                return taken(result, session);
              },
          .ownerOfProcess = [](pid_t process) -> std::optional<uid_t> {
            uid_t owner = 0;
            if (sd_pid_get_owner_uid(process, &owner) < 0) return std::nullopt;
            return owner;
          },
          .displayOfUser =
              [](uid_t user) {
                char* session = nullptr;
                const int result = sd_uid_get_display(user, &session);
                return taken(result, session);
              }};
}

std::optional<std::string> SessionLookup::find(pid_t process) const {
  if (auto session = sessionOfProcess(process)) return session;
  const std::optional<uid_t> owner = ownerOfProcess(process);
  return owner ? displayOfUser(*owner) : std::nullopt;
}

}  // namespace platform::system
