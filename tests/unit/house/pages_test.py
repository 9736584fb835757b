# SPDX-License-Identifier: Apache-2.0
"""The pages of docs/ and the README: links lead somewhere, code compiles, commands exist, and tables are complete.

Of each block of code one thing is true:
  - cpp, c, python    it is compiled
  - sh                its commands are wlhid's, with verbs and options that exist, or scripts of this tree
  - hex               tests/unit/xpc reads it from the page
  - text              it shows what a program prints, or names a form; commands of wlhid in it exist
  - "<!-- not run: why -->" precedes it, which says why no test does more. Commands of wlhid in it exist even so

    pages_test.py SOURCE_DIRECTORY BUILD_DIRECTORY COMPILER
"""
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD, COMPILER = pathlib.Path(), pathlib.Path(), ""
NOT_RUN = re.compile(r"<!-- not run: .+ -->$")
# Pages that are one reference as a whole. Their tests read them so.
LONG_PAGES = {"mutations.md", "security-model.md", "wire-protocol.md"}


def read(name):
    return (SOURCE / name).read_text(encoding="utf-8")


def pages():
    found = sorted(SOURCE.glob("*.md")) + sorted((SOURCE / "docs").glob("*.md"))
    assert len(found) > 15, f"no pages in {SOURCE}"
    return found


