// SPDX-License-Identifier: Apache-2.0

#include "tests/integration/library/DeclaredNames.h"

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace test {
namespace {

using nlohmann::json;

bool isTrue(const json& node, const char* key) {
  return node.value(key, false);
}

bool hasBody(const json& function) {
  if (!function.contains("inner")) return false;
  const json& parts = function["inner"];
  return std::any_of(parts.begin(), parts.end(),
                     [](const json& part) { return part.value("kind", "") == "CompoundStmt"; });
}

bool isDefinedElsewhere(const json& node) {
  if (!node.contains("mangledName") || isTrue(node, "isImplicit") || isTrue(node, "inline"))
    return false;
  const std::string kind = node["kind"];
  if (kind == "VarDecl") return !node.contains("init");
  const bool function = kind == "FunctionDecl" || kind == "CXXMethodDecl" ||
                        kind == "CXXConstructorDecl" || kind == "CXXDestructorDecl";
  return function && !isTrue(node, "pure") && !isTrue(node, "constexpr") &&
         !node.contains("explicitlyDefaulted") && !isTrue(node, "explicitlyDeleted") &&
         !hasBody(node);
}

class Reader {
 public:
  explicit Reader(DeclaredNames& names) : names_(names) {}

  void read(const json& node, const std::string& scope) {
    const std::string kind = node.value("kind", "");
    if (kind == "NamespaceDecl" || kind == "LinkageSpecDecl") return readParts(node, scope);
    if (kind == "CXXRecordDecl") return readClass(node, scope);
    if (isDefinedElsewhere(node)) names_.definedElsewhere.insert(demangled(node["mangledName"]));
  }

 private:
  void readClass(const json& node, const std::string& scope) {
    if (isTrue(node, "isImplicit") || !isTrue(node, "completeDefinition")) return;
    names_.classes.insert(scope + node.value("name", ""));
    readParts(node, scope);
  }
  void readParts(const json& node, const std::string& scope) {
    if (!node.contains("inner")) return;
    const std::string name = node.value("name", "");
    for (const json& part : node["inner"]) read(part, name.empty() ? scope : scope + name + "::");
  }

  DeclaredNames& names_;
};

/// clang prints one document after another, for each declaration whose name contains `filter`.
void readDump(const std::string& dump, DeclaredNames& names) {
  std::istringstream stream(dump);
  Reader reader(names);
  while ((stream >> std::ws).peek() != std::istringstream::traits_type::eof()) {
    json document;
    stream >> document;
    reader.read(document, "");
  }
}

}  // namespace

std::string outputOf(const std::string& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string text;
  std::array<char, 65536> buffer{};
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), got);
  if (::pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  return text;
}

std::string demangled(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
  return status == 0 ? name.get() : symbol;
}

DeclaredNames declaredNames(const std::string& clang, const std::string& include,
                            const std::string& source) {
  DeclaredNames names;
  for (const char* filter : {"platform", "wlhid", "WLHID", "KQ"})
    readDump(outputOf("'" + clang + "' -std=c++20 -fsyntax-only -I'" + include +
                      "' -Xclang -ast-dump=json -Xclang -ast-dump-filter=" + filter + " '" +
                      source + "'"),
             names);
  return names;
}

}  // namespace test
