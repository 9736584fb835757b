// SPDX-License-Identifier: Apache-2.0

// Replays a fuzz target's corpus as an ordinary test: every named file, and every file below a
// named directory, is fed once. Exit status 1 if there was no input, since a replay of nothing
// would prove nothing.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replayFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::size_t replay(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) {
    replayFile(path);
    return 1;
  }
  std::size_t fed = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
    if (!entry.is_regular_file()) continue;
    replayFile(entry.path());
    ++fed;
  }
  return fed;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t fed = 0;
  for (int i = 1; i < argc; ++i) fed += replay(argv[i]);
  std::cout << "replayed " << fed << " inputs\n";
  return fed == 0 ? 1 : 0;
}
