// SPDX-License-Identifier: Apache-2.0

// Pages in a real browser. WLHID_SCREENSHOTS names a directory for pictures of them.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

namespace test {

constexpr const char* kNoBrowser = "no browser is installed (chromium, chromium-driver)";

[[nodiscard]] bool hasBrowser();
/// What a program of this folder sees of the page while it uses it.
[[nodiscard]] nlohmann::json seenInBrowser(const std::string& program,
                                           const std::filesystem::path& page);

}  // namespace test
