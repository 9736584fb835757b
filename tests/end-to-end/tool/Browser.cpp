// SPDX-License-Identifier: Apache-2.0

#include "Browser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "ToolTest.h"

namespace test {

using nlohmann::json;

bool hasBrowser() {
  return run({"sh", "-c", "command -v chromedriver"}).status == 0;
}

json seenInBrowser(const std::string& program, const std::filesystem::path& page) {
  std::vector<std::string> command{"python3", "-B", sourcePath("tests/end-to-end/tool/" + program),
                                   page};
  if (const char* const screenshots = std::getenv("WLHID_SCREENSHOTS")) {
    command.push_back(std::filesystem::path(screenshots) / page.stem());
    std::filesystem::create_directories(command.back());
  }
  const Outcome seen = run(command);
  EXPECT_EQ(seen.status, 0) << seen.err;
  return seen.status == 0 ? json::parse(seen.out) : json::object();
}

}  // namespace test
