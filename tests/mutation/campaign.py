# SPDX-License-Identifier: Apache-2.0

"""Makes mechanical mistakes at random lines, one at a time, and reports which the tests do not catch.

Everything happens in a copy of the tree with its own build folder; the checkout is only read. The copy is brought up to
date at each start, so a run may be killed at any moment.
"""

import argparse
import ctypes
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from mistakes import mistakes_in

PRODUCT = ("WLHIDAccess/", "c/", "diagnostics/", "helper-install/", "input/", "jobd/", "platform/", "router-client/",
           "router/", "testkit/", "tool/")
LABELS = ("unit", "fuzz", "contract", "conformance", "integration", "end-to-end", "stress")  # fastest kinds first
PR_SET_CHILD_SUBREAPER = 36


class Tree:
    """The copy."""

    def __init__(self, source, copy):
        self.source, self.copy = Path(source), Path(copy)
        listed = subprocess.check_output(["git", "-C", source, "ls-files", "-z"], text=True)
        self.files = sorted(name for name in listed.split("\0") if name and (self.source / name).is_file())

    def bring_up_to_date(self):
        """Touches only files that differ, to keep the next build short. Returns a hash of the state."""
        state = hashlib.sha256()
        for name in self.files:
            content, target = (self.source / name).read_bytes(), self.copy / name
            state.update(name.encode() + b"\0" + hashlib.sha256(content).digest())
            if not target.is_file() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
            target.chmod((self.source / name).stat().st_mode & 0o777)
        wanted = set(self.files)
        for path in [p for p in self.copy.rglob("*") if p.is_file() or p.is_symlink()]:
            if str(path.relative_to(self.copy)) not in wanted:
                path.unlink()
        return state.hexdigest()


class Test:
    def __init__(self, name, label, limit, environment, command):
        self.name, self.label, self.limit = name, label, limit
        self.environment, self.command = environment, command
        self.reached = set()  # the sources compiled into it or into programs that it starts
        self.seconds = 0.0

    def folder(self):
        return os.path.basename(os.path.dirname(self.command[0]))

    def breadth(self):
        return sum(name.startswith(PRODUCT) for name in self.reached)


class Build:
    def __init__(self, tree, folder):
        self.tree, self.folder = tree, Path(folder)
        self.process = None

    def run(self, command, log, limit=None, environment=None):
        """The exit status; None on a timeout. All processes that it started are gone afterwards."""
        with open(log, "wb") as out:
            self.process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                            cwd=self.folder, env=environment, start_new_session=True)
            try:
                return self.process.wait(limit)
            except subprocess.TimeoutExpired:
                return None
            finally:
                self.end_processes()

    def end_processes(self):
        """Ends the process group that was started and the orphans that we inherited from it."""
        if self.process is None:
            return
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        self.process = None
        own = Path(f"/proc/{os.getpid()}/task/{os.getpid()}/children")
        while orphans := own.read_text().split():
            for each in orphans:
                try:
                    os.kill(int(each), signal.SIGKILL)
                    os.waitpid(int(each), 0)
                except (ProcessLookupError, ChildProcessError):
                    pass

    def configure(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        command = ["cmake", "-S", str(self.tree.copy), "-B", str(self.folder), "-G", "Ninja", "-DWLHID_WERROR=OFF",
                   "-DWLHID_BENCH=OFF", "-DCMAKE_CXX_FLAGS=-O0 -w"]
        if shutil.which("ccache"):
            command.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        if shutil.which("ld.lld"):
            command.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld")
        if self.run(command, self.folder.parent / "configure.log") != 0:
            sys.exit(f"cmake failed; its output is in {self.folder.parent / 'configure.log'}")

    def make(self, targets, log="build.log"):
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count())
        return self.run(["ninja", "-j", jobs, *targets], self.folder.parent / log) == 0

    def ask_ninja(self, *arguments):
        return subprocess.run(["ninja", *arguments], cwd=self.folder, text=True, capture_output=True).stdout.splitlines()

    def tests(self):
        """The test programs with the sources compiled into them, from ctest and ninja."""
        listed = json.loads(subprocess.check_output(["ctest", "--show-only=json-v1"], cwd=self.folder))
        targets = {line.split(":")[0] for line in self.ask_ninja("-t", "targets", "all")}
        for each in listed["tests"]:
            properties = {p["name"]: p["value"] for p in each["properties"]}
            label = (properties.get("LABELS") or [""])[0]
            name = each["name"]
            target = name.removesuffix("_replay") if label == "fuzz" else name
            if label not in LABELS or target not in targets:
                continue
            program = next(line.strip() for line in self.ask_ninja("-t", "query", target)[2:3])
            # A program in the build folder itself has the target's own name.
            command = [str(self.folder / (target if program.endswith(".o") else program))]
            if label == "stress":
                command.append("short")
            if label == "fuzz":
                command.append(str(self.tree.copy / "fuzz/corpus" / target.removeprefix("fuzz_")))
            environment = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))
            test = Test(target, label, properties.get("TIMEOUT", 300), environment, command)
            test.reached = set(self.sources_of(self.ask_ninja("-t", "inputs", target)))
            yield test

    def sources_of(self, inputs):
        root = str(self.tree.copy.resolve()) + "/"
        for each in inputs:
            path = os.path.normpath(os.path.join(self.folder.resolve(), each.strip()))
            if path.startswith(root):
                yield path.removeprefix(root)

    def headers(self):
        """For each header the sources that include it, from the compiler's dependency files."""
        including, sources = {}, []
        for line in self.ask_ninja("-t", "deps"):
            if line and not line.startswith(" "):
                sources = []
            elif line:
                name = next(self.sources_of([line]), None)
                if name is None:
                    continue
                if name.endswith(".cpp"):
                    sources.append(name)
                for source in sources:
                    including.setdefault(name, set()).add(source)
        return including


