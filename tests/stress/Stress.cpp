// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/Stress.h"

#include <poll.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace stress {
namespace {

constexpr std::uint64_t kMaxPrinted = 20;

double seconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

Work Work::parse(std::string_view text) {
  if (text == "short") return Work(0);
  if (text == "long") return Work(1);
  double percent = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), percent);
  if (error != std::errc() || end != text.data() + text.size() - 1 || *end != '%' || percent <= 0)
    throw std::invalid_argument("the amount must be \"short\", \"long\" or a percentage");
  return Work(percent / 100);
}

std::uint64_t Work::times(std::uint64_t whole, std::uint64_t shortRun) const {
  return std::max(shortRun, static_cast<std::uint64_t>(share_ * static_cast<double>(whole)));
}

void Findings::figure(std::string_view name, const std::string& value) {
  const std::lock_guard lock(mutex_);
  std::printf("%.*s: %s\n", static_cast<int>(name.size()), name.data(), value.c_str());
  std::fflush(stdout);
}

void Findings::figure(std::string_view name, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", value);
  figure(name, std::string(text));
}

bool Findings::demand(bool holds, std::string_view text) {
  if (holds) return true;
  if (failures_.fetch_add(1) >= kMaxPrinted) return false;
  const std::lock_guard lock(mutex_);
  std::printf("FAILED: %.*s\n", static_cast<int>(text.size()), text.data());
  std::fflush(stdout);
  return false;
}

bool Findings::demandEqual(std::string_view what, std::uint64_t found, std::uint64_t expected) {
  return demand(found == expected, std::string(what) + ": " + std::to_string(found) +
                                       " instead of " + std::to_string(expected));
}

bool eventually(const std::function<bool()>& holds, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    ::poll(nullptr, 0, 1);  // between two checks, so that the awaited work gets the processor
  }
  return true;
}

int run(int argc, char** argv, const std::function<void(const Work&, Findings&)>& work) try {
  if (argc != 2) throw std::invalid_argument("usage: short | long | N%");
  const Work amount = Work::parse(argv[1]);
  Findings findings;
  const auto start = std::chrono::steady_clock::now();
  work(amount, findings);
  findings.figure("seconds", seconds(std::chrono::steady_clock::now() - start));
  return findings.exitStatus();
} catch (const std::exception& error) {
  std::printf("FAILED: %s\n", error.what());
  return 1;
}

}  // namespace stress
