#!/usr/bin/env python3
"""Seeded mutation testing of the object-storage client and the upload engine.

Picks mutation sites in src/oss/*.cpp and src/VODUpload/src/*.cpp (a flipped comparison, a dropped
statement, an integer constant moved by one or set to zero), applies them one at a time to the working
tree, rebuilds only the test programs that link the mutated library (in their own build directory) and
runs those suites, stopping at the first failure. The source is always written back from the bytes kept
before the change. The same seed on the same tree gives the same mutants, so two runs (say, before and
after a change to the tests) are compared mutant by mutant.

    nice -n 10 scripts/mutation_test.py [--seed 20261126] [--count 40] [--build-dir build-mut]
    scripts/mutation_test.py --list            # the mutants only, without building
    scripts/mutation_test.py --only 3,17       # rerun some of them (numbers as printed)
    scripts/mutation_test.py --hint before.txt # try each mutant's earlier killer first

With --hint (the output of an earlier run), a mutant that an earlier run saw killed is first built into
the one program holding that test, which runs alone; only if it passes does the whole suite run. The
verdict is the same (a mutant is killed when any test fails); it only comes sooner.

A mutant that does not compile is "stillborn" and is replaced by the next candidate, so the total counts
compiled mutants only. Set CCACHE_BASEDIR for compiler-cache hits across build directories.
"""
import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# The suite label of each test program, and what must be built to run it.
LABEL_TARGETS = {"oss": ["oss_tests"], "engine": ["engine_tests", "engine_upload_child"],
                 "svideo": ["svideo_tests"], "vodapi": ["vodapi_tests"]}
LIBRARIES = {
    # folder -> (test programs that link it, ctest labels of their suites)
    "src/oss": (["oss_tests", "engine_tests", "engine_upload_child", "svideo_tests", "vodapi_tests"],
                ["oss", "engine", "svideo", "vodapi"]),
    "src/VODUpload/src": (["engine_tests", "engine_upload_child", "svideo_tests", "vodapi_tests"],
                          ["engine", "svideo", "vodapi"]),
}
# The telemetry classes have their own suite (tests/telemetry), not one of those run here.
SKIPPED_PREFIX = "AVCV"
# A dropped log call changes no behaviour these suites observe; it would only add equivalent mutants.
LOG_CALL = re.compile(r"^\s*(vodLog\w*|ossLog\w*|OSSLog\w*)\(")
FLIPS = {"<": ">=", ">=": "<", ">": "<=", "<=": ">", "==": "!=", "!=": "=="}
COMPARISON = re.compile(r"(?<=[\w)\]] )(<=|>=|==|!=|<|>)(?= [\w(!*&-])")
INTEGER = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
STRING_OR_CHAR = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'')
NOT_DROPPABLE = re.compile(r"^\s*(return|break|continue|case|default|using|typedef|namespace|template|static_assert"
                           r"|[A-Za-z_][\w:<>,\s*&]*\s[*&]?\w+\s*(=|\{|\(|;))")


class Mutant:
    def __init__(self, path, line, kind, before, after):
        self.path, self.line, self.kind, self.before, self.after = path, line, kind, before, after

    def describe(self):
        return f"{self.path}:{self.line} {self.kind} {self.before.strip()!r} -> {self.after.strip()!r}"


def code_part(line):
    """The line with string and character literals blanked and any // comment cut, same length."""
    blanked = STRING_OR_CHAR.sub(lambda m: '"' + " " * (len(m.group()) - 2) + '"', line)
    cut = blanked.find("//")
    return blanked if cut < 0 else blanked[:cut] + " " * (len(blanked) - cut)


