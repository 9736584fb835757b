// SPDX-License-Identifier: Apache-2.0

// The shared library offers what the public headers declare, nothing else, and loads nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/integration/library/DeclaredNames.h"

namespace test {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::IsEmpty;
using testing::StartsWith;

/// The names that a program can link to, demangled.
std::set<std::string> exportedNames() {
  std::istringstream lines(outputOf("'" WLHID_NM "' -D --defined-only -P '" WLHID_LIBRARY "'"));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);)
    names.insert(demangled(line.substr(0, line.find(' '))));
  return names;
}

/// The class that a symbol describes which the compiler makes for a class, not for a declaration.
std::optional<std::string> describedClass(std::string_view name) {
  for (const std::string_view kind : {"vtable for ", "typeinfo for ", "typeinfo name for "})
    if (name.starts_with(kind)) return std::string(name.substr(kind.size()));
  return std::nullopt;
}

/// A call through another base class ends at the declared function.
std::string withoutThunk(const std::string& name) {
  constexpr std::string_view kThunk = "non-virtual thunk to ";
  return name.starts_with(kThunk) ? name.substr(kThunk.size()) : name;
}

/// The libraries, or the own name, in the dynamic section.
std::set<std::string> dynamicEntries(std::string_view tag) {
  std::istringstream lines(outputOf("LC_ALL=C '" WLHID_READELF "' -d '" WLHID_LIBRARY "'"));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(tag) == std::string::npos) continue;
    const auto begin = line.find('[') + 1;
    names.insert(line.substr(begin, line.find(']') - begin));
  }
  return names;
}

class SharedLibraryTest : public testing::Test {
 protected:
  static const DeclaredNames& read() {
    static const DeclaredNames names =
        declaredNames(WLHID_CLANGXX, std::getenv("WLHID_SOURCE_DIR"), WLHID_PUBLIC_HEADERS);
    return names;
  }
  const DeclaredNames& declared = read();
  const std::set<std::string> exported = exportedNames();
};

TEST_F(SharedLibraryTest, ExportsNothingThatNoPublicHeaderDeclares) {
  std::set<std::string> undeclared;
  for (const std::string& name : exported) {
    const auto described = describedClass(name);
    const bool known = described ? declared.classes.contains(*described)
                                 : declared.definedElsewhere.contains(withoutThunk(name));
    if (!known) undeclared.insert(name);
  }
  EXPECT_THAT(undeclared, IsEmpty());
}

TEST_F(SharedLibraryTest, ExportsEverythingThatThePublicHeadersDeclare) {
  std::set<std::string> missing;
  for (const std::string& name : declared.definedElsewhere)
    if (!exported.contains(name)) missing.insert(name);
  EXPECT_THAT(missing, IsEmpty());
  // So that an empty list of declarations cannot pass.
  EXPECT_TRUE(declared.definedElsewhere.contains("WLHIDEventRouterClient::setStarted(bool)"));
  EXPECT_TRUE(declared.definedElsewhere.contains("WLHIDAccessVersionNumber"));
  EXPECT_TRUE(declared.definedElsewhere.contains("wlhid::Router::presence()"));
  EXPECT_TRUE(declared.classes.contains("platform::NSString"));
}

TEST(SharedLibraryFile, HasTheNameThatProgramsLoad) {
  EXPECT_EQ(dynamicEntries("(SONAME)"), std::set<std::string>{WLHID_SONAME});
  EXPECT_EQ(std::string("libwlhidaccess.so." WLHID_SOVERSION), WLHID_SONAME);
}

TEST(SharedLibraryFile, LoadsTheStandardLibrariesOnly) {
  EXPECT_THAT(dynamicEntries("(NEEDED)"),
              Each(AnyOf(StartsWith("libstdc++.so."), StartsWith("libgcc_s.so."),
                         StartsWith("libc.so."), StartsWith("libm.so."), StartsWith("ld-linux"))));
}

}  // namespace
}  // namespace test
