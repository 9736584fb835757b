// SPDX-License-Identifier: Apache-2.0

// Reads device-classes.txt, which says what its lines mean.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "HexBytes.h"
#include "router/policy/DeviceClass.h"

struct DeviceClassCase {
  std::string name;
  router::DeviceFacts facts;
  router::Classification expected;
};

inline void takeFact(const std::string& fact, router::DeviceFacts* facts) {
  if (fact == "boot keyboard") {
    facts->isBootKeyboard = true;
  } else if (fact == "keyboard node") {
    facts->hasKeyboardNode = true;
  } else if (fact == "beside a keyboard") {
    facts->isBesideKeyboard = true;
  } else if (fact == "decided ordinary") {
    facts->decided = router::DeviceClass::Ordinary;
  } else if (fact == "decided sensitive") {
    facts->decided = router::DeviceClass::Sensitive;
  } else {
    throw std::runtime_error("no such fact: " + fact);
  }
}

inline void takeClass(const std::string& line, router::Classification* expected) {
  std::istringstream words(line);
  std::string word;
  words >> word;
  if (word != "ordinary" && word != "sensitive") throw std::runtime_error("no such class: " + word);
  expected->deviceClass =
      word == "ordinary" ? router::DeviceClass::Ordinary : router::DeviceClass::Sensitive;
  words >> word >> word >> word;  // "; ordinary reports:"
  for (int report = 0; words >> report;)
    expected->ordinaryReports.insert(static_cast<std::uint8_t>(report));
}

inline void takeBytes(const std::string& line, router::DeviceFacts* facts) {
  const std::vector<std::uint8_t> more = bytes(line.substr(0, line.find('#')));
  facts->reportDescriptor.insert(facts->reportDescriptor.end(), more.begin(), more.end());
}

inline std::vector<DeviceClassCase> deviceClassCases() {
  const char* source = std::getenv("WLHID_SOURCE_DIR");  // NOLINT(concurrency-mt-unsafe)
  std::ifstream in(std::string(source != nullptr ? source : ".") +
                   "/tests/unit/router/device-classes.txt");
  std::vector<DeviceClassCase> cases;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("= ")) {
      cases.push_back({line.substr(2), {}, {}});
    } else if (line.starts_with("! ")) {
      takeFact(line.substr(2), &cases.back().facts);
    } else if (line.starts_with("> ")) {
      takeClass(line.substr(2), &cases.back().expected);
    } else if (line.starts_with(": ")) {
      cases.back().expected.reason = line.substr(2);
    } else if (!line.empty() && !line.starts_with("#")) {
      takeBytes(line, &cases.back().facts);
    }
  }
  return cases;
}