def without_code(text):
    text = re.sub(r"^```.*?^```$", "", text, flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", lambda match: "x" * len(match.group()), text)


def anchors(text):
    """The anchors that a code-hosting site makes of the headings."""
    found, seen = set(), {}
    for heading in re.findall(r"^#+ (.+)$", re.sub(r"^```.*?^```$", "", text, flags=re.M | re.S), flags=re.M):
        slug = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
        count = seen[slug] = seen.get(slug, -1) + 1
        found.add(slug if count == 0 else f"{slug}-{count}")
    return found


class Block:
    def __init__(self, page, line, section, info, text, is_marked):
        self.where = f"{page.relative_to(SOURCE)}:{line}"
        self.section = section
        self.language = info.split()[0] if info else ""
        self.text = text
        self.is_marked = is_marked


def blocks(page):
    lines = page.read_text(encoding="utf-8").splitlines()
    found, begin, section = [], None, ""
    for number, line in enumerate(lines):
        if begin is None and line.startswith("## "):
            section = line.removeprefix("## ")
        if not line.startswith("```"):
            continue
        if begin is None:
            begin = number
        else:
            marker = lines[begin - 1] if begin else ""
            found.append(Block(page, begin + 1, section, lines[begin][3:],
                               "\n".join(lines[begin + 1:number]) + "\n", bool(NOT_RUN.match(marker))))
            begin = None
    assert begin is None, f"{page}: a block of code does not end"
    return found


def all_blocks(*languages):
    return [block for page in pages() for block in blocks(page) if block.language in languages]


class Commands:
    """The verbs and options of wlhid, from the completion that the build makes of the command's own tables."""

    def __init__(self):
        text = (BUILD / "manual/wlhid.bash-completion").read_text(encoding="utf-8")
        tables = re.findall(r'^    "([a-z ]*)"\)\n      options="(.*)"$', text, flags=re.M)
        self.options = {verb: set(options.split()) for verb, options in tables}
        assert len(self.options) > 20, "no verbs in the completion"

    def problem(self, words):
        """What is wrong with the words after wlhid; empty if nothing is."""
        verb, at = "", 0
        while at < len(words) and words[at] == "--root":
            at += 2
        if at < len(words) and words[at] in ("--version", "--help"):
            return ""
        if at >= len(words) or words[at] not in self.options:
            return f"no verb {words[at:at + 1]}"
        verb = words[at]
        if at + 1 < len(words) and f"{verb} {words[at + 1]}" in self.options:
            verb = f"{verb} {words[at + 1]}"
        unknown = [word for word in words[at:] if re.match(r"--?[a-z]", word) and word not in self.options[verb]]
        return f"{verb} has no {unknown}" if unknown else ""


def commands_of_wlhid(line):
    """The words after each "wlhid" that begins a command in the line."""
    line = re.sub(r"\s#\s.*", "", line)  # a comment
    for match in re.finditer(r"(?:^|[|&;] *|sudo |\$ )(?:build/)?wlhid +([^|&;>]+)", line.strip()):
        words = re.sub(r"[\[\]]", " ", match.group(1))
        yield shlex.split(words.replace("'", "’"))


class Links(unittest.TestCase):
    def test_lead_to_files_and_headings_that_exist(self):
        checked = 0
        for page in pages():
            text = without_code(page.read_text(encoding="utf-8"))
            for target in re.findall(r"\]\(([^)\s]+)\)", text):
                if re.match(r"[a-z]+:", target):
                    continue
                path, _, anchor = target.partition("#")
                file = (page.parent / path).resolve() if path else page
                with self.subTest(page=page.name, target=target):
                    self.assertTrue(file.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(file.read_text(encoding="utf-8")))
                checked += 1
        self.assertGreater(checked, 100)

    def test_each_page_is_in_the_table_of_the_first(self):
        listed = set(re.findall(r"\]\(([a-z-]+\.md)\)", read("docs/start.md")))
        self.assertEqual(listed, {page.name for page in (SOURCE / "docs").glob("*.md")} - {"start.md"})

    def test_no_page_is_long(self):
        for page in (SOURCE / "docs").glob("*.md"):
            if page.name not in LONG_PAGES:
                self.assertLess(len(page.read_text(encoding="utf-8").splitlines()), 220, page.name)


class Code(unittest.TestCase):
    def test_each_block_has_a_language_that_is_checked_or_says_why_not(self):
        for page in pages():
            for block in blocks(page):
                with self.subTest(block.where):
                    known = block.language in ("cpp", "c", "python", "sh", "hex", "text")
                    self.assertTrue(known or block.is_marked, f'"{block.language}" is checked by nothing: mark it')

    def compile(self, options, suffix, text):
        command = [COMPILER, *options, "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-I", str(SOURCE)]
        with tempfile.TemporaryDirectory() as directory:
            file = pathlib.Path(directory) / f"block{suffix}"
            file.write_text(text, encoding="utf-8")
            result = subprocess.run([*command, str(file)], capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_cpp_compiles(self):
        found = [block for block in all_blocks("cpp") if not block.is_marked]
        self.assertGreater(len(found), 5)
        for block in found:
            with self.subTest(block.where):
                self.compile(["-std=c++20", "-D_GNU_SOURCE", "-x", "c++"], ".cpp", block.text)

    def test_c_compiles(self):
        for block in all_blocks("c"):
            with self.subTest(block.where):
                self.compile(["-std=c11", "-I", str(SOURCE / "c"), "-x", "c"], ".c", block.text)

    def test_python_compiles(self):
        for block in all_blocks("python"):
            with self.subTest(block.where):
                compile(block.text, block.where, "exec")

    def test_commands_of_wlhid_exist(self):
        commands, checked = Commands(), 0
        for block in all_blocks("sh", "text"):
            for line in block.text.splitlines():
                for words in commands_of_wlhid(line):
                    self.assertEqual(commands.problem(words), "", f"{block.where}: {line}")
                    checked += 1
        self.assertGreater(checked, 30)

    def test_commands_of_wlhid_within_sentences_exist(self):
        commands, checked = Commands(), 0
        for page in pages():
            text = re.sub(r"^```.*?^```$", "", page.read_text(encoding="utf-8"), flags=re.M | re.S)
            for quoted in re.findall(r"`(?:sudo )?wlhid +([a-z][^`…]*)`", text):
                words = shlex.split(re.sub(r"[\[\]]", " ", quoted.replace("\n", " ")))
                self.assertEqual(commands.problem(words), "", f"{page.name}: wlhid {quoted}")
                checked += 1
        self.assertGreater(checked, 60)

    def test_scripts_exist(self):
        for page in pages():
            for script in re.findall(r"(?<![\w/])scripts/([a-z-]+)(?![\w.])", page.read_text(encoding="utf-8")):
                self.assertTrue((SOURCE / "scripts" / script).exists(), f"{page.name}: scripts/{script}")

    def test_shell_blocks_with_other_commands_are_marked(self):
        for block in all_blocks("sh"):
            if block.section == "First steps":  # scripts/first-steps takes and runs these
                continue
            for line in block.text.splitlines():
                word = line.split(maxsplit=1)[0] if line.split() else "#"
                is_known = word.removeprefix("build/") in ("wlhid", "#") or word.startswith("scripts/")
                if not is_known and not block.is_marked:
                    self.fail(f"{block.where}: no test runs \"{line}\": mark the block")


def rows(page, heading):
    """The cells of the table rows below a heading, up to the next heading."""
    text = read(f"docs/{page}")
    begin = text.index(f"\n## {heading}\n")
    end = text.find("\n## ", begin + 1)
    table = [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
             for line in text[begin:end].splitlines() if line.startswith("| ")]
    return [row for row in table if not row[0].startswith("Code") and row[0] != "Check"]


def codes(heading):
    return {int(row[0].replace("−", "-")) for row in rows("errors.md", heading) if re.match(r"[−\d]", row[0])}


class Errors(unittest.TestCase):
    def setUp(self):
        self.texts = read("platform/foundation/ErrorTexts.cpp")

    def texts_of(self, domain):
        found = {int(code) for code in re.findall(rf"Entry{{\s*{domain}, (-?\d+),", self.texts)}
        self.assertGreater(len(found), 2, domain)
        return found

    def test_of_the_router(self):
        enumerators = {int(code): hexadecimal for code, hexadecimal in
                       re.findall(r"= (-\d+),\s*///< (0x[0-9A-F]{8})", read("router/RouterErrors.h"))}
        self.assertGreaterEqual(len(enumerators), 9)
        self.assertEqual(codes("From the router"), self.texts_of("kRouter") | set(enumerators))
        for row in rows("errors.md", "From the router"):
            code = int(row[0].replace("−", "-"))
            self.assertEqual(row[1], "" if code == -1 else f"0x{code & 0xffffffff:08X}")

    def test_of_the_services(self):
        header = read("platform/services/ServiceError.h")
        enumerators = {int(code) for code in re.findall(r"^  [A-Z]\w+ = (\d+),", header, flags=re.M)} - {0}
        self.assertEqual(codes("From installing and removing"), self.texts_of("kServices") | enumerators)

    def test_of_authorization_and_connections(self):
        self.assertEqual(codes("From authorization"), self.texts_of("NSOSStatusErrorDomain"))
        self.assertEqual(codes("From a connection"), self.texts_of("NSCocoaErrorDomain"))

    def test_of_the_layer_over_the_client(self):
        table = rows("errors.md", "From Input.h and its relatives")
        found = re.findall(r"^  (\w+) = (\d+),  +///<", read("WLHIDAccess/InputWords.h"), flags=re.M)
        found += re.findall(r"^  (WLHID_\w+) = (\d+)", read("c/wlhid.h").split("wlhid_code;")[0], flags=re.M)
        names = {(int(code), name) for name, code in found}
        self.assertGreaterEqual(len(names), 17)
        self.assertEqual({(int(row[0]), row[1].strip("`")) for row in table}, names)

    def test_no_domain_is_missing(self):
        domains = set(re.findall(r"Entry{\s*(\w+),", self.texts))
        self.assertEqual(domains, {"kRouter", "kServices", "NSOSStatusErrorDomain", "NSCocoaErrorDomain"})

    def test_each_check_of_doctor(self):
        found = set()
        for name in ("Diagnosis", "SystemChecks"):
            text = read(f"tool/findings/{name}.cpp")
            found |= set(re.findall(r'(?:passed|failed|notAsked|replaceable)\(\s*"([^"]+)"', text))
            found |= set(re.findall(r'\bname = "([^"]+)"', text))
            found |= set(re.findall(r'isOrdinary \? "(\w+)" : "(\w+)"', text)[0]) if "isOrdinary ?" in text else set()
        found = {"job LABEL" if name == "job " else name for name in found}
        self.assertGreater(len(found), 14)
        self.assertEqual({row[0] for row in rows("errors.md", "What wlhid doctor finds")}, found)


class States(unittest.TestCase):
    def enumerators(self, header, name):
        body = re.search(rf"enum class {name}[^{{]*{{(.*?)}};", read(header), flags=re.S).group(1)
        return re.findall(r"^\s+(\w+)(?: = \d+)?,", body, flags=re.M)

    def test_each_has_its_row(self):
        client = [name.removeprefix("WLHIDEventRouterClientStatus") for name in
                  self.enumerators("WLHIDAccess/WLHIDEventRouterClientDelegate.h", "WLHIDEventRouterClientStatus")]
        found = [re.match(r"\d `(\w+)`", row[0]) for row in rows("states.md", "The client")]
        self.assertEqual([match.group(1) for match in found if match], client)
        states = self.enumerators("WLHIDAccess/Input.h", "InputState")
        self.assertEqual([row[0].strip("`") for row in rows("states.md", "The Input")][1:], states)
        for name in states:
            self.assertIn(f'"{name}"', read("docs/pictures/draw.py"))
        for number, name in enumerate(client):
            self.assertIn(f'"{number} {name}"', read("docs/pictures/draw.py"))


class Version(unittest.TestCase):
    """The one place is CMakeLists.txt. What cannot take the version from there repeats it."""

    def test_is_the_same_wherever_it_is_written_down(self):
        version = re.search(r"project\(WLHIDAccess VERSION ([\d.]+)", read("CMakeLists.txt")).group(1)
        self.assertIn(f'\nversion = "{version}"\n', read("python/pyproject.toml"))
        self.assertIn(f'"{version}" */\nconst char* wlhid_version(void);', read("c/wlhid.h"))
        self.assertTrue(read("debian/changelog").startswith(f"wlhidaccess ({version})"))
        self.assertIn(re.search(r"^## (.*)$", read("CHANGELOG.md"), flags=re.M).group(1), ("Unreleased", version))
        packages = re.findall(r"[a-z0-9-]+_([\d.]+)_amd64\.deb", read("README.md"))
        self.assertEqual(set(packages), {version})


class Pictures(unittest.TestCase):
    def test_are_those_that_the_script_draws(self):
        with tempfile.TemporaryDirectory() as directory:
            subprocess.run([sys.executable, str(SOURCE / "docs/pictures/draw.py"), directory], check=True)
            drawn = {file.name: file.read_bytes() for file in pathlib.Path(directory).iterdir()}
        shown = {name: (SOURCE / "docs/pictures" / name).read_bytes() for name in drawn}
        self.assertEqual(len(drawn), 3)
        self.assertEqual(drawn, shown, "run docs/pictures/draw.py")


if __name__ == "__main__":
    SOURCE, BUILD, COMPILER = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]), sys.argv[3]
    unittest.main(argv=sys.argv[:1], verbosity=2)
