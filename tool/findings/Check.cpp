// SPDX-License-Identifier: Apache-2.0

#include "tool/findings/Check.h"

#include <utility>

namespace tool {

Check passed(std::string name, std::string found) {
  return {std::move(name), Check::State::Passed, std::move(found), {}, {}};
}

Check failed(std::string name, Words fault, std::string found, Words remedy,
             const std::string& command) {
  std::string whole(remedy.text());
  if (!command.empty()) whole += ": " + command;
  return {std::move(name), Check::State::Failed, std::move(found), std::move(whole),
          command,         fault.text(),         remedy.text()};
}

Check failed(std::string name, Words fault, Words remedy, const std::string& command) {
  return failed(std::move(name), fault, std::string(fault.text()), remedy, command);
}

Check notAsked(std::string name, std::string why) {
  return {std::move(name), Check::State::NotAsked, std::move(why), {}, {}};
}

}  // namespace tool
