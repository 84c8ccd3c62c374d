"""Tries one mutant: compiles it, and runs the tests that reach it until one notices."""

import collections
import json
import pathlib
import re
import shutil
import tempfile
import threading

from mutation.limits import run_test
from mutation.tree import compile_source, link_program

# Without sanitizers and names of lines, two sources that mean the same become the same object.
PLAIN = ["-fno-sanitize=all", "-fno-sanitize-coverage=inline-8bit-counters,indirect-calls,trace-cmp,pc-table", "-O2"]
TESTS_BEFORE_COMPARING = 12


class Trials:
    def __init__(self, tree, tests, reach, folder):
        self.tree, self.tests, self.reach = tree, reach.usable(tests), reach
        self.plain_folder = folder / "plain"
        self.plain_folder.mkdir(parents=True, exist_ok=True)
        self.work_folder = folder / "work"
        shutil.rmtree(self.work_folder, ignore_errors=True)  # what a run that was stopped left
        self.work_folder.mkdir()
        self.lock = threading.Lock()
        self.kills = collections.Counter()  # by file and test: who noticed one fault notices the next

    def run(self, mutant, limit=None):
        """Runs no more tests than `limit`, and then leaves open whether another would notice."""
        with tempfile.TemporaryDirectory(dir=self.work_folder) as name:
            return Trial(self, mutant, pathlib.Path(name)).run(limit)

    def tests_for(self, mutant):
        lines = [(mutant.file, line) for line in range(mutant.line, mutant.last_line + 1)]
        found = self.reach.reaching(self.tests, lines) or self.reach.reaching(self.tests, self.uses(mutant))
        return sorted(found, key=lambda test: self.rank(mutant, test))

    def rank(self, mutant, test):
        """Slow tests last. Before them those that noticed a fault of this file, then those that reach little else."""
        slow = self.reach.seconds(test) > 3
        return slow, -self.kills[mutant.file, test.name], self.reach.line_count(test), test.name

    def uses(self, mutant):
        """Where the constant or the record's field is used, for no test reaches a declaration. Everywhere in the
        sources that read it when its name is not clear."""
        declared = re.search(r"(\w+)(\[\w*\])?\s*(=|\{|;)", mutant.before)
        word = re.compile(rf"\b{declared.group(1)}\b") if declared else None
        everywhere = self.tree.sources_with(self.tree.root / mutant.file)
        places = []
        for path in (self.tree.root / "src").rglob("*.*") if word else everywhere:
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                if word is None or word.search(line):
                    places.append((path.relative_to(self.tree.root).as_posix(), number))
        return places

    def plain_object(self, path):
        """What the compiler makes of the source as it is; kept, as every mutant of it is compared with that."""
        name = self.plain_folder / ("-".join(path.relative_to(self.tree.root).parts) + ".o")
        with self.lock:
            if not name.is_file() and not compile_source(self.tree, path, name, PLAIN):
                raise SystemExit(f"does not compile: {path}")
        return name.read_bytes()


class Trial:
    def __init__(self, trials, mutant, folder):
        self.trials, self.mutant, self.folder = trials, mutant, folder
        self.tree = trials.tree
        self.source = self.tree.root / mutant.file
        self.affected = self.tree.sources_with(self.source)
        self.overlay = self.write_overlay()
        self.programs, self.objects = {}, {}

    def write_overlay(self):
        """Has the compiler read the mutant where the source lies, which itself stays as it is."""
        planted = self.folder / self.source.name
        planted.write_text(self.mutant.applied_to(self.source.read_text(encoding="utf-8")), encoding="utf-8")
        entry = {"type": "file", "name": str(self.source), "external-contents": str(planted)}
        overlay = self.folder / "overlay.yaml"
        overlay.write_text(json.dumps({"version": 0, "use-external-names": False, "roots": [entry]}), encoding="utf-8")
        return ["-ivfsoverlay", str(overlay)]

    def run(self, limit):
        tests = self.trials.tests_for(self.mutant)
        if not self.compile():
            return {"outcome": "does not compile"}
        if not tests:
            return {"outcome": "equivalent" if self.is_equivalent() else "survived", "tests": 0}
        for number, test in enumerate(tests):
            if number == limit:
                return {"outcome": "undecided", "tests": number}
            if number == TESTS_BEFORE_COMPARING and self.is_equivalent():
                return {"outcome": "equivalent"}
            how = self.try_test(test)
            if how == "does not link":
                return {"outcome": "does not compile"}
            if how != "passed":
                self.trials.kills[self.mutant.file, test.name] += 1
                return {"outcome": "caught", "how": how, "by": test.name, "tests": number + 1}
        if len(tests) <= TESTS_BEFORE_COMPARING and self.is_equivalent():
            return {"outcome": "equivalent"}
        return {"outcome": "survived", "tests": len(tests)}

    def compile(self):
        for number, path in enumerate(self.affected):
            self.objects[path] = self.folder / f"{number}.o"
            if not compile_source(self.tree, path, self.objects[path], self.overlay):
                return False
        return True

    def is_equivalent(self):
        for path in self.affected:
            name = self.folder / "plain.o"
            if not compile_source(self.tree, path, name, [*PLAIN, *self.overlay]):
                return False
            if name.read_bytes() != self.trials.plain_object(path):
                return False
        return True

    def try_test(self, test):
        """How the test ended. One that hangs must do so twice."""
        if test.program not in self.programs:
            program = self.folder / test.program
            if not link_program(self.tree, test.program, self.objects, program):
                return "does not link"
            self.programs[test.program] = program
        for _ in range(2):
            work = self.folder / "work"
            work.mkdir(exist_ok=True)
            how, _ = run_test(self.programs[test.program], test, work, self.trials.reach.seconds(test))
            if how != "hung":
                break
        return how
