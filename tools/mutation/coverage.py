"""Which lines of the library each test reaches, and how long it takes: measured once and kept."""

import concurrent.futures
import json
import pathlib
import shutil
import subprocess
import tempfile

from mutation.limits import run_test
from mutation.tree import PROGRAMS, compile_source, link_program

# Counters live in a mapped file, so that tests that fork, crash or leave early count as well.
INSTRUMENT = ["-fprofile-instr-generate", "-fcoverage-mapping", "-mllvm", "-runtime-counter-relocation"]


class ReachMap:
    """Per test: its seconds, whether it passes, and the lines it reaches, a number per file with a bit per line."""

    def __init__(self, path):
        self.path = path
        self.tests = json.loads(path.read_text(encoding="utf-8")) if path.is_file() else {}

    def save(self):
        self.path.write_text(json.dumps(self.tests), encoding="utf-8")

    def seconds(self, test):
        return self.tests[test.name]["seconds"]

    def line_count(self, test):
        return sum(int(lines, 16).bit_count() for lines in self.tests[test.name]["lines"].values())

    def usable(self, tests):
        return [test for test in tests if self.tests[test.name]["passed"]]

    def reaching(self, tests, places):
        """The tests that reach one of the places, which are pairs of file and line."""
        wanted = {}
        for file, line in places:
            wanted[file] = wanted.get(file, 0) | 1 << line
        found = []
        for test in tests:
            lines = self.tests[test.name]["lines"]
            if any(int(lines.get(file, "0"), 16) & bits for file, bits in wanted.items()):
                found.append(test)
        return found


def measure(tree, tests, reach, folder, jobs):
    """Adds the tests that the map does not know yet."""
    missing = [test for test in tests if test.name not in reach.tests]
    if not missing:
        return
    print(f"measuring what {len(missing)} tests reach")
    programs = instrumented_programs(tree, {test.program for test in missing}, folder / "instrumented", jobs)
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        traced = zip(missing, pool.map(lambda test: trace(tree, test, programs[test.program]), missing))
        for number, (test, entry) in enumerate(traced, 1):
            reach.tests[test.name] = entry
            if not entry["passed"]:
                print(f"left out, as it does not pass without a fault: {test.name}", flush=True)
            if number % 100 == 0:
                print(f"{number} of {len(missing)} measured", flush=True)
                reach.save()
    reach.save()


def instrumented_programs(tree, wanted, folder, jobs):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    sources = [path for path in tree.compile_command if tree.is_source(path)]
    sources += sorted({path for paths in tree.dependents.values() for path in paths} - set(sources))
    objects = {path: folder / f"{number}.o" for number, path in enumerate(sources)}
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        compiled = pool.map(lambda path: compile_source(tree, path, objects[path], INSTRUMENT), sources)
        broken = [str(path) for path, fine in zip(sources, compiled) if not fine]
    if broken:
        raise SystemExit("does not compile with counters: " + ", ".join(broken))
    for program in PROGRAMS:
        if program in wanted and not link_program(tree, program, objects, folder / program, INSTRUMENT[:1]):
            raise SystemExit(f"{program} does not link with counters")
    return {program: folder / program for program in wanted}


def trace(tree, test, program):
    with tempfile.TemporaryDirectory(prefix="reach-") as name:
        folder = pathlib.Path(name)
        work = folder / "work"
        work.mkdir()
        raw, data = folder / "raw", folder / "data"
        result, seconds = run_test(program, test, work, 60, {"LLVM_PROFILE_FILE": f"{raw}%c"})
        lines = {}
        if raw.is_file():
            merge = ["llvm-profdata-19", "merge", "-sparse", str(raw), "-o", str(data)]
            export = ["llvm-cov-19", "export", "-format=lcov", "-skip-functions", f"-instr-profile={data}"]
            subprocess.run(merge, check=True, capture_output=True)
            told = subprocess.run([*export, str(program)], check=True, capture_output=True, text=True).stdout
            lines = reached_lines(told, tree.root)
    return {"seconds": round(seconds, 3), "passed": result == "passed", "lines": lines}


def reached_lines(lcov, root):
    bits, file = {}, None
    for line in lcov.splitlines():
        if line.startswith("SF:"):
            path = pathlib.Path(line[3:])
            file = path.relative_to(root).as_posix() if path.is_relative_to(root / "src") else None
        elif file is not None and line.startswith("DA:"):
            number, count = line[3:].split(",")[:2]
            if count != "0":
                bits[file] = bits.get(file, 0) | 1 << int(number)
    return {file: f"{number:x}" for file, number in bits.items()}
