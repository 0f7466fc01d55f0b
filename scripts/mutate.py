#!/usr/bin/env python3
"""Changes the driver in one place at a time, builds it and runs the tests: a change that no test sees is told.

    scripts/mutate.py [--count N] [--seed N] [--only PATTERN]

It works on copies of HEAD in build/mutate, as many as there are processors. The tests run in a sandbox: nobody knows what
files a changed driver removes. A change whose object file is the same as before changes nothing and is not counted; nor
is one that does not compile. A minute gives a few changes, so the count is a sample of all places; the seed makes it the
same sample again.
"""

import argparse
import hashlib
import os
import random
import re
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from queue import Queue

FOLDERS = ("api", "command", "device", "image", "print", "scan", "status", "stripe")
# What stands there, and what is put in its place.
OPERATORS = [
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "), (r" == ", " != "), (r" != ", " == "),
    (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "), (r" \* ", " / "), (r" / ", " * "),
    (r" \+= ", " -= "), (r" << ", " >> "), (r" >> ", " << "), (r" & ", " | "), (r" \| ", " & "),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"(?<![\w.])0(?![\w.'])", "1"), (r"(?<![\w.])1(?![\w.'])", "2"),
    (r"(?<![\w.'])([2-9]\d*|1\d+)(?![\w.'])", r"(\1 + 1)"), (r"\bif \((?!constexpr)(.*)\)$", r"if (!(\1))"),
    (r"\bif \((?!constexpr)(.*)\) (return.*;)$", r"if (!(\1)) \2"),
    # A whole statement is left out: an assignment or a call.
    (r"^(\s+)(?!return|const|static|using|delete|throw|else|case|break|continue|[\w:<>*&]+ [\w]+( =|[({;]))[\w(*].*\);$", r"\1;"),
]
# The quick tests first; those that print whole pages only if these see nothing.
TARGETS = ("passbook_tests", "sweep_tests", "usb_tests", "passbook_fuzz_replay")
PAGES = r"^Page\."
STAGES = (["-E", PAGES + "|^[a-z]"], ["-R", "^(usb|fuzz_replay)$"], ["-R", PAGES])


@dataclass(frozen=True)
class Change:
    file: str
    line: int
    before: str
    after: str


def code_lines(text: str) -> list[str]:
    """The lines without comments and strings' contents, so that only code is changed; what is no code becomes empty."""
    lines = []
    for line in text.splitlines():
        bare = re.sub(r"//.*", "", line)
        no_code = bare.lstrip().startswith(("#", "/*", "*")) or re.search(r"static_assert|prefetch|\"", bare)
        lines.append("" if no_code else bare)
    return lines


def changes(root: Path) -> list[Change]:
    found = []
    for folder in FOLDERS:
        for file in sorted((root / folder).glob("*.cpp")):
            for number, line in enumerate(code_lines(file.read_text()), 1):
                for pattern, replacement in OPERATORS:
                    for match in re.finditer(pattern, line):
                        after = line[: match.start()] + match.expand(replacement) + line[match.end() :]
                        if after.rstrip() != line.rstrip():
                            found.append(Change(str(file.relative_to(root)), number, line, after))
    return sorted(set(found), key=lambda change: (change.file, change.line, change.after))


class Copy:
    """A copy of HEAD with a build of its own."""

    def __init__(self, root: Path, where: Path, files: set[str]):
        self.where, self.build = where, where / "build"
        where.mkdir(parents=True)
        archive = subprocess.run(["git", "-C", root, "archive", "HEAD"], check=True, stdout=subprocess.PIPE).stdout
        subprocess.run(["tar", "-x", "-C", where], input=archive, check=True)
        self.run("cmake", "-S", str(where), "-B", str(self.build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                 "-DCMAKE_CXX_FLAGS=-O1", "-DCMAKE_C_FLAGS=-O1", check=True)
        self.make(check=True)
        self.objects = {file: self.object_of(file) for file in files}
        for stage in STAGES:
            if not self.passes(stage):
                sys.exit(f"mutate: {' '.join(stage)} fails before anything is changed")

    def run(self, *command: str, check: bool = False) -> bool:
        done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE if check else subprocess.DEVNULL)
        if check and done.returncode:
            sys.exit(f"mutate: {' '.join(command)}\n{done.stderr.decode()}")
        return done.returncode == 0

    def make(self, check: bool = False) -> bool:
        return self.run("ninja", "-C", str(self.build), *TARGETS, check=check)

    def passes(self, stage: list[str]) -> bool:
        """A test that hangs has seen the change, too."""
        sandbox = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp",
                   "--bind", str(self.build), str(self.build), "--unshare-all", "--die-with-parent"]
        try:
            return subprocess.run([*sandbox, "ctest", "--test-dir", str(self.build), "--stop-on-failure", *stage],
                                  timeout=100, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def object_of(self, file: str) -> bytes:
        folder, name = file.split("/", 1)
        path = self.build / folder / "CMakeFiles" / f"passbook_{folder}.dir" / f"{name}.o"
        return hashlib.sha256(path.read_bytes()).digest()

    def try_change(self, change: Change) -> str:
        path = self.where / change.file
        text = path.read_text()
        lines = text.splitlines(keepends=True)
        lines[change.line - 1] = change.after.rstrip() + "\n"
        path.write_text("".join(lines))
        try:
            if not self.make():
                return "does not compile"
            if self.object_of(change.file) == self.objects[change.file]:
                return "same"
            return "survived" if all(self.passes(stage) for stage in STAGES) else "killed"
        finally:
            path.write_text(text)  # newer than its object: the next build makes that again


def main() -> int:
    options = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    options.add_argument("--count", type=int, default=200, help="so many changes (200)")
    options.add_argument("--seed", type=int, default=1, help="which ones (1)")
    options.add_argument("--only", default="", help="only places such as file.cpp:12 that match this pattern")
    options.add_argument("--jobs", type=int, default=os.cpu_count() or 1, help="so many at once (all processors)")
    given = options.parse_args()

    root = Path(__file__).resolve().parents[1]
    subprocess.run([root / "scripts/setup.sh", "mutate"], check=True)
    every = [change for change in changes(root) if re.search(given.only, f"{change.file}:{change.line}")]
    chosen = random.Random(given.seed).sample(every, min(given.count, len(every)))
    print(f"mutate: {len(chosen)} of {len(every)} changes, seed {given.seed}", flush=True)
    told: dict[str, int] = {}
    below = root / "build/mutate"
    shutil.rmtree(below, ignore_errors=True)
    try:
        copies: Queue[Copy] = Queue()
        for number in range(given.jobs):
            copies.put(Copy(root, below / str(number), {change.file for change in chosen}))

        def work(change: Change) -> None:
            copy = copies.get()
            try:
                result = copy.try_change(change)
            finally:
                copies.put(copy)
            told[result] = told.get(result, 0) + 1
            if sum(told.values()) % 10 == 0:
                print(f"mutate: {told}", flush=True)
            if result == "survived":
                print(f"{change.file}:{change.line}\n  -{change.before.strip()}\n  +{change.after.strip()}", flush=True)

        with ThreadPoolExecutor(given.jobs) as pool:
            list(pool.map(work, chosen))
    finally:
        shutil.rmtree(below, ignore_errors=True)
    killed, survived = told.get("killed", 0), told.get("survived", 0)
    print(f"mutate: {killed} seen, {survived} not seen: {100 * killed / max(1, killed + survived):.1f} %; not counted: "
          f"{told.get('same', 0)} without effect, {told.get('does not compile', 0)} that do not compile")
    return 0


if __name__ == "__main__":
    sys.exit(main())
