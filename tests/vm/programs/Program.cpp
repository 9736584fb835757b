// SPDX-License-Identifier: Apache-2.0

#include "tests/vm/programs/Program.h"

#include <fcntl.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <iostream>
#include <sstream>
#include <system_error>

namespace vm {

int run(const std::function<void(const std::vector<std::string>& arguments)>& main, int argc,
        char** argv, std::string_view usage) {
  try {
    main({argv + 1, argv + argc});
    return 0;
  } catch (const UsageError&) {
    std::cerr << usage;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << std::endl;
    return 1;
  }
}

std::int64_t number(std::string_view text) {
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || stopped != end) throw UsageError();
  return value;
}

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> found;
  for (std::string word; in >> word;) found.push_back(word);
  return found;
}

std::string hex(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

platform::FileDescriptor openFile(const std::string& path, int flags) {
  platform::FileDescriptor file(::open(path.c_str(), flags | O_CLOEXEC));
  if (!file) throwErrno(path);
  return file;
}

void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void say(const std::string& line) {
  std::cout << line << std::endl;
}

}  // namespace vm
