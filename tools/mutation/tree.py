"""What the host build knows: how each source is compiled, how each program is linked, and which tests there are."""

import dataclasses
import json
import os
import pathlib
import re
import shlex
import subprocess

PROGRAMS = [
    "core_tests", "disk_tests", "partition_tests", "image_tests", "backup_tests", "export_tests_host",
]  # fmt: skip

QUICK_LINK = ["-fuse-ld=lld", "-no-pie", "-Wl,--strip-debug,--build-id=none,--threads=1"]


@dataclasses.dataclass(frozen=True)
class Test:
    name: str
    program: str
    arguments: tuple
    environment: tuple


class Tree:
    def __init__(self, root, build):
        self.root, self.build = root, build
        commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        # Sources that several programs compile are none of the library's.
        self.compile_command = {pathlib.Path(entry["file"]): plain_command(entry["command"]) for entry in commands}
        self.object_of = {path: command[command.index("-o") + 1] for path, command in self.compile_command.items()}
        self.link_command = {program: self.find_link_command(program) for program in PROGRAMS}
        self.dependents = self.find_dependents()

    def compiles(self, path):
        return path in self.compile_command

    def find_link_command(self, program):
        lines = self.output(["ninja", "-t", "commands", f"tests/{program}"]).splitlines()
        for part in lines[-1].split(" && "):
            words = shlex.split(part)
            if "-o" in words and words[words.index("-o") + 1] == f"tests/{program}":
                return words
        raise SystemExit(f"no command that links {program}")

    def find_dependents(self):
        """For each header of the library, the sources that read it: the library's own, and the header's own tests."""
        objects = {pathlib.Path(name): path for path, name in self.object_of.items()}
        found, path = {}, None
        for line in self.output(["ninja", "-t", "deps"]).splitlines():
            if line and not line.startswith(" "):
                path = objects.get(pathlib.Path(line.split(":")[0]))
            elif path is not None and line.strip():
                header = pathlib.Path(os.path.normpath(self.build / line.strip()))
                if self.is_source(header) and (self.is_source(path) or self.is_own_test(path, header)):
                    found.setdefault(header, set()).add(path)
        return {header: sorted(paths) for header, paths in found.items()}

    def is_source(self, path):
        return path.is_relative_to(self.root / "src")

    def is_own_test(self, path, header):
        """Whether these tests are of that header alone: they hold code of it that the library itself does not need, and
        code that the compiler has put into their callers."""
        folder = self.root / "tests" / header.parent.name
        return path.parent == folder and re.fullmatch(rf"{header.stem}(_\w+)?_test", path.stem) is not None

    def sources_with(self, path):
        return [path] if self.compiles(path) else self.dependents.get(path, [])

    def programs_with(self, path):
        layer = path.parent.name
        return [program for program in PROGRAMS if self.object_of[path] in self.link_command[program]] or [
            f"{layer}_tests"
        ]

    def tests(self):
        listing = json.loads(self.output(["ctest", "--show-only=json-v1"]))
        found = []
        for test in listing["tests"]:
            program = pathlib.Path(test.get("command", [""])[0]).name
            if program not in PROGRAMS:
                continue
            settings = {entry["name"]: entry["value"] for entry in test["properties"]}
            environment = tuple(settings.get("ENVIRONMENT", []))
            found.append(Test(test["name"], program, tuple(test["command"][1:]), environment))
        return found

    def join_what_stays(self, folder):
        """Links what no mutant changes, once, so that each link has less to read."""
        folder.mkdir(exist_ok=True)
        changing = {self.object_of[path] for paths in self.dependents.values() for path in paths}
        changing |= {name for path, name in self.object_of.items() if self.is_source(path)}
        for program, words in self.link_command.items():
            staying = [word for word in words if word.endswith(".o") and word not in changing]
            joined = folder / f"{program}.o"
            join = ["ld.lld-19", "-r", "--strip-debug", "-o", str(joined), *staying]
            subprocess.run(join, cwd=self.build, check=True)
            words[:] = [word for word in words if word not in staying]
            words.insert(words.index("-o"), str(joined))

    def output(self, command):
        return subprocess.run(command, cwd=self.build, check=True, capture_output=True, text=True).stdout


def plain_command(text):
    """Without a compiler cache in front."""
    words = shlex.split(text)
    return words[1:] if re.search(r"(^|/)s?ccache$", words[0]) else words


def compile_source(tree, path, output, extra=()):
    """Compiles with warnings off, for a fault may well leave something unused. False when it does not compile."""
    words = list(tree.compile_command[path])
    words[words.index("-o") + 1] = str(output)
    words += ["-w", "-Wno-error", "-g0", *extra]
    return run_quietly(words, tree.build, 300)


def link_program(tree, program, objects, output, extra=()):
    """Links with other objects in the place of some. They come first: of a function that several objects hold, such as
    one of a template, the linker takes the first."""
    replaced = {tree.object_of[path]: str(name) for path, name in objects.items()}
    words = [word for word in tree.link_command[program] if word not in replaced]
    words[words.index("-o") + 1] = str(output)
    used = [name for original, name in replaced.items() if original in tree.link_command[program]]
    words[1:1] = [*used, *QUICK_LINK, *extra]
    return run_quietly(words, tree.build, 300)


def run_quietly(words, folder, seconds):
    try:
        return subprocess.run(words, cwd=folder, timeout=seconds, capture_output=True, check=False).returncode == 0
    except subprocess.TimeoutExpired:
        return False
