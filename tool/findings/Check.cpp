// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Check.h"

#include <utility>

namespace tool {

Check passed(std::string name, std::string found) {
  return {std::move(name), Check::State::Passed, std::move(found), {}, {}};
}

Check failed(std::string name, std::string found, std::string_view remedy,
             const std::string& command) {
  std::string whole(remedy);
  if (!command.empty()) whole += ": " + command;
  return {std::move(name), Check::State::Failed, std::move(found), std::move(whole), command};
}

Check notAsked(std::string name, std::string why) {
  return {std::move(name), Check::State::NotAsked, std::move(why), {}, {}};
}

}  // namespace tool
