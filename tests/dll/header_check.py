#!/usr/bin/env python3
"""Compiles the public header by itself, as C11 and as C++20, with every compiler at hand.

usage: header_check.py INCLUDE_FOLDER
"""

import subprocess
import sys
import tempfile
import unittest

INCLUDE = None
SOURCE = """
#include "kestrelkit/kestrelkit.h"
typedef char PartitionInfoSize[sizeof(KkPartitionInfo) == 373 ? 1 : -1];
typedef char ResultSize[sizeof(BackupResult) == 48 ? 1 : -1];
KK_STATUS CallAll(KkDiskInfo* disks, KkPartitionInfo* partitions, const KkWideChar* path, BackupResult* result);
KK_STATUS CallAll(KkDiskInfo* disks, KkPartitionInfo* partitions, const KkWideChar* path, BackupResult* result)
{
    uint32_t count = 0;
    KK_STATUS status = KkListDisks(disks, 1, &count);
    status = status < 0 ? status : KkListPartitions(0, partitions, 1, &count);
    return status < 0 ? status : KkBackup(0, path, 0, 0, 1, 0, 1, "set", 0, 1, 0, result);
}
"""
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only"]
COMPILERS = {
    "GCC": (["gcc"], ["g++"]),
    "Clang": (["clang-19"], ["clang++-19"]),
    "GCC for Windows": (["x86_64-w64-mingw32-gcc"], ["x86_64-w64-mingw32-g++"]),
    "Clang for Windows": (["clang-19", "--target=x86_64-w64-mingw32"], ["clang++-19", "--target=x86_64-w64-mingw32"]),
    # Clang in Microsoft's dialect is the nearest thing to MSVC here; without its SDK, hence free-standing.
    "Clang in Microsoft's dialect": (
        ["clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding"],
        ["clang++-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding"],
    ),
}


class HeaderCheck(unittest.TestCase):
    def compile(self, command, standard, suffix):
        with tempfile.NamedTemporaryFile("w", suffix=suffix) as source:
            source.write(SOURCE)
            source.flush()
            run = subprocess.run(
                [*command, standard, *WARNINGS, f"-I{INCLUDE}", source.name], capture_output=True, text=True
            )
            self.assertEqual(run.returncode, 0, run.stderr)

    def test_compiles_as_c11(self):
        for name, (c, _) in COMPILERS.items():
            with self.subTest(name):
                self.compile(c, "-std=c11", ".c")

    def test_compiles_as_cpp20(self):
        for name, (_, cpp) in COMPILERS.items():
            with self.subTest(name):
                self.compile(cpp, "-std=c++20", ".cpp")


if __name__ == "__main__":
    INCLUDE = sys.argv.pop(1)
    unittest.main()
