// SPDX-License-Identifier: Apache-2.0

// What the public headers declare and leave to the library to define, as clang reads them.
//
// Errors: throws std::runtime_error if a command fails or prints nothing that can be read.
#pragma once

#include <set>
#include <string>

namespace test {

/// All that a shell command prints; throws if it fails.
[[nodiscard]] std::string outputOf(const std::string& command);
/// A symbol as C++ writes it: constructors and destructors of a class have one name each.
[[nodiscard]] std::string demangled(const std::string& symbol);

struct DeclaredNames {
  std::set<std::string> classes;  ///< in full: "platform::NSString"
  /// Functions and variables that are neither inline, nor templates, nor without a definition,
  /// demangled.
  std::set<std::string> definedElsewhere;
};

/// What the headers declare that `source` includes. `include` is the directory they are found in.
[[nodiscard]] DeclaredNames declaredNames(const std::string& clang, const std::string& include,
                                          const std::string& source);

}  // namespace test