def candidates(root):
    found = []
    for folder in LIBRARIES:
        for path in sorted((root / folder).glob("*.cpp")):
            rel = path.relative_to(root).as_posix()
            if path.name.startswith(SKIPPED_PREFIX):
                continue
            in_block_comment = False
            for number, line in enumerate(path.read_text().splitlines(keepends=True), start=1):
                stripped = line.strip()
                if in_block_comment:
                    in_block_comment = "*/" not in stripped
                    continue
                if stripped.startswith("/*"):
                    in_block_comment = "*/" not in stripped
                    continue
                if not stripped or stripped.startswith(("//", "#", "*")):
                    continue
                code = code_part(line)
                for m in COMPARISON.finditer(code):
                    op = m.group(1)
                    after = line[:m.start()] + FLIPS[op] + line[m.end():]
                    found.append(Mutant(rel, number, f"flip {op}", line, after))
                for m in INTEGER.finditer(code):
                    value = int(m.group(1))
                    for new in sorted({value + 1, value - 1, 0} - {value}):
                        if new < 0:
                            continue
                        after = line[:m.start()] + str(new) + line[m.end():]
                        found.append(Mutant(rel, number, f"constant {value}->{new}", line, after))
                if (stripped.endswith(";") and code.count("(") == code.count(")") and "{" not in code
                        and "}" not in code and not NOT_DROPPABLE.match(code) and not LOG_CALL.match(code)):
                    indent = line[:len(line) - len(line.lstrip())]
                    found.append(Mutant(rel, number, "drop statement", line, indent + ";\n"))
    return found


def run(cmd, timeout=None, log=None):
    proc = subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=timeout)
    if log is not None:
        log.write(f"$ {' '.join(cmd)}\n{proc.stdout}\n")
    return proc


