// SPDX-License-Identifier: Apache-2.0

#include "tool/report/LastError.h"

#include <cstddef>
#include <string_view>

#include "tool/report/SourceFile.h"

namespace tool {

namespace {

constexpr std::size_t kSearchedBytes = std::size_t{256} * 1024;

std::string endOf(const std::string& path) {
  std::string problem;
  std::string text;
  SourceFile file(path, problem);
  if (!problem.empty()) return text;
  file.seekToLast(kSearchedBytes);
  // A log that grows meanwhile is read no further.
  for (auto piece = file.next(problem); !piece.empty() && text.size() < kSearchedBytes;
       piece = file.next(problem))
    text.append(reinterpret_cast<const char*>(piece.data()), piece.size());
  return text;
}

}  // namespace

std::optional<std::string> lastErrorIn(const std::string& logPath) {
  const std::string text = endOf(logPath);
  std::string_view rest = text;
  while (!rest.empty()) {
    if (rest.back() == '\n') rest.remove_suffix(1);
    const std::size_t begin = rest.rfind('\n') + 1;  // 0 in the first line
    const std::string_view line = rest.substr(begin);
    if (isErrorLine(line)) return std::string(line);
    rest = rest.substr(0, begin);
  }
  return std::nullopt;
}

}  // namespace tool
