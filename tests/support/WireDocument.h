// SPDX-License-Identifier: Apache-2.0

// The hex examples of docs/wire-protocol.md.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace testsupport {

struct WireExample {
  std::string kind;     ///< "frame" or "object"
  std::string verdict;  ///< "accepted" or "refused"
  std::string name;
  std::string reason;  ///< of a refusal
  std::vector<std::uint8_t> bytes;
};

inline std::vector<WireExample> wireExamples() {
  const char* const root = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::string(root ? root : ".") + "/docs/wire-protocol.md");
  std::vector<WireExample> examples;
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("```hex ", 0) == 0) {
      std::istringstream words(line.substr(7));
      WireExample example;
      words >> example.kind >> example.verdict >> example.name;
      std::getline(words, example.reason);
      if (!example.name.empty() && example.name.back() == ':') {
        example.name.pop_back();
        example.reason.erase(0, 1);
      }
      examples.push_back(std::move(example));
      inside = true;
    } else if (line == "```") {
      inside = false;
    } else if (inside) {
      std::istringstream words(line.substr(0, line.find(';')));
      for (std::string byte; words >> byte;) {
        examples.back().bytes.push_back(static_cast<std::uint8_t>(std::stoul(byte, nullptr, 16)));
      }
    }
  }
  return examples;
}

}  // namespace testsupport
