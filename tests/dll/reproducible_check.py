#!/usr/bin/env python3
"""Builds the DLL once more, in a folder of another name, and compares it byte by byte with the one that is there.

Usage: reproducible_check.py PROJECT PRESET
"""

import filecmp
import pathlib
import shutil
import subprocess
import sys
import tempfile

SOURCES = ["src", "include", "cmake", "tools", "tests/sdk", "CMakeLists.txt", "CMakePresets.json"]
FILES = ["KestrelkitCore.dll", "KestrelkitCore.pdb"]


def copy_sources(project, folder):
    for name in SOURCES:
        source, target = project / name, folder / name
        target.parent.mkdir(parents=True, exist_ok=True)
        if source.is_dir():
            shutil.copytree(source, target)
        else:
            shutil.copy(source, target)


def build(folder, preset):
    for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset, "--target", "KestrelkitCore"]):
        done = subprocess.run(command, cwd=folder, text=True, capture_output=True)
        if done.returncode != 0:
            sys.exit(done.stdout[-3000:] + done.stderr[-3000:])


def main():
    project, preset = pathlib.Path(sys.argv[1]), sys.argv[2]
    first = project / "build" / preset
    with tempfile.TemporaryDirectory(prefix="another folder ") as name:
        folder = pathlib.Path(name)
        copy_sources(project, folder)
        build(folder, preset)
        compared = [file for file in FILES if (first / file).exists()]
        differing = [file for file in compared if not filecmp.cmp(first / file, folder / "build" / preset / file, False)]
    if not compared or differing:
        sys.exit(f"{preset}: these differ from folder to folder: {differing or FILES}")
    print(f"{preset}: {', '.join(compared)} are the same from both folders")


if __name__ == "__main__":
    main()