class Campaign:
    def __init__(self, options):
        self.options = options
        self.out = Path(options.source) / "out/mutation/random"
        self.tree = Tree(options.source, self.out / "tree")
        self.build = Build(self.tree, self.out / "build")
        self.scratch = tempfile.mkdtemp(prefix="wlhid-mutation-")
        os.chmod(self.scratch, 0o755)  # for tests that act as another user

    # --- which tests

    def prepare(self):
        state = self.tree.bring_up_to_date()
        self.build.configure()
        tests = [t for t in self.build.tests() if not self.options.label or t.label in self.options.label]
        wanted = {t for name in self.files_with_mistakes() for t in self.nearest(tests, self.sources_near(name))}
        reached = [t for t in tests if t in wanted]
        print(f"building {len(reached)} test programs", flush=True)
        if not self.build.make([t.name for t in reached]):
            sys.exit(f"the tests do not build; see {self.out / 'build.log'}")
        self.including = self.build.headers()
        self.tests = self.measured(reached, state)

    def sources_near(self, name):
        """The file, and for a header its whole folder: before the build nobody knows who includes it."""
        if not name.endswith(".h"):
            return {name}
        return {each for each in self.tree.files if os.path.dirname(each) == os.path.dirname(name)}

    def nearest(self, tests, sources):
        """Tests in a folder of the same name first; then the fastest kinds, and of these the ones that contain the
        fewest other sources of the product."""
        folders = {os.path.basename(os.path.dirname(each)) for each in sources}
        reached = [t for t in tests if t.reached & sources]
        reached.sort(key=lambda t: (t.folder() not in folders, LABELS.index(t.label), t.breadth(), t.seconds))
        return reached[: self.options.programs]

    def measured(self, tests, state):
        """Tests that pass on the unchanged tree within the time limit. Results for the same state are reused."""
        record = self.out / "durations.json"
        known = json.loads(record.read_text()) if record.is_file() else {}
        known = known.get(state, {})
        kept = []
        for test in tests:
            if known.get(test.name) is None:
                began = time.monotonic()
                status, _ = self.run_test(test, self.options.seconds)
                if status not in (0, None):
                    sys.exit(f"{test.name} fails before anything is changed; see {self.out / 'test.log'}")
                known[test.name] = None if status is None else time.monotonic() - began
                record.write_text(json.dumps({state: known}))
            if known[test.name] is None:
                print(f"skipped: {test.name} takes longer than {self.options.seconds} s", flush=True)
                continue
            test.seconds = known[test.name]
            kept.append(test)
        return kept

    def tests_of(self, name):
        return self.nearest(self.tests, {name} | self.including.get(name, set()))

    # --- one mistake

    def run_test(self, test, limit):
        for left in Path(self.scratch).iterdir():
            shutil.rmtree(left, ignore_errors=True)
        environment = {**os.environ, **test.environment, "TMPDIR": self.scratch, "GTEST_FAIL_FAST": "1"}
        log = self.out / "test.log"
        status = self.build.run(test.command, log, limit, environment)
        return status, log

    def first_to_notice(self, name):
        """A test's name; None if none catches it, False if it does not compile."""
        spent, tests = 0.0, self.tests_of(name)
        for number, test in enumerate(tests):
            if spent > self.options.seconds:
                return None, f"{number} of {len(tests)} programs run"
            if not self.build.make([test.name], "compile.log"):
                return False, ""
            began = time.monotonic()
            limit = min(test.limit, max(10.0, 5 * test.seconds))
            status, log = self.run_test(test, limit)
            spent += time.monotonic() - began
            if status != 0:
                return self.name_in(log, test, status), ""
        return None, f"all {len(tests)} programs run"

    @staticmethod
    def name_in(log, test, status):
        text = log.read_text(errors="replace")
        failed = re.search(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", text, re.MULTILINE)
        running = re.findall(r"^\[ RUN      \] ([\w/.]+)", text, re.MULTILINE)
        if failed and status is not None:
            return failed.group(1)
        how = "hung" if status is None else "ended"
        return f"{running[-1] if running else test.name} ({how})"

    # --- the sequence

    def files_with_mistakes(self):
        folders = self.options.folders or PRODUCT
        chosen = [n for n in self.tree.files
                  if n.endswith((".cpp", ".h")) and n.startswith(PRODUCT)
                  and any(n == f or n.startswith(f if f.endswith("/") else f + "/") or
                          (not os.path.isdir(self.tree.source / f) and n.startswith(f)) for f in folders)]
        if not chosen:
            sys.exit("no source of the product in: " + " ".join(folders))
        return chosen

    def sequence(self):
        """Deterministic for a seed, tree and folders: first a line is chosen, then one of its mistakes."""
        lines = {}
        for name in self.files_with_mistakes():
            text = (self.tree.copy / name).read_text()
            for mistake in mistakes_in(text):
                lines.setdefault((name, mistake.line_of(text)), []).append(mistake)
        chooser = random.Random(self.options.seed)
        order = sorted(lines)
        chooser.shuffle(order)
        for place in order:
            yield (*place, chooser.choice(lines[place]))

    def run(self):
        made = caught = survived = 0
        self.prepare()
        number = 0
        for number, (name, line, mistake) in enumerate(self.sequence(), 1):
            if number < self.options.start:
                continue
            if made == self.options.count:
                number -= 1
                break
            by, remark = self.try_one(name, mistake)
            if by is False:
                continue
            made += 1
            caught += by is not None
            survived += by is None
            self.show(number, name, line, mistake, by, remark)
        print(f"seed {self.options.seed}, up to number {number}: {made} made, {caught} caught, {survived} survived")
        return survived == 0

    def try_one(self, name, mistake):
        target = self.tree.copy / name
        text = target.read_text()
        try:
            target.write_text(mistake.made_in(text))
            return self.first_to_notice(name)
        finally:
            target.write_text(text)

    def show(self, number, name, line, mistake, by, remark):
        print(f"{number:4d}  {name}:{line}: {mistake.kind}: {by or 'SURVIVED, ' + remark}")
        if by is None:
            text = (self.tree.copy / name).read_text()
            start = text.rfind("\n", 0, mistake.start) + 1
            end = text.find("\n", mistake.end)
            print("      - " + text[start:end].strip().replace("\n", "\n        "))
            changed = text[start : mistake.start] + mistake.new + text[mistake.end : end]
            print("      + " + changed.strip().replace("\n", "\n        "))
        sys.stdout.flush()

    def clean_up(self):
        self.build.end_processes()
        shutil.rmtree(self.scratch, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(add_help=False, allow_abbrev=False, prog="scripts/mutation")
    parser.add_argument("--source", required=True)
    parser.add_argument("--random", dest="count", type=int, required=True)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--from", dest="start", type=int, default=1)
    parser.add_argument("--in", dest="folders", action="append")
    parser.add_argument("--programs", type=int, default=20)
    parser.add_argument("--seconds", type=float, default=240)
    parser.add_argument("--label", action="append", choices=LABELS)
    campaign = Campaign(parser.parse_args())
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    for each in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(each, lambda *_: sys.exit(130))
    print(f"seed {campaign.options.seed}", flush=True)
    try:
        return 0 if campaign.run() else 1
    except KeyboardInterrupt:
        return 130
    finally:
        campaign.clean_up()


if __name__ == "__main__":
    sys.exit(main())
