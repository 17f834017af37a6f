"""Puts the faults of the lists beside this file into a copy of the library, one at a time, and tells
which tests notice. Run by scripts/mutate.

A list is a text of paragraphs. The first names the source and the tests that cover it, each further
one is a fault, as in a diff: lines that begin with "-" are replaced by those with "+", lines with a
blank only say where that is. They must occur exactly once in the source.

    source src/multilib/audioUtils/detail/ByteRing.h
    tests kelda-audioUtils-tests ByteRing*:PcmQueueTest*

    fault wraps-one-too-late
    -        return index >= m_capacity ? index - m_capacity : index;
    +        return index > m_capacity ? index - m_capacity : index;

"survives" instead of "fault" marks one that no test can notice; docs/mutations.md tells why.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field
from itertools import groupby
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LISTS = ROOT / "tests" / "mutations"
EXPLANATIONS = ROOT / "docs" / "mutations.md"
WORK = ROOT / "build-mutation"

# Faults may leave a name unused. Nothing is measured or debugged here, so compiling counts.
CMAKE_OPTIONS = [
    "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1",
    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DKELDA_WARNINGS_AS_ERRORS=OFF",
    "-DKELDA_BUILD_APPS=OFF", "-DKELDA_BUILD_EXAMPLES=OFF", "-DKELDA_BUILD_BENCHMARKS=OFF",
]  # fmt: skip


class Stale(Exception):
    """A list that does not fit the sources, or a build that should have worked."""


@dataclass(frozen=True)
class Tests:
    program: str
    filter: str


@dataclass
class Fault:
    group: str  # the list's name
    name: str
    source: str
    tests: list[Tests]
    explained: bool
    before: str = ""
    after: str = ""

    @property
    def id(self) -> str:
        return f"{self.group}/{self.name}"


@dataclass
class FaultList:
    group: str
    source: str = ""
    tests: list[Tests] = field(default_factory=list)
    faults: list[Fault] = field(default_factory=list)

    def read(self, line: str) -> None:
        word, _, rest = line.partition(" ")
        if line[:1] in ("-", " ", "+") and self.faults:
            fault = self.faults[-1]
            if line[0] != "+":
                fault.before += line[1:] + "\n"
            if line[0] != "-":
                fault.after += line[1:] + "\n"
        elif word in ("fault", "survives"):
            self.faults.append(Fault(self.group, rest, self.source, self.tests, word == "survives"))
        elif word == "source":
            self.source = rest
        elif word == "tests":
            self.tests.append(Tests(*rest.split(" ", 1)))
        elif line and not line.startswith("#"):
            raise Stale(f"{self.group}: not understood: {line}")


def read_lists() -> list[Fault]:
    faults: list[Fault] = []
    for path in sorted(LISTS.glob("*.txt")):
        fault_list = FaultList(path.stem)
        for line in path.read_text().splitlines():
            fault_list.read(line)
        faults += fault_list.faults
    return faults


def faulty(fault: Fault) -> str:
    """The source with the fault."""
    text = (ROOT / fault.source).read_text()
    count = len(re.findall(r"^" + re.escape(fault.before), text, re.MULTILINE))
    if count != 1 or fault.before == fault.after:
        raise Stale(f"{fault.id}: its lines occur {count} times in {fault.source}, or don't change")
    return text.replace("\n" + fault.before, "\n" + fault.after, 1)


def check(faults: list[Fault]) -> None:
    """Every fault fits its source, no name comes twice, and what survives is explained."""
    for fault in faults:
        faulty(fault)
    ids = [fault.id for fault in faults]
    if twice := {id for id in ids if ids.count(id) > 1}:
        raise Stale(f"named twice: {twice}")
    explained = set(re.findall(r"^\| `([^`]*/[^`]*)`", EXPLANATIONS.read_text(), re.MULTILINE))
    marked = {fault.id for fault in faults if fault.explained}
    if explained != marked:
        raise Stale(f"explained or marked, but not both: {explained ^ marked}")


class Copy:
    """A copy of the project with a build of its own, in which one fault at a time is tried."""

    def __init__(self, number: int, needed: list[Tests]) -> None:
        self.tree = WORK / f"tree{number}"
        self.build_folder = WORK / f"build{number}"
        self.update()
        run_or_fail(["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build_folder, *CMAKE_OPTIONS])
        run_or_fail(["cmake", "--build", self.build_folder])
        # How long tests may take, from how long they take without a fault; they must pass.
        self.limit: dict[Tests, float] = {}
        for tests in needed:
            begin = time.monotonic()
            if failed := self.run(tests, timeout=600):
                raise Stale(f"fails without a fault: {failed}")
            self.limit[tests] = 20 + 5 * (time.monotonic() - begin)

    def update(self) -> None:
        """Copies what has changed; the rest keeps its time, so that it is not built again."""
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=ROOT, check=True, capture_output=True, text=True,
        ).stdout.split("\0")  # fmt: skip
        names = {name for name in listed if name and (ROOT / name).is_file()}
        for name in names:
            original, copy = ROOT / name, self.tree / name
            if not copy.exists() or copy.read_bytes() != original.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(original, copy)
        for copy in [path for path in self.tree.rglob("*") if path.is_file()]:
            if str(copy.relative_to(self.tree)) not in names:
                copy.unlink()

    def try_fault(self, fault: Fault) -> str | None:
        source = self.tree / fault.source
        source.write_text(faulty(fault))
        try:
            programs = {tests.program for tests in fault.tests}
            run_or_fail(["cmake", "--build", self.build_folder, "--target", *programs])
            killers = (self.run(tests, self.limit[tests]) for tests in fault.tests)
            return next(filter(None, killers), None)
        finally:
            source.write_text((ROOT / fault.source).read_text())

    def run(self, tests: Tests, timeout: float) -> str | None:
        """Runs tests up to the first that fails; returns its name and how it failed."""
        program = self.build_folder / "bin" / tests.program
        with subprocess.Popen(
            [program, f"--gtest_filter={tests.filter}", "--gtest_fail_fast"],
            # The same random input each time: what is found today is found tomorrow.
            env={**os.environ, "RC_PARAMS": "seed=1"},
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, errors="replace",
            start_new_session=True,
        ) as process:  # fmt: skip
            hangs = False
            try:
                output, _ = process.communicate(timeout=timeout)
            except subprocess.TimeoutExpired:
                hangs = True
                os.killpg(process.pid, signal.SIGKILL)
                output, _ = process.communicate()
        if process.returncode == 0:
            if re.search(r"^\[  PASSED  \] [1-9]", output, re.MULTILINE):
                return None
            raise Stale(f"{tests.program}: no test matches {tests.filter}")
        failed = re.search(r"^\[  FAILED  \] ([^ ,\n]+)", output, re.MULTILINE)
        begun = re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE)
        where = failed[1] if failed else begun[-1] if begun else tests.program
        return where + (" (hangs)" if hangs else "" if failed else " (crashes)")


def run_or_fail(command: list) -> None:
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        raise Stale(done.stdout[-4000:])


def verdict(fault: Fault, killer: str | None) -> str:
    if killer:
        return "killed, though explained" if fault.explained else "killed"
    return "survived as explained" if fault.explained else "survived"


GOOD = {"killed", "survived as explained"}


def try_all(faults: list[Fault], jobs: int) -> dict[str, int]:
    """Tries every fault and tells of each; returns how often each verdict was passed."""
    needed = list(dict.fromkeys(tests for fault in faults for tests in fault.tests))
    # By sources: to go on to another one means to compile the last one again without its fault.
    groups = [list(group) for _, group in groupby(faults, lambda fault: fault.group)]
    groups.sort(key=len)
    counts: dict[str, int] = {}

    def work(number: int) -> None:
        copy = Copy(number, needed)
        while groups:
            for fault in groups.pop():
                since = time.monotonic()
                try:
                    told = copy.try_fault(fault)
                    word = verdict(fault, told)
                except Stale as reason:
                    word, told = "can't be tried", f"\n{reason}"
                counts[word] = counts.get(word, 0) + 1
                took = time.monotonic() - since
                print(f"{word:8} {fault.id} ({took:.0f} s) {told or ''}", flush=True)

    with ThreadPoolExecutor(jobs) as pool:
        for done in [pool.submit(work, number) for number in range(jobs)]:
            done.result()
    return counts


def main() -> int:
    parser = argparse.ArgumentParser(prog="scripts/mutate")
    parser.add_argument("--list", action="store_true", help="only name the faults")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="copies at work at a time")
    parser.add_argument("pattern", nargs="*", help="part of LIST/FAULT; none: all of them")
    options = parser.parse_args()
    every = read_lists()
    check(every)
    faults = [
        fault for fault in every
        if not options.pattern or any(pattern in fault.id for pattern in options.pattern)
    ]  # fmt: skip
    if options.list:
        print(*(fault.id for fault in faults), sep="\n")
        return 0

    begin = time.monotonic()
    counts = try_all(faults, options.jobs)
    minutes = (time.monotonic() - begin) / 60
    told = ", ".join(f"{count} {word}" for word, count in counts.items())
    print(f"{len(faults)} faults: {told}; {minutes:.0f} minutes")
    return 0 if set(counts) <= GOOD else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Stale as reason:
        sys.exit(f"scripts/mutate: {reason}")
