// SPDX-License-Identifier: Apache-2.0

// The situations in which a person needs help, set up on a test's own root.
//
// Errors: as in Process.h.
#pragma once

#include <elf.h>

#include <cstring>

#include "ToolTest.h"

namespace test {

class SituationTest : public ToolTest {
 protected:
  [[nodiscard]] std::filesystem::path helperTool() const {
    return root / "Library/PrivilegedHelperTools/com.quillmar.hideventrouter";
  }
  [[nodiscard]] std::filesystem::path systemLog() const { return root / "var/log/system.log"; }

  /// Gives the installed router another version, of as many bytes.
  void becomeVersion(std::string_view version) {
    std::string other = readFile(helperTool());
    constexpr std::string_view kKey = "<key>CFBundleVersion</key>";
    constexpr std::string_view kBegin = "<string>";
    const std::size_t at = other.find(kBegin, other.find(kKey)) + kBegin.size();
    ASSERT_LT(at, other.size());
    ASSERT_EQ(other.find('<', at) - at, version.size());
    other.replace(at, version.size(), version);
    replaceHelperTool(other);
  }
  void makeOutdated() { becomeVersion("0.9"); }

  /// Makes the installed router's program crash at its first instruction: its entry point is not
  /// executable, and no library that could catch that is loaded before.
  void breakProgram() {
    std::string other = readFile(helperTool());
    const std::size_t program = other.find(
        "\x7f"
        "ELF");
    ASSERT_NE(program, std::string::npos);
    Elf64_Ehdr header;
    std::memcpy(&header, &other[program], sizeof header);
    header.e_entry = 0;
    std::memcpy(&other[program], &header, sizeof header);
    for (std::size_t i = 0; i < header.e_phnum; ++i) {
      Elf64_Phdr part;
      char* const place = &other[program + header.e_phoff + i * sizeof part];
      std::memcpy(&part, place, sizeof part);
      if (part.p_type == PT_INTERP) part.p_type = PT_NULL;
      std::memcpy(place, &part, sizeof part);
    }
    replaceHelperTool(other);
  }

  /// Runs the command as a user without access to this test's files: a superuser may read every
  /// file.
  [[nodiscard]] Outcome runToolAsNobody(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command = wlhid(arguments);
    if (::geteuid() == 0)
      command.insert(command.begin(),
                     {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    return run(command, options());
  }

  /// Whether this process may mount file systems.
  [[nodiscard]] static bool canMount() {
    return run({"unshare", "-rm", "true"}).status == 0 &&
           run({"unshare", "-rm", "mount", "-t", "tmpfs", "tmpfs", "/tmp"}).status == 0;
  }
  /// Runs the command, quoted for a shell, while `directory`/disk is an almost full file system of
  /// 64 KiB. Its output is followed by the names of the files left there.
  [[nodiscard]] Outcome runOnFullDisk(const std::string& quoted) const {
    const std::string disk = directory / "disk";
    std::filesystem::create_directories(disk);
    return run({"unshare", "-rm", "sh", "-c",
                "mount -t tmpfs -o size=64k tmpfs '" + disk + "' && echo old > '" + disk +
                    "/out' && head -c 61440 /dev/zero > '" + disk + "/filling'; " + quoted +
                    "; status=$?; ls -A '" + disk + "'; cat '" + disk + "/out'; exit $status"},
               options());
  }

 private:
  void replaceHelperTool(const std::string& image) const {
    writeFile(directory / "other", image);
    std::filesystem::permissions(directory / "other", std::filesystem::perms(0755));
    std::filesystem::rename(directory / "other", helperTool());
  }
};

}  // namespace test