def configure(build_dir, build_type):
    if (build_dir / "build.ninja").exists():
        return
    cmd = ["cmake", "-S", str(ROOT), "-B", str(build_dir), "-G", "Ninja", f"-DCMAKE_BUILD_TYPE={build_type}",
           "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    # Every mutant relinks four test programs: lld does that in a fraction of the default linker's time.
    if shutil.which("ld.lld"):
        cmd.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld")
    if run(cmd).returncode != 0:
        sys.exit("configure failed")


def build(build_dir, targets, jobs, log):
    cmd = ["cmake", "--build", str(build_dir), "--target", *targets, f"-j{jobs}"]
    return run(cmd, log=log).returncode == 0


def first_failure(output):
    m = re.search(r"\d+/\d+ Test\s+#\d+: (\S+) \.+\*+(\w+)", output)
    return f"{m.group(1)} ({m.group(2).lower()})" if m else "suite failed"


def test(build_dir, labels, jobs, timeout, log):
    cmd = ["ctest", "--test-dir", str(build_dir), "-L", "^(" + "|".join(labels) + ")$", "--stop-on-failure",
           "--output-on-failure", "--timeout", str(timeout), f"-j{jobs}"]
    # A run that fails without naming a test (a test program too slow to list its tests on a loaded
    # machine) says nothing of the mutant: it runs once more.
    for _ in range(2):
        proc = run(cmd, log=log)
        failure = first_failure(proc.stdout)
        if proc.returncode == 0 or failure != "suite failed":
            break
    return proc.returncode == 0, failure


def read_hints(path):
    """Mutant description -> the test that killed it, from an earlier run's output."""
    hints = {}
    if path:
        for line in Path(path).read_text().splitlines():
            m = re.match(r"\s*\d+ (.*): killed by (\S+) \(", line)
            if m:
                hints[m.group(1)] = m.group(2)
    return hints


def label_of_tests(build_dir, labels):
    """Test name -> suite label, as ctest lists them."""
    owner = {}
    for label in labels:
        proc = run(["ctest", "--test-dir", str(build_dir), "-L", f"^{label}$", "-N"])
        for m in re.finditer(r"Test\s+#\d+: (\S+)", proc.stdout):
            owner[m.group(1)] = label
    return owner


def hinted_kill(build_dir, hint, owner, jobs, timeout, log):
    """Whether the earlier killer alone fails again (its program is the only one built)."""
    label = owner.get(hint)
    if label is None or not build(build_dir, LABEL_TARGETS[label], jobs, log):
        return False
    cmd = ["ctest", "--test-dir", str(build_dir), "-R", "^" + re.escape(hint) + "$", "--timeout", str(timeout)]
    proc = run(cmd, log=log)
    return proc.returncode != 0 and "No tests were found" not in proc.stdout


def folder_of(mutant):
    return next(f for f in LIBRARIES if mutant.path.startswith(f + "/"))


class SourceGuard:
    """Keeps the original bytes of the file being mutated and writes them back, also on a signal."""

    def __init__(self):
        self.path, self.original = None, None
        for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(sig, self._on_signal)

    def apply(self, mutant):
        self.path = ROOT / mutant.path
        self.original = self.path.read_bytes()
        lines = self.original.decode().splitlines(keepends=True)
        assert lines[mutant.line - 1] == mutant.before, f"{mutant.describe()}: the tree changed"
        lines[mutant.line - 1] = mutant.after
        self.path.write_bytes("".join(lines).encode())

    def restore(self):
        if self.path is not None:
            self.path.write_bytes(self.original)
            self.path, self.original = None, None

    def _on_signal(self, signum, _frame):
        self.restore()
        sys.exit(128 + signum)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", type=int, default=20261126)
    parser.add_argument("--count", type=int, default=40)
    parser.add_argument("--build-dir", default="build-mut")
    parser.add_argument("--build-type", default="RelWithDebInfo")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--timeout", type=int, default=60, help="seconds per test")
    parser.add_argument("--list", action="store_true", help="print the mutants without building")
    parser.add_argument("--only", help="comma-separated mutant numbers to run")
    parser.add_argument("--hint", help="an earlier run's output: try each mutant's killer first")
    args = parser.parse_args()

    sequence = candidates(ROOT)
    random.Random(args.seed).shuffle(sequence)
    print(f"seed {args.seed}: {len(sequence)} candidate sites", flush=True)
    if args.list:
        for index, mutant in enumerate(sequence[:args.count], start=1):
            print(f"{index:3d} {mutant.describe()}")
        return 0

    build_dir = (ROOT / args.build_dir).resolve()
    configure(build_dir, args.build_type)
    all_targets = sorted({t for targets, _ in LIBRARIES.values() for t in targets})
    with open(build_dir / "mutation.log", "w") as log:
        if not build(build_dir, all_targets, args.jobs, log):
            sys.exit("the unmutated tree does not build")
        wanted = {int(n) for n in args.only.split(",")} if args.only else None
        hints = read_hints(args.hint)
        owner = label_of_tests(build_dir, LABEL_TARGETS) if args.hint else {}
        guard = SourceGuard()
        killed = compiled = 0
        survivors = []
        started = time.monotonic()
        for mutant in sequence:
            if compiled >= args.count:
                break
            if wanted is not None and compiled + 1 > max(wanted):
                break
            targets, labels = LIBRARIES[folder_of(mutant)]
            guard.apply(mutant)
            try:
                if args.hint:  # the earlier run may still be going: read what it has found so far
                    hints = read_hints(args.hint)
                hint = hints.get(mutant.describe())
                if hint and wanted is None and hinted_kill(build_dir, hint, owner, args.jobs, args.timeout, log):
                    compiled += 1
                    killed += 1
                    print(f"{compiled:3d} {mutant.describe()}: killed by {hint} (failed)", flush=True)
                    continue
                if not build(build_dir, targets, args.jobs, log):
                    print(f"  - {mutant.describe()}: stillborn", flush=True)
                    continue
                compiled += 1
                if wanted is not None and compiled not in wanted:
                    print(f"{compiled:3d} {mutant.describe()}: skipped", flush=True)
                    continue
                passed, failure = test(build_dir, labels, args.jobs, args.timeout, log)
            finally:
                guard.restore()
            if passed:
                survivors.append(f"{compiled:3d} {mutant.describe()}")
                print(f"{compiled:3d} {mutant.describe()}: survived", flush=True)
            else:
                killed += 1
                print(f"{compiled:3d} {mutant.describe()}: killed by {failure}", flush=True)
        ran = len(wanted) if wanted is not None else compiled
        minutes = (time.monotonic() - started) / 60
        print(f"killed {killed}/{ran} ({minutes:.1f} min)")
        if survivors:
            print("survivors:\n" + "\n".join(survivors))
        # Leave the test programs built from the restored tree.
        build(build_dir, all_targets, args.jobs, log)
    return 0


if __name__ == "__main__":
    sys.exit(main())
